#include "dnn/face_suppression.h"

#include <algorithm>
#include <numeric>

namespace kv {

namespace {
constexpr float kOverlap = 0.3f;  // IoU above which the weaker of two faces is dropped
constexpr float kInside = 0.6f;   // share of the smaller face inside the other above which it is dropped
}  // namespace

std::vector<FaceDetection> suppressOverlappingFaces(const std::vector<FaceDetection>& found) {
    std::vector<size_t> order(found.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return found[a].score > found[b].score; });
    std::vector<FaceDetection> faces;
    for (size_t i : order) {
        const cv::Rect2f& r = found[i].box;
        const bool overlaps = std::any_of(faces.begin(), faces.end(), [&](const FaceDetection& kept) {
            const float common = (r & kept.box).area();
            return common > kOverlap * (r.area() + kept.box.area() - common) || common > kInside * std::min(r.area(), kept.box.area());
        });
        if (!overlaps) faces.push_back(found[i]);
    }
    return faces;
}

}  // namespace kv
