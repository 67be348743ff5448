// The content classifier a node carries in its model bundle (part "drawing") to keep
// animals and people off drawings unless strongly detected (content_cues.h).
#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "dnn/content_classifier.h"
#include "graph/execute_memo.h"
#include "model/model_blob.h"

namespace kv {

// The "drawing" part of a bundle as a classifier; null when the model has none (the node
// then keeps every detection).
std::unique_ptr<ContentClassifier> drawingClassifier(const ModelBlob& blob);

// Whether a detection of detectionScore stands on the image: always without a classifier or
// at strongScore and above; otherwise only when the image is no drawing. The classifier runs
// once per image for all the nodes of an execute (memo).
bool standsOnPicture(const ContentClassifier* classifier, const cv::Mat& bgr, ExecuteMemo* memo, float detectionScore,
                     float strongScore);

}  // namespace kv
