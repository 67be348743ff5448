#include "dnn/movenet_multipose.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "dnn/letterbox.h"
#include "network_declarations.h"

namespace kv {

namespace {

// The network takes any multiple of 32; 256 is its exported default. At 192 it loses the
// group photo of the quality set and scores objects (a fish, a gamepad) as people.
constexpr int kSide = declared::qm_skeleton_multi.width;
constexpr int kStride = 4;
constexpr int kGrid = kSide / kStride;  // cells per side of every head
constexpr int kCells = kGrid * kGrid;
constexpr int kCandidates = 6;          // the network's top-k of person centres
constexpr int kPeakWindow = 5;          // a centre is the maximum of its 5 x 5 cells
constexpr float kPeakTolerance = 1.0132789611816406e-06f;  // the network's own test of "is the maximum"
// The network's Gaussian weight of a key point cell: exp(-squared distance / (0.3 * grid)).
constexpr float kSpread = 0.300048828125f * kGrid;
// Key points above this count in the person score (the network's own, as stored: float16).
constexpr float kKeyPointFloor = 0.126953125f;

struct Heads {
    const float* centre;     // [grid, grid, 1]
    const float* heat;       // [grid, grid, 17]
    const float* regress;    // [grid, grid, 17 * (dy, dx)]
    const float* offset;     // [grid, grid, 17 * (dy, dx)]
    const float* boxScale;   // [grid, grid, (height, width)]
    const float* boxOffset;  // [grid, grid, (dy, dx)]
};

// The strongest local maxima of the centre heatmap, cell indices, ties to the lower index.
std::vector<int> centrePeaks(const float* centre) {
    std::vector<float> peak(kCells);
    const int r = kPeakWindow / 2;
    for (int y = 0; y < kGrid; ++y) {
        for (int x = 0; x < kGrid; ++x) {
            float m = centre[y * kGrid + x];
            for (int yy = std::max(0, y - r); yy <= std::min(kGrid - 1, y + r); ++yy) {
                for (int xx = std::max(0, x - r); xx <= std::min(kGrid - 1, x + r); ++xx) m = std::max(m, centre[yy * kGrid + xx]);
            }
            const float v = centre[y * kGrid + x];
            peak[static_cast<size_t>(y * kGrid + x)] = std::fabs(v - m) < kPeakTolerance ? v : 0.f;
        }
    }
    std::vector<int> order(kCells);
    std::iota(order.begin(), order.end(), 0);
    std::partial_sort(order.begin(), order.begin() + kCandidates, order.end(), [&](int a, int b) {
        return peak[size_t(a)] != peak[size_t(b)] ? peak[size_t(a)] > peak[size_t(b)] : a < b;
    });
    order.resize(kCandidates);
    return order;
}

// One candidate: its box (grid units, clipped to the grid) and regressed key points.
struct Candidate {
    float centreScore = 0;
    float top = 0, left = 0, bottom = 0, right = 0;
    // Per key point, the Gaussian weights of each row and each column.
    std::array<std::array<float, kGrid>, kPoseKeyPoints> rowWeight{}, colWeight{};
    bool inside(int y, int x) const { return y >= top && y < bottom && x >= left && x < right; }
};

Candidate candidate(const Heads& h, int cell) {
    Candidate c;
    const int cy = cell / kGrid, cx = cell % kGrid;
    c.centreScore = h.centre[cell];
    const float height = std::max(h.boxScale[cell * 2], 0.f), width = std::max(h.boxScale[cell * 2 + 1], 0.f);
    const float y = float(cy) + h.boxOffset[cell * 2], x = float(cx) + h.boxOffset[cell * 2 + 1];
    c.top = std::clamp(y - height / 2, 0.f, float(kGrid));
    c.bottom = std::clamp(y + height / 2, 0.f, float(kGrid));
    c.left = std::clamp(x - width / 2, 0.f, float(kGrid));
    c.right = std::clamp(x + width / 2, 0.f, float(kGrid));
    for (size_t k = 0; k < kPoseKeyPoints; ++k) {
        const float* r = h.regress + (size_t(cell) * kPoseKeyPoints + k) * 2;
        const float ry = float(cy) + r[0], rx = float(cx) + r[1];
        for (int i = 0; i < kGrid; ++i) {
            c.rowWeight[k][size_t(i)] = std::exp(-(float(i) - ry) * (float(i) - ry) / kSpread);
            c.colWeight[k][size_t(i)] = std::exp(-(float(i) - rx) * (float(i) - rx) / kSpread);
        }
    }
    return c;
}

float weight(const Heads& h, const Candidate& c, size_t k, int y, int x) {
    if (!c.inside(y, x)) return 0.f;
    return h.heat[size_t(y * kGrid + x) * kPoseKeyPoints + k] * c.rowWeight[k][size_t(y)] * c.colWeight[k][size_t(x)];
}

}  // namespace

const NetworkShape& MoveNetMultiPose::shape() {
    using namespace declared::qm_skeleton_multi_out;
    static const NetworkShape s = declaredShape(declared::qm_skeleton_multi,
                                                {{centre, kCells},
                                                 {heatmap, kCells * kPoseKeyPoints},
                                                 {regress, kCells * 2 * kPoseKeyPoints},
                                                 {offset, kCells * 2 * kPoseKeyPoints},
                                                 {box_scale, kCells * 2},
                                                 {box_offset, kCells * 2}});
    return s;
}

std::vector<Pose> MoveNetMultiPose::estimate(const cv::Mat& bgr) const {
    // The network's own input scaling (value / 127.5 - 1, its divisor stored as float16), cut
    // from the graph and declared in networks.json.
    const Letterbox box = letterbox(bgr, declared::qm_skeleton_multi);
    const std::vector<cv::Mat> outs = network_->forward(box.blob);
    // All outputs are NHWC: [1, grid, grid, channels].
    const Heads h{outs[0].ptr<float>(), outs[1].ptr<float>(), outs[2].ptr<float>(),
                  outs[3].ptr<float>(), outs[4].ptr<float>(), outs[5].ptr<float>()};
    std::vector<Candidate> candidates;
    for (int cell : centrePeaks(h.centre)) candidates.push_back(candidate(h, cell));
    const auto toImage = [&](float gx, float gy) { return box.toImage(gx / kGrid, gy / kGrid, kSide); };

    std::vector<Pose> poses;
    for (const Candidate& c : candidates) {
        Pose pose;
        const cv::Point2f topLeft = toImage(c.left, c.top), bottomRight = toImage(c.right, c.bottom);
        pose.box = cv::Rect2f(topLeft, bottomRight);
        float sum = 0;
        int counted = 0;
        for (size_t k = 0; k < kPoseKeyPoints; ++k) {
            // The first strongest cell; outside the box every cell weighs 0.
            int cell = 0;
            float best = 0;
            for (int y = int(std::ceil(c.top)); y < kGrid && float(y) < c.bottom; ++y) {
                for (int x = int(std::ceil(c.left)); x < kGrid && float(x) < c.right; ++x) {
                    const float w = weight(h, c, k, y, x);
                    if (w > best) best = w, cell = y * kGrid + x;
                }
            }
            // The score is the cell's weight for whichever candidate weighs it most.
            float score = 0;
            for (const Candidate& other : candidates) score = std::max(score, weight(h, other, k, cell / kGrid, cell % kGrid));
            const float* o = h.offset + (size_t(cell) * kPoseKeyPoints + k) * 2;
            pose.points[k] = toImage(float(cell % kGrid) + o[1], float(cell / kGrid) + o[0]);
            pose.scores[k] = score;
            if (score > kKeyPointFloor) sum += score, ++counted;
        }
        pose.score = c.centreScore * sum / float(std::max(counted, 1));
        poses.push_back(pose);
    }
    std::stable_sort(poses.begin(), poses.end(), [](const Pose& a, const Pose& b) { return a.score > b.score; });
    return poses;
}

}  // namespace kv
