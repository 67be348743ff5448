// Network passes the nodes of an execute share through the memo: the object detector's
// objects (pets, matting, scene, classification) and the content classifier's scores
// (sensitive content, and drawings for the nodes that keep detections off them).
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "dnn/content_classifier.h"
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

// The content scores of the image, computed once per execute with a memo.
inline ContentScores sharedContent(const ContentClassifier& classifier, const cv::Mat& bgr, ExecuteMemo* memo) {
    if (memo == nullptr) return classifier.classify(bgr);
    return memo->get<ContentScores>("content:" + identity(classifier.network()) + "@" + imageIdentity(bgr),
                                    [&] { return classifier.classify(bgr); });
}

}  // namespace kv
