#include "face_detector.h"

#include <algorithm>
#include <cmath>

#include <opencv2/dnn.hpp>

#include "letterbox.h"

namespace kv {

namespace {

constexpr int kSide = 256;
constexpr float kOverlap = 0.3f;  // IoU above which the weaker of two faces is dropped

// Anchor centres in 0..1: 16 x 16 cells with 2 anchors each, then 8 x 8 cells with 6 each,
// the order of the network's two output pairs.
const std::vector<cv::Point2f>& anchors() {
    static const std::vector<cv::Point2f> all = [] {
        std::vector<cv::Point2f> a;
        for (auto [grid, perCell] : {std::pair{16, 2}, std::pair{8, 6}}) {
            for (int y = 0; y < grid; ++y)
                for (int x = 0; x < grid; ++x)
                    for (int k = 0; k < perCell; ++k) a.emplace_back((x + 0.5f) / grid, (y + 0.5f) / grid);
        }
        return a;
    }();
    return all;
}

float sigmoid(float v) { return 1.f / (1.f + std::exp(-std::clamp(v, -100.f, 100.f))); }

}  // namespace

const NetworkSpec& FaceDetector::spec() {
    static const NetworkSpec s{{1, 3, kSide, kSide}, {{"scores16", 512}, {"boxes16", 512 * 16}, {"scores8", 384}, {"boxes8", 384 * 16}}};
    return s;
}

std::vector<FaceDetection> FaceDetector::detect(const cv::Mat& bgr, float minScore) const {
    const Letterbox box = letterbox(bgr, kSide, 1 / 127.5, -1.0);
    const std::vector<cv::Mat> outs = network_->forward(box.blob);
    std::vector<FaceDetection> found;
    std::vector<cv::Rect2d> rects;
    std::vector<float> scores;
    size_t anchor = 0;
    for (size_t part = 0; part < 2; ++part) {
        const float* s = outs[part * 2].ptr<float>();
        const float* r = outs[part * 2 + 1].ptr<float>();
        const size_t count = outs[part * 2].total();
        for (size_t i = 0; i < count; ++i, ++anchor) {
            const float score = sigmoid(s[i]);
            if (!(score >= minScore)) continue;
            const float* v = r + i * 16;
            const cv::Point2f a = anchors()[anchor];
            auto point = [&](float dx, float dy) { return box.toImage(a.x + dx / kSide, a.y + dy / kSide, kSide); };
            FaceDetection d;
            const cv::Point2f c = point(v[0], v[1]);
            const float w = static_cast<float>(v[2] / box.scale), h = static_cast<float>(v[3] / box.scale);
            d.box = cv::Rect2f(c.x - w / 2, c.y - h / 2, w, h);
            d.score = score;
            for (int k = 0; k < 6; ++k) d.keyPoints[static_cast<size_t>(k)] = point(v[4 + 2 * k], v[5 + 2 * k]);
            if (!(w > 0 && h > 0)) continue;
            found.push_back(d);
            rects.emplace_back(d.box);
            scores.push_back(score);
        }
    }
    std::vector<int> keep;
    cv::dnn::NMSBoxes(rects, scores, minScore, kOverlap, keep);
    std::vector<FaceDetection> faces;
    for (int i : keep) faces.push_back(found[static_cast<size_t>(i)]);
    // NMSBoxes orders by score; equal scores keep their anchor order (stable), so the result
    // is the same for the same image.
    std::stable_sort(faces.begin(), faces.end(), [](const auto& a, const auto& b) { return a.score > b.score; });
    return faces;
}

}  // namespace kv
