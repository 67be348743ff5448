// The object detector's objects in the image of an execute: the nodes that look for objects
// (pets, matting, scene, classification) share one pass of the network through the memo.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "dnn/object_detector.h"
#include "graph/execute_memo.h"

namespace kv {

// Objects of at least minScore, best first, at most maxCount; without a memo the network
// runs for this call alone.
inline std::vector<ObjectDetection> sharedObjects(const ObjectDetector& detector, const cv::Mat& bgr, float minScore, ExecuteMemo* memo,
                                                  size_t maxCount = 100) {
    if (memo == nullptr) return detector.detect(bgr, minScore, maxCount);
    const auto& pass = memo->get<ObjectDetector::Pass>("objects:" + identity(detector.network()) + "@" + imageIdentity(bgr),
                                                       [&] { return detector.run(bgr); });
    return detector.detect(pass, minScore, maxCount);
}

}  // namespace kv
