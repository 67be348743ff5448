#include "nodes/colour_clusters.h"

#include <algorithm>
#include <cfloat>

namespace kv {

namespace {

float distance(const cv::Vec3f& a, const cv::Vec3f& b) {
    float d = 0.f;
    for (int j = 0; j < 3; j++) {
        const float t = a[j] - b[j];
        d += t * t;
    }
    return d;
}

// k-means++: the first centre at random, each next one the best of three draws weighted by
// the squared distance to the nearest centre so far.
std::vector<cv::Vec3f> seedCentres(const std::vector<cv::Vec3f>& data, int k, cv::RNG& rng) {
    const int n = int(data.size());
    constexpr int kTrials = 3;
    std::vector<int> chosen(static_cast<size_t>(k));
    std::vector<float> nearest(static_cast<size_t>(n)), best(nearest), trial(nearest);
    chosen[0] = int(unsigned(rng) % unsigned(n));
    double total = 0;
    for (int i = 0; i < n; i++) {
        nearest[size_t(i)] = distance(data[size_t(i)], data[size_t(chosen[0])]);
        total += nearest[size_t(i)];
    }
    for (int c = 1; c < k; c++) {
        double bestSum = DBL_MAX;
        int bestCentre = -1;
        for (int t = 0; t < kTrials; t++) {
            double p = double(rng) * total;
            int candidate = 0;
            for (; candidate < n - 1; candidate++) {
                p -= nearest[size_t(candidate)];
                if (p <= 0) break;
            }
            double sum = 0;
            for (int i = 0; i < n; i++) {
                trial[size_t(i)] = std::min(distance(data[size_t(i)], data[size_t(candidate)]), nearest[size_t(i)]);
                sum += trial[size_t(i)];
            }
            if (sum < bestSum) {
                bestSum = sum;
                bestCentre = candidate;
                std::swap(best, trial);
            }
        }
        chosen[size_t(c)] = bestCentre;
        total = bestSum;
        std::swap(nearest, best);
    }
    std::vector<cv::Vec3f> centres;
    for (int c : chosen) centres.push_back(data[size_t(c)]);
    return centres;
}

void assign(const std::vector<cv::Vec3f>& data, const std::vector<cv::Vec3f>& centres, std::vector<int>& labels) {
    for (size_t i = 0; i < data.size(); i++) {
        int best = 0;
        double least = DBL_MAX;
        for (size_t c = 0; c < centres.size(); c++) {
            const double d = distance(data[i], centres[c]);
            if (least > d) least = d, best = int(c);
        }
        labels[i] = best;
    }
}

}  // namespace

std::vector<int> colourClusters(const std::vector<cv::Vec3f>& data, int k, int iterations) {
    const int n = int(data.size());
    std::vector<int> labels(static_cast<size_t>(n), 0);
    if (k <= 1 || n == 0) return labels;
    std::vector<cv::Vec3f> centres = seedCentres(data, k, cv::theRNG());
    std::vector<int> counts(static_cast<size_t>(k));
    const int rounds = std::min(std::max(iterations, 2), 100);
    assign(data, centres, labels);
    for (int round = 1;; ++round) {
        // New centres: sums in float, an empty cluster takes the farthest colour of the largest.
        std::vector<cv::Vec3f> sums(size_t(k), cv::Vec3f(0, 0, 0));
        std::fill(counts.begin(), counts.end(), 0);
        for (int i = 0; i < n; i++) {
            cv::Vec3f& s = sums[size_t(labels[size_t(i)])];
            for (int j = 0; j < 3; j++) s[j] += data[size_t(i)][j];
            counts[size_t(labels[size_t(i)])]++;
        }
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
                const double d = distance(data[size_t(i)], mean);
                if (farthestDistance <= d) farthestDistance = d, farthest = i;
            }
            counts[size_t(largest)]--;
            counts[size_t(c)]++;
            labels[size_t(farthest)] = c;
            for (int j = 0; j < 3; j++) {
                sums[size_t(largest)][j] -= data[size_t(farthest)][j];
                sums[size_t(c)][j] += data[size_t(farthest)][j];
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
