#include "nodes/colour_clusters.h"

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

}  // namespace
}  // namespace kv
