// MediaPipe's selfie segmentation (256 x 256 RGB, 0..1): per pixel, the probability that
// it belongs to a person.
#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "model/network.h"

namespace kv {

class PersonSegmenter {
public:
    static const NetworkShape& shape();
    explicit PersonSegmenter(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // The person probabilities (CV_32F) of the image fitted into the network's square (aspect
    // kept): the image's part of the network's output, at the network's scale.
    cv::Mat segment(const cv::Mat& bgr) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
