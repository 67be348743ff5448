// Tensors for comparing network runtimes: fixed uniform noise, and how far one output is
// from another beyond the parity bound the framework checks at load (1e-3, or 2e-5 of the
// value beyond 50).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace vqfe_testing {

inline cv::Mat uniformNoise(const std::vector<int>& shape, float low, float high, uint64_t seed = 42) {
    cv::Mat m(shape, CV_32F);
    cv::RNG rng(seed);
    rng.fill(m, cv::RNG::UNIFORM, low, high);
    return m;
}

// The largest difference beyond the parity bound (0 when within it; infinite for another
// size or a NaN).
inline double parityExcess(const cv::Mat& got, const cv::Mat& want) {
    if (got.total() != want.total()) return INFINITY;
    double worst = 0;
    for (size_t k = 0; k < got.total(); ++k) {
        const double diff = std::fabs(double(got.ptr<float>()[k]) - double(want.ptr<float>()[k]));
        const double bound = std::max(1e-3, 2e-5 * std::fabs(double(want.ptr<float>()[k])));
        worst = std::max(worst, std::isnan(diff) ? INFINITY : diff > bound ? diff : 0.0);
    }
    return worst;
}

}  // namespace vqfe_testing
