// MoveNet Lightning (single person, 192 x 192): 17 key points in COCO order (nose, left and
// right eye, left and right ear, shoulders, elbows, wrists, hips, knees, ankles; left before
// right, the person's sides) with the network's scores, decoded as the network's own
// post-processing does: the strongest person centre (weighted towards the image centre),
// its regressed key points, each refined to the strongest heatmap cell near it, plus the
// cell's sub-cell offset.
#pragma once

#include <array>
#include <memory>

#include <opencv2/core.hpp>

#include "network.h"

namespace kv {

constexpr int kPoseKeyPoints = 17;

struct Pose {
    std::array<cv::Point2f, kPoseKeyPoints> points;  // pixels of the image
    std::array<float, kPoseKeyPoints> scores{};
    float centreScore = 0;                           // the person centre's heatmap value
    float meanScore() const;
};

class PoseEstimator {
public:
    static const NetworkShape& shape();
    explicit PoseEstimator(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    Pose estimate(const cv::Mat& bgr) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
