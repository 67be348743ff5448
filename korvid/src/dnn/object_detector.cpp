#include "dnn/object_detector.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/dnn.hpp>

#include "network_declarations.h"

namespace kv {

namespace {

constexpr int kSide = declared::qm_object.width;
constexpr int kClasses = 80;
constexpr int kBins = 11;           // each box side is a distribution over 0..10 strides
constexpr float kOverlap = 0.5f;    // IoU above which the weaker box of a class is dropped
constexpr std::array<int, 3> kStrides = {8, 16, 32};
constexpr double kClassShift = 1e6;  // beyond any box of a 16384-pixel image

// The expected distance (in strides) of one box side: softmax over its bins.
float expectedDistance(const float* logits) {
    const float top = *std::max_element(logits, logits + kBins);
    float sum = 0, weighted = 0;
    for (int k = 0; k < kBins; ++k) {
        const float e = std::exp(logits[k] - top);
        sum += e;
        weighted += e * static_cast<float>(k);
    }
    return weighted / sum;
}

}  // namespace

const NetworkShape& ObjectDetector::shape() {
    static const NetworkShape s = [] {
        using namespace declared::qm_object_out;
        const std::array<std::pair<const char*, const char*>, 3> names = {{{scores8, boxes8}, {scores16, boxes16}, {scores32, boxes32}}};
        NetworkShape n = declaredShape(declared::qm_object, {});
        for (size_t level = 0; level < kStrides.size(); ++level) {
            const size_t cells = size_t(kSide / kStrides[level]) * size_t(kSide / kStrides[level]);
            n.outputs.emplace_back(names[level].first, cells * kClasses);
            n.outputs.emplace_back(names[level].second, cells * 4 * kBins);
        }
        return n;
    }();
    return s;
}

ObjectDetector::Pass ObjectDetector::run(const cv::Mat& bgr) const {
    Pass pass;
    pass.box = letterbox(bgr, declared::qm_object);
    // Network::forward hands out fresh matrices, which the pass keeps as they are.
    pass.outs = network_->forward(pass.box.blob);
    pass.box.blob.release();
    for (size_t level = 0; level < kStrides.size(); ++level) {
        const int grid = kSide / kStrides[level];
        const float* s = pass.outs[level * 2].ptr<float>();
        for (int cell = 0; cell < grid * grid; ++cell) {
            const float* cs = s + size_t(cell) * kClasses;
            const int best = static_cast<int>(std::max_element(cs, cs + kClasses) - cs);
            pass.best.emplace_back(best, cs[best]);
        }
    }
    return pass;
}

std::vector<ObjectDetection> ObjectDetector::detect(const Pass& pass, float minScore, size_t maxCount) const {
    const Letterbox& box = pass.box;
    const std::vector<cv::Mat>& outs = pass.outs;
    std::vector<ObjectDetection> found;
    std::vector<cv::Rect2d> rects;
    std::vector<float> scores;
    auto cellBest = pass.best.begin();
    for (size_t level = 0; level < kStrides.size(); ++level) {
        const int stride = kStrides[level], grid = kSide / stride;
        const float* r = outs[level * 2 + 1].ptr<float>();
        for (int cell = 0; cell < grid * grid; ++cell, ++cellBest) {
            const auto [best, score] = *cellBest;
            if (!(score >= minScore)) continue;
            // Cell centre and the four distances (left, top, right, bottom) in network pixels.
            const float cx = (static_cast<float>(cell % grid) + 0.5f) * static_cast<float>(stride);
            const float cy = (static_cast<float>(cell / grid) + 0.5f) * static_cast<float>(stride);
            std::array<float, 4> d{};
            for (size_t k = 0; k < 4; ++k) d[k] = expectedDistance(r + size_t(cell) * 4 * kBins + k * kBins) * static_cast<float>(stride);
            const cv::Point2f tl = box.toImage((cx - d[0]) / kSide, (cy - d[1]) / kSide, kSide);
            const cv::Point2f br = box.toImage((cx + d[2]) / kSide, (cy + d[3]) / kSide, kSide);
            const cv::Rect2f rect(tl, br);
            if (!(rect.width > 0 && rect.height > 0)) continue;
            found.push_back({rect, best, score});
            // Boxes of different classes never overlap once shifted apart by class: one
            // suppression pass is then per class.
            rects.emplace_back(rect.x + best * kClassShift, rect.y, rect.width, rect.height);
            scores.push_back(score);
        }
    }
    std::vector<int> keep;
    cv::dnn::NMSBoxes(rects, scores, minScore, kOverlap, keep);
    std::vector<ObjectDetection> objects;
    for (int i : keep) objects.push_back(found[static_cast<size_t>(i)]);
    // Equal scores keep their cell order (stable): the same image gives the same list.
    std::stable_sort(objects.begin(), objects.end(), [](const auto& a, const auto& b) { return a.score > b.score; });
    if (objects.size() > maxCount) objects.resize(maxCount);
    return objects;
}

}  // namespace kv
