// The model bytes a node reads: delivered by the resource finder, named in the graph under a
// parameter key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace kv {

class NetworkCache;

// Model bytes delivered by the resource finder; valid while the graph is loaded. networks:
// the loading system's cache of networks by content (null outside a system).
struct ModelBlob {
    std::string name;
    const uint8_t* data = nullptr;
    size_t size = 0;
    NetworkCache* networks = nullptr;
};
using ModelSet = std::map<std::string, ModelBlob>;  // by parameter key

// The model bytes for a parameter key; throws Error(INVALID_GRAPH) when the graph names no
// model under that key.
const ModelBlob& requireModel(const ModelSet& models, const std::string& key);

}  // namespace kv
