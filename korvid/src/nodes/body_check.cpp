#include "nodes/body_check.h"

namespace kv {

const PoseEstimator* BodyCheck::bodies() {
    if (!bodies_) {
        if (std::shared_ptr<Network> single = network_.get()) bodies_ = std::make_unique<PoseEstimator>(std::move(single));
    }
    return bodies_.get();
}

}  // namespace kv
