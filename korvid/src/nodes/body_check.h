// The bodies that confirm the detector's persons (person_evidence.h), as a node holds them:
// MoveNet's single-person network from its bundle's "single" part. The part may carry the
// network or name another model's (model/model_reference.h): then it is fetched the first time
// a person is strong enough to be checked, and normal photos never fetch it.
#pragma once

#include "dnn/pose_estimator.h"
#include "nodes/lazy_wrapper.h"

namespace kv {

class BodyCheck : public LazyWrapper<PoseEstimator> {
public:
    BodyCheck() = default;  // no body network: no person is ever confirmed
    explicit BodyCheck(const ModelBlob& part) : LazyWrapper(part, PoseEstimator::singleShape()) {}
    // The bodies; null without the part, or when its reference cannot be resolved.
    const PoseEstimator* bodies() { return get(); }
};

}  // namespace kv
