#include "pose_estimator.h"

#include <cmath>
#include <numeric>

#include "letterbox.h"

namespace kv {

namespace {

constexpr int kSide = 192;
constexpr int kGrid = 48;           // heatmap cells per side
constexpr float kDistanceBias = 1.8f;  // the network's own: score / (distance in cells + 1.8)

}  // namespace

float Pose::meanScore() const { return std::accumulate(scores.begin(), scores.end(), 0.f) / kPoseKeyPoints; }

const NetworkShape& PoseEstimator::shape() {
    static const NetworkShape s{{1, 3, kSide, kSide},
                               {{"heatmap", kGrid * kGrid * kPoseKeyPoints},
                                {"centre", kGrid * kGrid},
                                {"regress", kGrid * kGrid * 2 * kPoseKeyPoints},
                                {"offset", kGrid * kGrid * 2 * kPoseKeyPoints}}};
    return s;
}

Pose PoseEstimator::estimate(const cv::Mat& bgr) const {
    const Letterbox box = letterbox(bgr, kSide, 1.0, 0.0);  // the network normalises 0..255 itself
    const std::vector<cv::Mat> outs = network_->forward(box.blob);
    // All outputs are NHWC: [1, 48, 48, channels].
    const float* heat = outs[0].ptr<float>();
    const float* centre = outs[1].ptr<float>();
    const float* regress = outs[2].ptr<float>();
    const float* offset = outs[3].ptr<float>();
    int best = 0;
    for (int i = 1; i < kGrid * kGrid; ++i) best = centre[i] > centre[best] ? i : best;
    const int cy = best / kGrid, cx = best % kGrid;
    Pose pose;
    pose.centreScore = centre[best];
    for (int k = 0; k < kPoseKeyPoints; ++k) {
        const float* r = regress + (best * kPoseKeyPoints + k) * 2;
        const float ry = cy + r[0], rx = cx + r[1];
        int cell = 0;
        float bestWeight = -1;
        for (int y = 0; y < kGrid; ++y) {
            for (int x = 0; x < kGrid; ++x) {
                const float d = std::sqrt((y - ry) * (y - ry) + (x - rx) * (x - rx));
                const float weight = heat[(y * kGrid + x) * kPoseKeyPoints + k] / (d + kDistanceBias);
                if (weight > bestWeight) {
                    bestWeight = weight;
                    cell = y * kGrid + x;
                }
            }
        }
        const float* o = offset + (cell * kPoseKeyPoints + k) * 2;
        const float ny = (cell / kGrid + o[0]) / kGrid, nx = (cell % kGrid + o[1]) / kGrid;
        pose.points[static_cast<size_t>(k)] = box.toImage(nx, ny, kSide);
        pose.scores[static_cast<size_t>(k)] = heat[cell * kPoseKeyPoints + k];
    }
    return pose;
}

}  // namespace kv
