#include "dnn/face_detector.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "dnn/face_suppression.h"
#include "dnn/letterbox.h"
#include "network_declarations.h"

namespace kv {

namespace {

constexpr int kSide = declared::qm_face.width;
// Images whose long side reaches kMinTiledSide are searched in tiles as well, the smallest
// kMinTile pixels wide.
constexpr int kMinTiledSide = 3 * kSide;
constexpr int kMinTile = 192;

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

const NetworkShape& FaceDetector::shape() {
    using namespace declared::qm_face_out;
    static const NetworkShape s = declaredShape(declared::qm_face, {{scores16, 512}, {boxes16, 512 * 16}, {scores8, 384}, {boxes8, 384 * 16}});
    return s;
}

void FaceDetector::search(const cv::Mat& bgr, const cv::Rect& region, float minScore, float minTileScore,
                          std::vector<FaceDetection>& found) const {
    const Letterbox box = letterbox(bgr(region), declared::qm_face);
    const std::vector<cv::Mat> outs = network_->forward(box.blob);
    const cv::Point2f origin(static_cast<float>(region.x), static_cast<float>(region.y));
    // A tile's face that crosses one of its inner edges is cut: the neighbouring tile, which
    // overlaps it, holds that face whole.
    const bool whole = region.size() == bgr.size();
    const cv::Rect2f inner(origin, cv::Size2f(region.size()));
    auto cut = [&](const cv::Rect2f& r) {
        return !whole && ((region.x > 0 && r.x < inner.x) || (region.y > 0 && r.y < inner.y) ||
                          (region.br().x < bgr.cols && r.br().x > inner.br().x) ||
                          (region.br().y < bgr.rows && r.br().y > inner.br().y));
    };
    // The faces tiles are for, small enough to lie whole in one of them, count from minTileScore.
    const float smallSide = static_cast<float>(std::min(region.width, region.height)) / 4;
    const float lowest = whole ? minScore : std::min(minScore, minTileScore);
    size_t anchor = 0;
    for (size_t part = 0; part < 2; ++part) {
        const float* s = outs[part * 2].ptr<float>();
        const float* r = outs[part * 2 + 1].ptr<float>();
        const size_t count = outs[part * 2].total();
        for (size_t i = 0; i < count; ++i, ++anchor) {
            const float score = sigmoid(s[i]);
            if (!(score >= lowest)) continue;
            const float* v = r + i * 16;
            const cv::Point2f a = anchors()[anchor];
            auto point = [&](float dx, float dy) { return box.toImage(a.x + dx / kSide, a.y + dy / kSide, kSide) + origin; };
            FaceDetection d;
            const cv::Point2f c = point(v[0], v[1]);
            const float w = static_cast<float>(v[2] / box.scale), h = static_cast<float>(v[3] / box.scale);
            d.box = cv::Rect2f(c.x - w / 2, c.y - h / 2, w, h);
            d.score = score;
            for (int k = 0; k < 6; ++k) d.keyPoints[static_cast<size_t>(k)] = point(v[4 + 2 * k], v[5 + 2 * k]);
            if (!(w > 0 && h > 0) || cut(d.box)) continue;
            if (score < minScore && !(w <= smallSide && h <= smallSide)) continue;
            found.push_back(d);
        }
    }
}

std::vector<cv::Rect> FaceDetector::regions(cv::Size image) {
    std::vector<cv::Rect> all{cv::Rect(cv::Point(), image)};
    // One level of square tiles, overlapping by a quarter of their side (faces up to that
    // size are whole in some tile; larger ones are found in the whole image), as small as
    // kMinTile while at most maxTiles() of them cover the image, larger otherwise: a huge
    // image is searched at coarser tiles, never with more passes.
    const int longSide = std::max(image.width, image.height);
    if (longSide < kMinTiledSide) return all;
    auto starts = [](int length, int side) {
        std::vector<int> at{0};
        if (length <= side) return at;
        const int stride = side * 3 / 4;
        const int n = (length - side + stride - 1) / stride;  // steps after the first tile
        for (int i = 1; i <= n; ++i) at.push_back(static_cast<int>(int64_t(length - side) * i / n));
        return at;
    };
    int side = kMinTile;
    while (starts(image.width, side).size() * starts(image.height, side).size() > maxTiles()) side += side / 4;
    for (int y : starts(image.height, side))
        for (int x : starts(image.width, side)) all.emplace_back(x, y, std::min(side, image.width), std::min(side, image.height));
    return all;
}

std::vector<FaceDetection> FaceDetector::detect(const cv::Mat& bgr, float minScore, float minTileScore) const {
    std::vector<FaceDetection> found;
    // found is in the fixed order of regions and anchors, which breaks ties between scores.
    for (const cv::Rect& region : regions(bgr.size())) search(bgr, region, minScore, minTileScore, found);
    return suppressOverlappingFaces(found);
}

}  // namespace kv
