#include "nodes/colour_clusters.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace kv {

namespace {

// The squared distance, written once for every loop that computes one: its additions in this
// order and form (the compiler contracts them the same way in scalar and vector code, so the
// labels do not depend on which loop computed a distance).
inline float distance(float a0, float a1, float a2, float b0, float b1, float b2) {
    const float t0 = a0 - b0, t1 = a1 - b1, t2 = a2 - b2;
    float d = 0.f;
    d += t0 * t0;
    d += t1 * t1;
    d += t2 * t2;
    return d;
}

float distance(const cv::Vec3f& a, const cv::Vec3f& b) { return distance(a[0], a[1], a[2], b[0], b[1], b[2]); }

// The loops over colours run over blocks of this many, a whole number of vectors with no
// remainder: the compiler vectorises such loops at -O2.
constexpr size_t kBlock = 256;

// The colours one channel per array, padded with zeros to whole blocks, so that the loops over
// them run several colours at once.
struct Channels {
    explicit Channels(const std::vector<cv::Vec3f>& data) : size(data.size()), padded((size + kBlock - 1) / kBlock * kBlock) {
        for (int j = 0; j < 3; j++) channel[j].assign(padded, 0.f);
        for (size_t i = 0; i < size; i++) {
            for (int j = 0; j < 3; j++) channel[j][i] = data[i][j];
        }
    }
    size_t size, padded;
    std::vector<float> channel[3];
};

// The squared distances of one block to the centre (c0, c1, c2), each the smaller of it and
// the bound's (as std::min(distance, bound)).
void blockDistances(const float* x, const float* y, const float* z, float c0, float c1, float c2, const float* bound, float* __restrict out) {
    for (size_t i = 0; i < kBlock; i++) {
        const float d = distance(x[i], y[i], z[i], c0, c1, c2);
        out[i] = bound[i] < d ? bound[i] : d;
    }
}

// Each colour's squared distance to `centre`, the smaller of it and `bound`'s (the whole
// padded length of both).
void distances(const Channels& data, const cv::Vec3f& centre, const float* bound, float* out) {
    for (size_t start = 0; start < data.padded; start += kBlock) {
        blockDistances(data.channel[0].data() + start, data.channel[1].data() + start, data.channel[2].data() + start, centre[0], centre[1], centre[2],
                       bound + start, out + start);
    }
}

// The indices three k-means++ draws land on: each `p` less each of the n weights in turn until
// it is no longer positive (the last index when it stays positive). The three run side by side
// through the weights; a weight is never negative, so a draw that has landed stays landed.
void drawn(const std::vector<float>& weights, int n, const double (&p)[3], int (&index)[3]) {
    double left0 = p[0], left1 = p[1], left2 = p[2];
    int at0 = -1, at1 = -1, at2 = -1;
    for (int i = 0; i < n - 1 && (at0 < 0 || at1 < 0 || at2 < 0); i++) {
        const double w = weights[size_t(i)];
        left0 -= w;
        left1 -= w;
        left2 -= w;
        at0 = at0 < 0 && left0 <= 0 ? i : at0;
        at1 = at1 < 0 && left1 <= 0 ? i : at1;
        at2 = at2 < 0 && left2 <= 0 ? i : at2;
    }
    index[0] = at0 < 0 ? n - 1 : at0;
    index[1] = at1 < 0 ? n - 1 : at1;
    index[2] = at2 < 0 ? n - 1 : at2;
}

// k-means++: the first centre at random, each next one the best of three draws weighted by
// the squared distance to the nearest centre so far. The three draws depend only on the
// weights before them, so they are made first and their distances computed in one pass, the
// three sums (each in the order of the colours) side by side.
std::vector<cv::Vec3f> seedCentres(const std::vector<cv::Vec3f>& points, const Channels& data, int k, cv::RNG& rng) {
    const int n = int(data.size);
    constexpr int kTrials = 3;
    std::vector<int> chosen(static_cast<size_t>(k));
    // Infinity bounds nothing: the first distances as they are.
    std::vector<float> nearest(data.padded, INFINITY), trial[kTrials];
    for (std::vector<float>& t : trial) t.resize(data.padded);
    chosen[0] = int(unsigned(rng) % unsigned(n));
    distances(data, points[size_t(chosen[0])], nearest.data(), trial[0].data());
    std::swap(nearest, trial[0]);
    double total = 0;
    for (int i = 0; i < n; i++) total += nearest[size_t(i)];
    for (int c = 1; c < k; c++) {
        double p[kTrials];
        for (double& draw : p) draw = double(rng) * total;
        int candidate[kTrials];
        drawn(nearest, n, p, candidate);
        for (int t = 0; t < kTrials; t++) distances(data, points[size_t(candidate[t])], nearest.data(), trial[t].data());
        double sum[kTrials] = {0, 0, 0};
        const float *t0 = trial[0].data(), *t1 = trial[1].data(), *t2 = trial[2].data();
        for (int i = 0; i < n; i++) {
            sum[0] += t0[i];
            sum[1] += t1[i];
            sum[2] += t2[i];
        }
        // The first draw stands when no sum is below DBL_MAX (distances beyond the float range).
        double bestSum = DBL_MAX;
        int best = 0;
        for (int t = 0; t < kTrials; t++) {
            if (sum[t] < bestSum) bestSum = sum[t], best = t;
        }
        chosen[size_t(c)] = candidate[best];
        total = bestSum;
        std::swap(nearest, trial[best]);
    }
    std::vector<cv::Vec3f> centres;
    for (int c : chosen) centres.push_back(points[size_t(c)]);
    return centres;
}

// Which of one block's colours are nearer than `least` to the centre (c0, c1, c2): their least
// distance and label become this centre's. The label is chosen with a mask (the compiler
// vectorises that, not a select of two stores).
void blockNearest(const float* x, const float* y, const float* z, float c0, float c1, float c2, int centre, float* __restrict least, int* __restrict label) {
    for (size_t i = 0; i < kBlock; i++) {
        const float d = distance(x[i], y[i], z[i], c0, c1, c2);
        const float m = least[i];
        const int closer = -int(m > d);
        label[i] = (label[i] & ~closer) | (centre & closer);
        least[i] = m > d ? d : m;
    }
}

// Each colour's nearest centre, the first of equals. A float compared as a double keeps its
// order, so the least distance is kept as a float (infinity stands for DBL_MAX: no float
// distance lies between them).
void assign(const Channels& data, const std::vector<cv::Vec3f>& centres, std::vector<int>& labels) {
    float least[kBlock];
    int label[kBlock];
    for (size_t start = 0; start < data.padded; start += kBlock) {
        std::fill(least, least + kBlock, INFINITY);
        std::fill(label, label + kBlock, 0);
        const float* x = data.channel[0].data() + start;
        const float* y = data.channel[1].data() + start;
        const float* z = data.channel[2].data() + start;
        for (size_t c = 0; c < centres.size(); c++) blockNearest(x, y, z, centres[c][0], centres[c][1], centres[c][2], int(c), least, label);
        std::copy(label, label + std::min(kBlock, data.size - start), labels.begin() + std::ptrdiff_t(start));
    }
}

// Four floats or ints in one value (GCC and Clang vector extensions: one SSE or NEON register).
using Lanes = float __attribute__((vector_size(16)));
using LaneInts = int __attribute__((vector_size(16)));
constexpr int kLanes = 8;  // two of them

// Each cluster's sum of its colours (in float, in the order of the colours) and its count.
// Up to eight clusters are summed side by side, one lane each: a colour adds itself to its
// cluster's lane and +0 to the others, which leaves them as they were (a sum of +0 and colours
// is never -0). More clusters add into memory, one colour after the other.
void clusterSums(const Channels& data, const std::vector<int>& labels, std::vector<cv::Vec3f>& sums, std::vector<int>& counts) {
    const size_t k = sums.size();
    if (k > size_t(kLanes)) {
        std::fill(sums.begin(), sums.end(), cv::Vec3f(0, 0, 0));
        std::fill(counts.begin(), counts.end(), 0);
        for (size_t i = 0; i < data.size; i++) {
            cv::Vec3f& s = sums[size_t(labels[i])];
            for (int j = 0; j < 3; j++) s[j] += data.channel[j][i];
            counts[size_t(labels[i])]++;
        }
        return;
    }
    const LaneInts low = {0, 1, 2, 3}, high = {4, 5, 6, 7};
    const float* channel[3] = {data.channel[0].data(), data.channel[1].data(), data.channel[2].data()};
    // Named, not an array: the compiler keeps them in registers.
    Lanes x0 = {}, x1 = {}, y0 = {}, y1 = {}, z0 = {}, z1 = {};
    LaneInts count0 = {}, count1 = {};
    for (size_t i = 0; i < data.size; i++) {
        const LaneInts mine0 = low == labels[i], mine1 = high == labels[i];
        const float x = channel[0][i], y = channel[1][i], z = channel[2][i];
        const LaneInts vx = (LaneInts)Lanes{x, x, x, x}, vy = (LaneInts)Lanes{y, y, y, y}, vz = (LaneInts)Lanes{z, z, z, z};
        x0 += (Lanes)(vx & mine0);
        x1 += (Lanes)(vx & mine1);
        y0 += (Lanes)(vy & mine0);
        y1 += (Lanes)(vy & mine1);
        z0 += (Lanes)(vz & mine0);
        z1 += (Lanes)(vz & mine1);
        count0 -= mine0;
        count1 -= mine1;
    }
    const Lanes sum[3][2] = {{x0, x1}, {y0, y1}, {z0, z1}};
    const LaneInts count[2] = {count0, count1};
    for (size_t c = 0; c < k; c++) {
        for (int j = 0; j < 3; j++) sums[c][j] = sum[j][c / 4][c % 4];
        counts[c] = count[c / 4][c % 4];
    }
}

}  // namespace

std::vector<int> colourClusters(const std::vector<cv::Vec3f>& points, int k, int iterations) {
    const int n = int(points.size());
    std::vector<int> labels(static_cast<size_t>(n), 0);
    if (k <= 1 || n == 0) return labels;
    const Channels data(points);
    std::vector<cv::Vec3f> centres = seedCentres(points, data, k, cv::theRNG());
    std::vector<int> counts(static_cast<size_t>(k));
    std::vector<cv::Vec3f> sums(static_cast<size_t>(k));
    const int rounds = std::min(std::max(iterations, 2), 100);
    assign(data, centres, labels);
    for (int round = 1;; ++round) {
        // New centres: sums in float, an empty cluster takes the farthest colour of the largest.
        clusterSums(data, labels, sums, counts);
        for (int c = 0; c < k; c++) {
            if (counts[size_t(c)] != 0) continue;
            int largest = 0;
            for (int c1 = 1; c1 < k; c1++) {
                if (counts[size_t(largest)] < counts[size_t(c1)]) largest = c1;
            }
            const float scale = 1.f / float(counts[size_t(largest)]);
            cv::Vec3f mean;
            for (int j = 0; j < 3; j++) mean[j] = sums[size_t(largest)][j] * scale;
            double farthestDistance = 0;
            int farthest = -1;
            for (int i = 0; i < n; i++) {
                if (labels[size_t(i)] != largest) continue;
                const double d = distance(points[size_t(i)], mean);
                if (farthestDistance <= d) farthestDistance = d, farthest = i;
            }
            if (farthest < 0) continue;  // no distance is a number: the cluster stays empty
            counts[size_t(largest)]--;
            counts[size_t(c)]++;
            labels[size_t(farthest)] = c;
            for (int j = 0; j < 3; j++) {
                sums[size_t(largest)][j] -= points[size_t(farthest)][j];
                sums[size_t(c)][j] += points[size_t(farthest)][j];
            }
        }
        double shift = 0;
        for (int c = 0; c < k; c++) {
            const float scale = 1.f / float(counts[size_t(c)]);
            double moved = 0;
            for (int j = 0; j < 3; j++) {
                const float centre = sums[size_t(c)][j] * scale;
                const double t = centre - centres[size_t(c)][j];
                moved += t * t;
                centres[size_t(c)][j] = centre;
            }
            shift = std::max(shift, moved);
        }
        // The last round keeps its labels (so that no cluster empties); settled centres stop.
        if (round + 1 == rounds || shift <= double(FLT_EPSILON) * FLT_EPSILON) break;
        assign(data, centres, labels);
    }
    return labels;
}

}  // namespace kv
