// k-means over colours, the result of cv::kmeans (k-means++ centres, a fixed number of
// iterations, one attempt) label for label: the same steps, random draws and float sums, each
// distance the same expression, over several colours at once (colour_clusters_test.cpp keeps
// the one-colour-at-a-time steps to compare with).
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace kv {

// Each colour's cluster (0 to k - 1) after `iterations` rounds, drawing from cv::theRNG().
// k at most the number of colours; at least 2 rounds are run, as cv::kmeans does.
std::vector<int> colourClusters(const std::vector<cv::Vec3f>& colours, int k, int iterations);

}  // namespace kv
