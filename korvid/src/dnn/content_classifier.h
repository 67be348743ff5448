// nsfwjs's MobileNetV2 classifier (224 x 224 RGB, 0..1, the whole image squeezed to the
// square as nsfwjs feeds it): the probabilities of five kinds of picture. Its drawing and
// hentai classes tell drawings from photos; porn, hentai and sexy measure sensitive content.
#pragma once

#include <array>
#include <memory>

#include <opencv2/core.hpp>

#include "model/network.h"

namespace kv {

// The network's classes, in its output order.
enum ContentClass { Drawing, Hentai, Neutral, Porn, Sexy, kContentClasses };
using ContentScores = std::array<float, kContentClasses>;

class ContentClassifier {
public:
    static const NetworkShape& shape();
    explicit ContentClassifier(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    ContentScores classify(const cv::Mat& bgr) const;
    const Network* network() const { return network_.get(); }

private:
    std::shared_ptr<Network> network_;
};

// How much of the picture is drawn rather than photographed: the drawing and hentai classes.
inline float drawnShare(const ContentScores& s) { return s[Drawing] + s[Hentai]; }

}  // namespace kv
