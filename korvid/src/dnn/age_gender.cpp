#include "dnn/age_gender.h"

#include <algorithm>

#include <opencv2/dnn.hpp>

namespace kv {

const NetworkShape& AgeGenderEstimator::shape() {
    // gender: softmax over (male, female)
    using namespace declared::face_age_gender_out;
    static const NetworkShape s = declaredShape(declared::face_age_gender, {{age, 1}, {gender, 2}});
    return s;
}

AgeGender AgeGenderEstimator::estimate(const cv::Mat& bgr, const FacePoints& face) const {
    const cv::Mat blob = inputBlob(declared::face_age_gender, paddedFaceCrop(bgr, face, kSide));
    const std::vector<cv::Mat> outs = network_->forward(blob);
    AgeGender result;
    // A regression: clamped to ages a person can have.
    result.age = std::clamp(outs[0].ptr<float>()[0], 0.f, 120.f);
    result.male = std::clamp(outs[1].ptr<float>()[0], 0.f, 1.f);
    return result;
}

}  // namespace kv
