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
#include <optional>
#include <vector>

#include "dnn/movenet_multipose.h"
#include "dnn/pose.h"
#include "model/network.h"

namespace kv {

class PoseEstimator {
public:
    // Throws Error(INVALID_MODEL) on a malformed bundle or unusable networks.
    explicit PoseEstimator(const ModelBlob& blob);
    // The single-person network alone (checked for singleShape()): personIn only.
    explicit PoseEstimator(std::shared_ptr<Network> single) : single_(std::move(single)) {}
    static const NetworkShape& singleShape();
    // The people found, strongest first.
    std::vector<Pose> estimate(const cv::Mat& bgr) const;
    // The single network's one person inside box (pixels of bgr), as it sees a crop of it
    // grown by kCropMargin of its size on every side and cut at the image's edges: whether a
    // body with key points stands where another network saw a person. Points and box in
    // pixels of bgr, score the mean key point score, whatever it is. Nothing without the
    // single network or when the box misses the image.
    static constexpr float kCropMargin = 0.2f;
    std::optional<Pose> personIn(const cv::Mat& bgr, const cv::Rect2f& box) const;
    bool hasSingle() const { return single_ != nullptr; }
    const Network* singleNetwork() const { return single_.get(); }

private:
    std::shared_ptr<Network> single_;
    std::unique_ptr<MoveNetMultiPose> multi_;
};

}  // namespace kv
