// The image-quality API of the open framework: BRISQUE (OpenCV quality module). The
// model is a YAML file holding both the SVM ("opencv_ml_svm") and the feature range
// ("range"); without a usable one the Debian opencv-data pair is the built-in default.
#include "Vantor/ImageQuality.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include <opencv2/core/ocl.hpp>
#include <opencv2/core/persistence.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/ml.hpp>
#include <opencv2/quality/qualitybrisque.hpp>

#ifndef KORVID_BRISQUE_MODEL
#define KORVID_BRISQUE_MODEL "/usr/share/opencv4/quality/brisque_model_live.yml"
#endif
#ifndef KORVID_BRISQUE_RANGE
#define KORVID_BRISQUE_RANGE "/usr/share/opencv4/quality/brisque_range_live.yml"
#endif

namespace {

struct QualityScorer {
    cv::Ptr<cv::quality::QualityBRISQUE> brisque;
};

cv::Ptr<cv::quality::QualityBRISQUE> loadBrisque(const std::string& modelPath, const std::string& rangePath) {
    try {
        cv::FileStorage model(modelPath, cv::FileStorage::READ);
        cv::FileStorage range(rangePath, cv::FileStorage::READ);
        if (!model.isOpened() || !range.isOpened()) return nullptr;
        cv::FileNode svmNode = model["opencv_ml_svm"];
        cv::Mat rangeMat = range["range"].mat();
        if (svmNode.empty() || rangeMat.empty()) return nullptr;
        cv::Ptr<cv::ml::SVM> svm = cv::ml::SVM::create();
        svm->read(svmNode);
        if (!svm->isTrained() || svm->getVarCount() != rangeMat.cols) return nullptr;
        return cv::quality::QualityBRISQUE::create(svm, rangeMat);
    } catch (const cv::Exception&) {
        return nullptr;
    }
}

}  // namespace

extern "C" {

int vtx_ai_image_quality_enhancement_vida_create(void** handle, const vtx_ai_image_quality_enhancement_vida_param* param) {
    if (handle == nullptr) return -1;
    *handle = nullptr;
    const std::string path = param != nullptr && param->model_path != nullptr ? param->model_path : "";
    cv::Ptr<cv::quality::QualityBRISQUE> brisque;
    if (!path.empty()) brisque = loadBrisque(path, path);
    if (brisque.empty()) brisque = loadBrisque(KORVID_BRISQUE_MODEL, KORVID_BRISQUE_RANGE);
    if (brisque.empty()) return 5;  // INVALID_MODEL: no quality model at all
    *handle = new QualityScorer{brisque};
    return 0;
}

// BRISQUE gives about 0 (pristine) to 100 (very distorted); the score is 1 - value/100,
// clamped to [0, 1]. The two integers are accepted and unused.
int vtx_ai_image_quality_enhancement_vida_process(void* handle, const char* image_path, int, int, float* score) {
    if (handle == nullptr || image_path == nullptr || score == nullptr) return -1;
    cv::ocl::setUseOpenCL(false);  // CPU only, as the algorithm system
    cv::Mat image;
    try {
        image = cv::imread(image_path, cv::IMREAD_COLOR);
    } catch (const cv::Exception&) {
        return 8;
    }
    if (image.empty()) return 8;  // INVALID_FORMAT: unreadable or not an image
    try {
        const double value = static_cast<QualityScorer*>(handle)->brisque->compute(image)[0];
        *score = static_cast<float>(std::min(1.0, std::max(0.0, 1.0 - value / 100.0)));
    } catch (const cv::Exception&) {
        return 9;
    }
    return 0;
}

int vtx_ai_image_quality_enhancement_vida_destory(void* handle) {
    delete static_cast<QualityScorer*>(handle);
    return 0;
}

}  // extern "C"
