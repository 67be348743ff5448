// A network a node reads from a part of its bundle: at graph load when the part carries the
// network's bytes, on first need when the part names another model's (model_reference.h).
// A reference that cannot be resolved (the model missing, damaged or of another kind) never
// fails the run: get() gives null, the node answers without the network, and the reason is
// written to standard error once; the graph keeps that answer until it is loaded again
// (retrying would read a damaged model whole on every image).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "model/network.h"

namespace kv {

class NetworkPart {
public:
    NetworkPart() = default;  // the bundle has no such part
    // Throws Error(INVALID_MODEL) as loadNetwork does for bytes, and for a malformed reference.
    NetworkPart(const ModelBlob& part, NetworkShape shape);
    bool present() const { return network_ != nullptr || reference_.has_value(); }
    // The network, fetched on the first call for a reference (through the part's network
    // cache); null without the part or when the reference cannot be resolved.
    std::shared_ptr<Network> get();

private:
    std::string name_;  // the part's own name: "qm_porn_classifier/objects"
    std::shared_ptr<Network> network_;
    std::optional<ModelReference> reference_;
    NetworkShape shape_;
    NetworkCache* cache_ = nullptr;
    bool failed_ = false;
};

}  // namespace kv
