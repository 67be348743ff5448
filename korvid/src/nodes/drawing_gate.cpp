#include "drawing_gate.h"

#include "content_cues.h"
#include "model_bundle.h"

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
    return standsOnPicture(classifier->classify(bgr, memo), detectionScore, strongScore);
}

}  // namespace kv
