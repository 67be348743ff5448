#include "dnn/person_segmenter.h"

#include "dnn/letterbox.h"
#include "network_declarations.h"

namespace kv {

namespace {

constexpr int kSide = declared::qm_selfie.width;

}  // namespace

const NetworkShape& PersonSegmenter::shape() {
    static const NetworkShape s = declaredShape(declared::qm_selfie, {{declared::qm_selfie_out::mask, size_t(kSide) * kSide}});
    return s;
}

cv::Mat PersonSegmenter::segment(const cv::Mat& bgr) const {
    const Letterbox box = letterbox(bgr, declared::qm_selfie);
    const std::vector<cv::Mat> outs = network_->forward(box.blob);
    const cv::Mat mask(kSide, kSide, CV_32F, const_cast<float*>(outs[0].ptr<float>()));
    return mask(box.area).clone();
}

}  // namespace kv
