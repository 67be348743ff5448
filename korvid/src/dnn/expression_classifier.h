// The emotion network (mini-Xception trained on FER-2013, 64 x 64 grey): probabilities of
// seven expressions for one face.
#pragma once

#include <array>
#include <memory>

#include <opencv2/core.hpp>

#include "model/network.h"

namespace kv {

// The network's classes, in its output order.
enum Expression { Angry, Disgust, Fear, Happy, Sad, Surprise, Neutral, kExpressions };

class ExpressionClassifier {
public:
    static const NetworkShape& shape();
    explicit ExpressionClassifier(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // gray: the whole upright image; face: the face box in its pixels.
    std::array<float, kExpressions> classify(const cv::Mat& gray, const cv::Rect& face) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
