// BlazeFace (the full-range "back" model, 256 x 256): faces with the network's score, box
// and six key points, decoded from its 896 anchors and merged by non-maximum suppression.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "network.h"

namespace kv {

struct FaceDetection {
    cv::Rect2f box;                       // pixels of the image
    float score = 0;                      // the network's probability
    // Right eye, left eye (of the person), nose tip, mouth centre, right ear, left ear.
    std::array<cv::Point2f, 6> keyPoints;
};

class FaceDetector {
public:
    static const NetworkSpec& spec();
    explicit FaceDetector(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // Faces of at least minScore, best first.
    std::vector<FaceDetection> detect(const cv::Mat& bgr, float minScore) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
