#include "nodes/colour_clusters.h"

#include <algorithm>
#include <cfloat>

#include <gtest/gtest.h>

namespace kv {
namespace {

// GrabCut's first models depend on every label: the clusters must be cv::kmeans's, and the
// thread RNG must be left as cv::kmeans leaves it. Noise, a few distinct colours repeated
// (k-means++ draws the same colour twice and clusters empty), and as many colours as clusters.
TEST(ColourClusters, SameLabelsAsOpenCvKmeans) {
    cv::RNG fill(11);
    std::vector<std::vector<cv::Vec3f>> sets(3);
    for (int i = 0; i < 700; ++i) sets[0].emplace_back(float(fill.uniform(0, 256)), float(fill.uniform(0, 256)), float(fill.uniform(0, 90)));
    const cv::Vec3f few[3] = {{10, 20, 30}, {200, 40, 90}, {11, 20, 30}};
    for (int i = 0; i < 300; ++i) sets[1].push_back(few[fill.uniform(0, 3)]);
    for (int i = 0; i < 5; ++i) sets[2].emplace_back(float(i * 40), 7.f, float(250 - i * 30));
    for (size_t s = 0; s < sets.size(); ++s) {
        for (int iterations : {2, 10}) {
            cv::theRNG().state = 0x1234567ULL + s;
            const std::vector<int> labels = colourClusters(sets[s], 5, iterations);
            const uint64_t after = cv::theRNG().state;
            cv::theRNG().state = 0x1234567ULL + s;
            cv::Mat data(int(sets[s].size()), 3, CV_32F, sets[s].data()), expected;
            cv::kmeans(data, 5, expected, cv::TermCriteria(cv::TermCriteria::COUNT, iterations, 0.0), 1, cv::KMEANS_PP_CENTERS);
            ASSERT_EQ(labels.size(), sets[s].size());
            int differ = 0;
            for (size_t i = 0; i < labels.size(); ++i) differ += labels[i] != expected.at<int>(int(i));
            EXPECT_EQ(differ, 0) << "set " << s << ", " << iterations << " iterations";
            EXPECT_EQ(after, cv::theRNG().state) << "set " << s;
        }
    }
}

// The steps as they were before the loops ran several colours at once (one colour at a time,
// the colours as cv::Vec3f, the distances compared as doubles): the faster steps must give
// these labels for every input, not only for the few that cv::kmeans is checked on above.
namespace reference {

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

// The former colourClusters.
std::vector<int> referenceClusters(const std::vector<cv::Vec3f>& data, int k, int iterations) {
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

}  // namespace reference

// Colours for the comparison: `kind` 0 real-valued noise, 1 bytes (GrabCut's colours), 2 a few
// colours repeated (duplicates, ties, clusters that empty), 3 a smooth picture with noise split
// like GrabCut's sides, 4 points on a small grid (many equal distances), 5 one colour, 6 pairs
// of colours with the first and last channels swapped, and greys: a grey is exactly as far
// from both of a pair, and only the rounding of its distances (the order of the sums, whether
// products are fused into them) decides which it is given.
std::vector<cv::Vec3f> colours(cv::RNG& rng, int kind, int n) {
    std::vector<cv::Vec3f> out;
    const cv::Vec3f few[4] = {{10, 20, 30}, {200, 40, 90}, {11, 20, 30}, {10, 20, 31}};
    for (int i = 0; i < n; ++i) {
        switch (kind) {
        case 0: out.emplace_back(rng.uniform(-50.f, 300.f), rng.uniform(0.f, 1.f), rng.uniform(0.f, 255.f)); break;
        case 1: out.emplace_back(float(rng.uniform(0, 256)), float(rng.uniform(0, 256)), float(rng.uniform(0, 256))); break;
        case 2: out.push_back(few[rng.uniform(0, 4)]); break;
        case 3: {
            const int x = i % 64, y = i / 64;
            const float noise = float(rng.uniform(0, 24));
            out.emplace_back(float(4 * x % 256) + noise, float(200 - y) + noise, x > 20 && x < 44 ? 230.f : 40.f + noise);
            break;
        }
        case 4: out.emplace_back(float(rng.uniform(0, 3)), float(rng.uniform(0, 3)), 0.f); break;
        case 6:
            if (i % 8 != 7) {
                const float a = rng.uniform(0.f, 255.f), b = rng.uniform(0.f, 255.f), c = rng.uniform(0.f, 255.f);
                out.emplace_back(a, b, c);
                if (++i < n) out.emplace_back(c, b, a);
            } else {
                const float grey = rng.uniform(100.f, 101.f);
                out.emplace_back(grey, grey, grey);
            }
            break;
        case 5: out.emplace_back(7.f, 7.f, 7.f); break;
        }
    }
    return out;
}

// Labels and the thread RNG after them as the former steps gave them, over many inputs: every
// kind of colours, from one colour to several blocks of them, 2 to 12 clusters (more than the
// eight summed side by side) and as many clusters as colours (up to 300), 1 to 12 rounds.
TEST(ColourClusters, SameLabelsAsTheFormerSteps) {
    cv::RNG rng(2026);
    int cases = 0;
    for (int kind = 0; kind < 7; ++kind) {
        // The swapped pairs decide a label by rounding only now and then: several draws of them.
        for (int repeat = 0; repeat < (kind == 6 ? 6 : 1); ++repeat) {
        for (int n : {1, 2, 3, 5, 8, 9, 17, 255, 256, 257, 700, 1500, 4100}) {
            for (int k : {2, 3, 5, 8, 9, 12, n}) {
                if (k > n || (k == n && n > 300)) continue;
                const int iterations = rng.uniform(1, 13);
                const std::vector<cv::Vec3f> data = colours(rng, kind, n);
                const uint64_t state = rng.next();
                cv::theRNG().state = state;
                const std::vector<int> expected = reference::referenceClusters(data, k, iterations);
                const uint64_t expectedAfter = cv::theRNG().state;
                cv::theRNG().state = state;
                const std::vector<int> labels = colourClusters(data, k, iterations);
                ASSERT_EQ(labels, expected) << "kind " << kind << ", " << n << " colours, " << k << " clusters, " << iterations << " rounds";
                ASSERT_EQ(cv::theRNG().state, expectedAfter) << "kind " << kind << ", " << n << " colours, " << k << " clusters";
                ++cases;
            }
        }
        }
    }
    EXPECT_GT(cases, 400);
}

// Colours so far apart that their squared distances overflow, or not numbers at all: every
// colour still gets a cluster of range (the seeding finds no finite best draw to keep).
TEST(ColourClusters, DistancesBeyondTheFloatRange) {
    std::vector<cv::Vec3f> far, nan;
    for (int i = 0; i < 40; ++i) {
        far.emplace_back(i % 2 ? 3e38f : -3e38f, float(i), 0.f);
        nan.emplace_back(i % 3 ? NAN : float(i), 1.f, 2.f);
    }
    for (const std::vector<cv::Vec3f>* data : {&far, &nan}) {
        cv::theRNG().state = 99;
        const std::vector<int> labels = colourClusters(*data, 5, 10);
        ASSERT_EQ(labels.size(), data->size());
        for (int label : labels) EXPECT_TRUE(label >= 0 && label < 5) << label;
    }
}

}  // namespace
}  // namespace kv
