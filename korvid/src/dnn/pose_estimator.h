// The people of an image and their poses, from two MoveNet networks in one model bundle
// ("single" and "multi", src/model_bundle.h). MoveNet Lightning (single person, 192 x 192)
// runs on every image; its person-centre heatmap also shows whether a second person is
// likely (a second local maximum of kCrowdCentre or more). Only then MoveNet MultiPose
// (three times the cost) runs, and its people above kMinMultiScore are the result; when it
// finds nobody, or without a second centre, the single network's person is, if its mean key
// point score reaches kMinSingleScore. A bare network (not a bundle) is the single network;
// a bundle of one of the two runs that one alone.
#pragma once

#include <memory>
#include <vector>

#include "dnn/movenet_multipose.h"
#include "dnn/pose.h"
#include "model/network.h"

namespace kv {

class PoseEstimator {
public:
    // Throws Error(INVALID_MODEL) on a malformed bundle or unusable networks.
    explicit PoseEstimator(const ModelBlob& blob);
    // The people found, strongest first.
    std::vector<Pose> estimate(const cv::Mat& bgr) const;

private:
    std::shared_ptr<Network> single_;
    std::unique_ptr<MoveNetMultiPose> multi_;
};

}  // namespace kv
