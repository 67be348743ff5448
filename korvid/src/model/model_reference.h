// A bundle part that names a part of another model instead of carrying its bytes:
//   "korvid-ref\n<model>/<part>\n"
// The resource finder reads a model whole on every graph load, so a network that a bundle
// needs only for some images (MoveNet for the persons the detector finds) is named rather
// than carried: the graph loads without reading it, and the node fetches it on first need.
#pragma once

#include <optional>
#include <string>

#include "model/model_blob.h"

namespace kv {

struct ModelReference {
    std::string model;  // a model name the resource finder delivers
    std::string part;   // a part of that model's bundle
    std::string text() const { return model + "/" + part; }
};

// The reference blob holds, or nullopt when it holds bytes of its own. A blob that begins
// as a reference but does not follow the form (names of 1 to 128 letters, digits, '_', '-'
// or '.', nothing after the newline) is INVALID_MODEL.
std::optional<ModelReference> modelReference(const ModelBlob& blob);

}  // namespace kv
