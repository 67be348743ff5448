#include "dnn/content_classifier.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "network_declarations.h"

namespace kv {

namespace {

constexpr auto& kInput = declared::qm_nsfw;

ContentScores runNetwork(Network& network, const cv::Mat& bgr) {
    // nsfwjs stretches the whole image to the square (no letterbox); area averaging on the
    // way down keeps fine detail from aliasing.
    cv::Mat resized;
    const bool shrinking = bgr.cols >= kInput.width && bgr.rows >= kInput.height;
    cv::resize(bgr, resized, cv::Size(kInput.width, kInput.height), 0, 0, shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
    const cv::Mat probs = network.forward(inputBlob(kInput, resized))[0];
    ContentScores out{};
    std::copy(probs.ptr<float>(), probs.ptr<float>() + kContentClasses, out.begin());
    return out;
}

}  // namespace

const NetworkShape& ContentClassifier::shape() {
    static const NetworkShape s = declaredShape(kInput, {{declared::qm_nsfw_out::probs, kContentClasses}});
    return s;
}

ContentScores ContentClassifier::classify(const cv::Mat& bgr) const { return runNetwork(*network_, bgr); }

}  // namespace kv
