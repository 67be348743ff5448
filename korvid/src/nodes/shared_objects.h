// Network passes the nodes of an execute share through the memo: the object detector's
// objects (pets, matting, scene, classification), the content classifier's scores
// (sensitive content, and drawings for the nodes that keep detections off them) and the
// confirmed people (scene labels, sensitive content).
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "dnn/content_classifier.h"
#include "dnn/object_detector.h"
#include "dnn/pose_estimator.h"
#include "graph/execute_memo.h"
#include "nodes/body_check.h"
#include "nodes/person_evidence.h"

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

// The people cue of the image (person_evidence.h): the detector's persons that a body
// confirms, found once per execute for every node that asks (scene labels, sensitive
// content, classification). The body network is asked for only when a person is strong
// enough to be checked; checks null or without a body network: no person is confirmed.
inline double sharedPeopleCue(const ObjectDetector& detector, BodyCheck* checks, const cv::Mat& bgr, ExecuteMemo* memo) {
    const std::vector<ObjectDetection> objects = sharedObjects(detector, bgr, kMinPersonScore, memo);
    const PoseEstimator* bodies = checks != nullptr && needsBodyCheck(objects) ? checks->bodies() : nullptr;
    const auto find = [&] {
        BodyFinder bodyIn;
        if (bodies != nullptr && bodies->hasSingle()) bodyIn = [&](const cv::Rect2f& box) { return bodies->personIn(bgr, box); };
        return peopleCue(objects, bodyIn);
    };
    if (memo == nullptr) return find();
    const std::string key = "people:" + identity(detector.network()) + ":" + identity(bodies ? bodies->singleNetwork() : nullptr) + "@" +
                            imageIdentity(bgr);
    return memo->get<double>(key, find);
}

}  // namespace kv
