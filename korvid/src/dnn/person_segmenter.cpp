#include "person_segmenter.h"

#include "letterbox.h"

namespace kv {

namespace {

constexpr int kSide = 256;

}  // namespace

const NetworkShape& PersonSegmenter::shape() {
    static const NetworkShape s{{1, 3, kSide, kSide}, {{"mask", size_t(kSide) * kSide}}};
    return s;
}

cv::Mat PersonSegmenter::segment(const cv::Mat& bgr) const {
    const Letterbox box = letterbox(bgr, kSide, 1.0 / 255, 0.0);
    const std::vector<cv::Mat> outs = network_->forward(box.blob);
    const cv::Mat mask(kSide, kSide, CV_32F, const_cast<float*>(outs[0].ptr<float>()));
    return mask(box.area).clone();
}

}  // namespace kv
