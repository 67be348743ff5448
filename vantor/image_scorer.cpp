#include "vantor/image_scorer.h"

#include "Vantor/ImageQuality.h"

namespace VQFeature {

ImageScorer::ImageScorer(const std::string& modelPath, int option)
    : modelPath(modelPath), option(option), handle_(nullptr), score_(0.f) {}

// Does not call destroy(): the host does that before deleting the scorer.
ImageScorer::~ImageScorer() = default;

int ImageScorer::init() {
    vtx_ai_image_quality_enhancement_vida_param param{};
    param.model_path = modelPath.c_str();
    param.reserved0 = 0;
    param.option = option;
    param.mode = 1;
    param.reserved1 = 0;
    param.scale = 1.0f;
    param.reserved2 = 0;
    param.reserved3 = 0;
    // create stores the new handle in our slot.
    return vtx_ai_image_quality_enhancement_vida_create(&handle_, &param);
}

int ImageScorer::scoreImage(const std::string& imagePath, int a, int b) {
    if (handle_ == nullptr) {
        return -1;
    }
    return vtx_ai_image_quality_enhancement_vida_process(handle_, imagePath.c_str(), a, b, &score_);
}

float ImageScorer::getScore() { return score_; }

int ImageScorer::destroy() {
    if (handle_ == nullptr) {
        return 0;
    }
    const int code = vtx_ai_image_quality_enhancement_vida_destory(handle_);
    handle_ = nullptr;
    return code;
}

}  // namespace VQFeature
