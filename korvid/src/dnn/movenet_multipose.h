// MoveNet MultiPose Lightning (256 x 256): up to six people, each with its key points, box
// and score, all the network's own. Decoded as the network's post-processing does (cut off
// at conversion): the six strongest local maxima of the person-centre heatmap; per centre a
// box (size and offset heads) and regressed key points; each key point snapped to the
// key-point heatmap's strongest cell inside the box, weighted by a Gaussian of its distance
// to the regressed point, plus that cell's sub-cell offset. A person's score is its centre's
// value times the mean of its key point scores above a floor.
#pragma once

#include <memory>
#include <vector>

#include "dnn/pose.h"
#include "model/network.h"

namespace kv {

class MoveNetMultiPose {
public:
    static const NetworkShape& shape();
    explicit MoveNetMultiPose(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // Every candidate the network reports (six), strongest person first.
    std::vector<Pose> estimate(const cv::Mat& bgr) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
