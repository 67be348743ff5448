#include "dnn/pose_estimator.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "dnn/letterbox.h"
#include "model/model_bundle.h"
#include "network_declarations.h"

namespace kv {

namespace {

constexpr int kSide = declared::qm_skeleton_single.width;
constexpr int kGrid = 48;              // heatmap cells per side
constexpr float kDistanceBias = 1.8f;  // the network's own: score / (distance in cells + 1.8)
constexpr int kPeakWindow = 5;         // a centre is the maximum of its 5 x 5 cells

// Calibrated on the 37 photos of scripts/quality and testdata/: the second centre is 0.24
// and 0.31 on the two photos with several people, 0.24 on a soccer ball on grass, at most
// 0.16 on the others. MultiPose scores the people of the group photo 0.20 to 0.27, objects
// at most 0.15; the single network's mean key point score is 0.29 to 0.44 on the photos of
// one person (and on the two climbers, where MultiPose finds nobody), at most 0.25 without.
constexpr float kCrowdCentre = 0.2f;
constexpr float kMinMultiScore = 0.18f;
constexpr float kMinSingleScore = 0.27f;
constexpr float kMinBoxPointScore = 0.3f;  // key points that span the single person's box

}  // namespace

const NetworkShape& PoseEstimator::singleShape() {
    using namespace declared::qm_skeleton_single_out;
    static const NetworkShape s = declaredShape(declared::qm_skeleton_single,
                                                {{heatmap, kGrid * kGrid * kPoseKeyPoints},
                                                 {centre, kGrid * kGrid},
                                                 {regress, kGrid * kGrid * 2 * kPoseKeyPoints},
                                                 {offset, kGrid * kGrid * 2 * kPoseKeyPoints},
                                                 {centres, kGrid * kGrid}});
    return s;
}

namespace {

// The second-highest local maximum of the (unweighted) person-centre heatmap.
float secondCentre(const float* centres) {
    float first = 0, second = 0;
    const int r = kPeakWindow / 2;
    for (int y = 0; y < kGrid; ++y) {
        for (int x = 0; x < kGrid; ++x) {
            const float v = centres[y * kGrid + x];
            bool peak = true;
            for (int yy = std::max(0, y - r); peak && yy <= std::min(kGrid - 1, y + r); ++yy) {
                for (int xx = std::max(0, x - r); peak && xx <= std::min(kGrid - 1, x + r); ++xx) peak = centres[yy * kGrid + xx] <= v;
            }
            if (!peak) continue;
            second = std::max(second, std::min(first, v));
            first = std::max(first, v);
        }
    }
    return second;
}

// MoveNet Lightning's person, decoded as the network's own post-processing does: the
// strongest person centre (weighted towards the image centre), its regressed key points,
// each refined to the strongest heatmap cell near it, plus the cell's sub-cell offset. The
// score is the mean key point score, the box that of the key points scoring kMinBoxPointScore.
Pose singlePose(const std::vector<cv::Mat>& outs, const Letterbox& box) {
    // All outputs are NHWC: [1, 48, 48, channels].
    const float* heat = outs[0].ptr<float>();
    const float* centre = outs[1].ptr<float>();
    const float* regress = outs[2].ptr<float>();
    const float* offset = outs[3].ptr<float>();
    int best = 0;
    for (int i = 1; i < kGrid * kGrid; ++i) best = centre[i] > centre[best] ? i : best;
    const int cy = best / kGrid, cx = best % kGrid;
    Pose pose;
    float left = INFINITY, top = INFINITY, right = -INFINITY, bottom = -INFINITY;
    for (size_t k = 0; k < kPoseKeyPoints; ++k) {
        const float* r = regress + (size_t(best) * kPoseKeyPoints + k) * 2;
        const float ry = float(cy) + r[0], rx = float(cx) + r[1];
        int cell = 0;
        float bestWeight = -1;
        for (int y = 0; y < kGrid; ++y) {
            for (int x = 0; x < kGrid; ++x) {
                const float d = std::sqrt((float(y) - ry) * (float(y) - ry) + (float(x) - rx) * (float(x) - rx));
                const float weight = heat[size_t(y * kGrid + x) * kPoseKeyPoints + k] / (d + kDistanceBias);
                if (weight > bestWeight) {
                    bestWeight = weight;
                    cell = y * kGrid + x;
                }
            }
        }
        const float* o = offset + (size_t(cell) * kPoseKeyPoints + k) * 2;
        const float ny = (float(cell / kGrid) + o[0]) / kGrid, nx = (float(cell % kGrid) + o[1]) / kGrid;
        const cv::Point2f p = box.toImage(nx, ny, kSide);
        pose.points[k] = p;
        pose.scores[k] = heat[size_t(cell) * kPoseKeyPoints + k];
        if (pose.scores[k] < kMinBoxPointScore) continue;
        left = std::min(left, p.x), top = std::min(top, p.y), right = std::max(right, p.x), bottom = std::max(bottom, p.y);
    }
    if (right >= left) pose.box = cv::Rect2f(cv::Point2f(left, top), cv::Point2f(right, bottom));
    pose.score = std::accumulate(pose.scores.begin(), pose.scores.end(), 0.f) / kPoseKeyPoints;
    return pose;
}

}  // namespace

PoseEstimator::PoseEstimator(const ModelBlob& blob) {
    const auto parts = bundleParts(blob);
    if (parts.empty()) {
        single_ = loadNetwork({{"single", blob}}, "single", singleShape());
        return;
    }
    if (!parts.count("single") && !parts.count("multi")) {
        throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" holds neither skeleton network");
    }
    if (parts.count("single")) single_ = loadNetwork({{"single", parts.at("single")}}, "single", singleShape());
    if (parts.count("multi")) {
        multi_ = std::make_unique<MoveNetMultiPose>(loadNetwork({{"multi", parts.at("multi")}}, "multi", MoveNetMultiPose::shape()));
    }
}

std::vector<Pose> PoseEstimator::estimate(const cv::Mat& bgr) const {
    const auto several = [&] {
        std::vector<Pose> people = multi_->estimate(bgr);
        people.erase(std::find_if(people.begin(), people.end(), [](const Pose& p) { return p.score < kMinMultiScore; }), people.end());
        return people;
    };
    if (!single_) return several();
    const Letterbox box = letterbox(bgr, declared::qm_skeleton_single);  // the network normalises 0..255 itself
    const std::vector<cv::Mat> outs = single_->forward(box.blob);
    if (multi_ && secondCentre(outs[4].ptr<float>()) >= kCrowdCentre) {
        std::vector<Pose> people = several();
        if (!people.empty()) return people;
    }
    Pose pose = singlePose(outs, box);
    if (pose.score < kMinSingleScore) return {};
    return {pose};
}

std::optional<Pose> PoseEstimator::personIn(const cv::Mat& bgr, const cv::Rect2f& box) const {
    if (!single_) return std::nullopt;
    const cv::Rect2f grown(box.x - kCropMargin * box.width, box.y - kCropMargin * box.height, box.width * (1 + 2 * kCropMargin),
                           box.height * (1 + 2 * kCropMargin));
    const cv::Rect crop = cv::Rect(cv::Point(int(std::floor(grown.x)), int(std::floor(grown.y))),
                                   cv::Point(int(std::ceil(grown.br().x)), int(std::ceil(grown.br().y)))) &
                          cv::Rect(0, 0, bgr.cols, bgr.rows);
    if (crop.width < 2 || crop.height < 2) return std::nullopt;
    const Letterbox fitted = letterbox(bgr(crop), declared::qm_skeleton_single);
    Pose pose = singlePose(single_->forward(fitted.blob), fitted);
    const cv::Point2f shift(float(crop.x), float(crop.y));
    for (cv::Point2f& p : pose.points) p += shift;
    if (!pose.box.empty()) pose.box += shift;
    return pose;
}

}  // namespace kv
