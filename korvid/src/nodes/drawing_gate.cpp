#include "nodes/drawing_gate.h"

#include "model/model_bundle.h"
#include "nodes/content_cues.h"
#include "nodes/shared_objects.h"

namespace kv {

std::unique_ptr<ContentClassifier> drawingClassifier(const ModelBlob& blob) {
    const auto parts = bundleParts(blob);
    const auto it = parts.find("drawing");
    if (it == parts.end()) return nullptr;
    return std::make_unique<ContentClassifier>(loadNetwork({{"drawing", it->second}}, "drawing", ContentClassifier::shape()));
}

bool standsOnPicture(const ContentClassifier* classifier, const cv::Mat& bgr, ExecuteMemo* memo, float detectionScore,
                     float strongScore) {
    if (classifier == nullptr || detectionScore >= strongScore) return true;
    return standsOnPicture(sharedContent(*classifier, bgr, memo), detectionScore, strongScore);
}

}  // namespace kv
