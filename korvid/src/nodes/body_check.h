// The bodies that confirm the detector's persons (person_evidence.h), as a node holds them:
// MoveNet's single-person network from its bundle's "single" part. The part may carry the
// network or name another model's (model/model_reference.h): then it is fetched the first time
// a person is strong enough to be checked, and normal photos never fetch it.
#pragma once

#include <memory>

#include "dnn/pose_estimator.h"
#include "model/network_part.h"

namespace kv {

class BodyCheck {
public:
    BodyCheck() = default;  // no body network: no person is ever confirmed
    explicit BodyCheck(const ModelBlob& part) : network_(part, PoseEstimator::singleShape()) {}
    // The bodies; null without the part, or when its reference cannot be resolved.
    const PoseEstimator* bodies();

private:
    NetworkPart network_;
    std::unique_ptr<PoseEstimator> bodies_;
};

}  // namespace kv
