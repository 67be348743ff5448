// LazyWrapper: a network wrapper (ObjectDetector, ContentClassifier, PoseEstimator) over a
// NetworkPart, a bundle part that carries the network or names another model's
// (model/network_part.h). The wrapper is made on first need, so that a named network is
// fetched only when an image needs it.
#pragma once

#include <memory>
#include <utility>

#include "model/network_part.h"

namespace kv {

template <typename Wrapper>
class LazyWrapper {
public:
    LazyWrapper() = default;  // the bundle has no such part
    // Throws Error(INVALID_MODEL) for carried bytes that are no network of shape, or a
    // malformed reference.
    LazyWrapper(const ModelBlob& part, const NetworkShape& shape) : part_(part, shape) {}
    bool present() const { return part_.present(); }
    // The wrapper; null without the part or when its reference cannot be resolved.
    Wrapper* get() {
        if (!made_) {
            if (std::shared_ptr<Network> network = part_.get()) made_ = std::make_unique<Wrapper>(std::move(network));
        }
        return made_.get();
    }

private:
    NetworkPart part_;
    std::unique_ptr<Wrapper> made_;
};

}  // namespace kv
