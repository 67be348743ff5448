// A model file that holds several parts under one model name, so that a node whose graph
// names one model can read, for instance, a cascade and a network:
//   "korvid-bundle\n", then per part "<name> <size>\n" followed by exactly size bytes.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "model/error.h"
#include "model/model_blob.h"

namespace kv {

// The parts of blob by name (each keeps the blob's network cache), or an empty map when blob
// is not a bundle. A bundle that is cut short or malformed is INVALID_MODEL.
std::map<std::string, ModelBlob> bundleParts(const ModelBlob& blob);

// The parameter file and the network of a bundle that carries both, or nullopt when blob is
// not a bundle (a bare parameter file). A bundle without one of them is INVALID_MODEL.
struct ParamsAndNetwork {
    ModelBlob params, network;
};
std::optional<ParamsAndNetwork> paramsAndNetwork(const ModelBlob& blob);

}  // namespace kv
