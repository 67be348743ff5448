// NanoDet (COCO, 80 classes, 416 x 416): objects with the network's class score and box,
// decoded from its three strides (8, 16, 32) and merged by per-class non-maximum suppression.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "graph/execute_memo.h"
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
    static const NetworkShape& shape();
    explicit ObjectDetector(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // Objects of at least minScore, best first; at most maxCount. With a memo, the nodes of
    // one execute that detect objects in the same image with the same network (pets,
    // classification) run the network once.
    std::vector<ObjectDetection> detect(const cv::Mat& bgr, float minScore, ExecuteMemo* memo = nullptr, size_t maxCount = 100) const;
    const Network* network() const { return network_.get(); }

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
