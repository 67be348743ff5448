// NanoDet (COCO, 80 classes, 416 x 416): objects with the network's class score and box,
// decoded from its three strides (8, 16, 32) and merged by per-class non-maximum suppression.
#pragma once

#include <memory>
#include <utility>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "dnn/letterbox.h"
#include "model/network.h"

namespace kv {

struct ObjectDetection {
    cv::Rect2f box;    // pixels of the image
    int cocoClass = 0; // 0 person ... 79 toothbrush (cocoClassName)
    float score = 0;   // the network's probability for that class
};

// The COCO class names in the network's order ("person", "bicycle", ...); "" out of range.
const std::string& cocoClassName(int cocoClass);
constexpr int kCocoPerson = 0, kCocoCat = 15, kCocoDog = 16;

class ObjectDetector {
public:
    // The network's outputs for an image, with the letterbox that maps them back to it: what
    // the nodes of one execute that look for objects in the same image can share.
    struct Pass {
        Letterbox box;
        std::vector<cv::Mat> outs;
        // Each cell's likeliest class and its score, the cells of the three strides in turn:
        // found once per pass, since every node that shares it asks for its own threshold.
        std::vector<std::pair<int, float>> best;
    };

    static const NetworkShape& shape();
    explicit ObjectDetector(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    Pass run(const cv::Mat& bgr) const;
    // Objects of at least minScore in a pass, best first; at most maxCount.
    std::vector<ObjectDetection> detect(const Pass& pass, float minScore, size_t maxCount = 100) const;
    std::vector<ObjectDetection> detect(const cv::Mat& bgr, float minScore, size_t maxCount = 100) const {
        return detect(run(bgr), minScore, maxCount);
    }
    const Network* network() const { return network_.get(); }

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
