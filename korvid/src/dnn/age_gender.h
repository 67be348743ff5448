// face-api's age and gender network (a small Xception on 112 x 112 RGB, trained and
// published by face-api's author under the MIT licence): age in years and the probability
// that the face is male, on the face crop face-api gives it (paddedFaceCrop, face_chip.h).
#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "dnn/face_chip.h"
#include "model/network.h"
#include "network_declarations.h"

namespace kv {

struct AgeGender {
    float age = 0;   // years, as the network regresses it
    float male = 0;  // probability 0..1
};

class AgeGenderEstimator {
public:
    static constexpr int kSide = declared::face_age_gender.width;
    static const NetworkShape& shape();
    explicit AgeGenderEstimator(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    AgeGender estimate(const cv::Mat& bgr, const FacePoints& face) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
