// Eight threads share one Extractor over the open framework, each with its own requests
// of several kinds over small pictures and the result cache on: 500 requests per thread. The framework counts
// the execute() calls inside it at once; runs must never overlap, and every request must
// come back with the very blob a lone run gives for the same image and kind (so no thread
// ever receives another's result). Under the tsan preset it must also be race-free:
//   cmake --build --preset tsan --target extractor_stress_test && ctest --preset tsan -R Stress
#include <Korvid/Diagnostics.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <iterator>
#include <map>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <thread>
#include <vector>

#include "cache/memory_cache.h"
#include "extractor/extractor.h"
#include "testing/rgba_image.h"
#include "vantor/cover_util.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

constexpr int kThreads = 8;
constexpr int kRequestsPerThread = 500;
// Kinds whose graphs need no network or cascade (the test is about sharing, and under TSan
// a network run costs seconds): similarity, sensitive content and saliency.
const AlgorithmType kKinds[] = {static_cast<AlgorithmType>(29), static_cast<AlgorithmType>(33),
                                static_cast<AlgorithmType>(60)};
constexpr int kKindCount = static_cast<int>(std::size(kKinds));
constexpr int kImages = 3;

// A 64 x 48 RGBA picture, different per index: a sky-over-grass gradient, a dark room
// with a lamp, a skin-toned face-like disc on white. Drawn rather than decoded: the image
// decoders' own locks (GDAL's) are not what this test is about and upset TSan.
std::shared_ptr<ImageBuffer> picture(int index) {
    cv::Mat bgr(48, 64, CV_8UC3, cv::Scalar(255, 255, 255));
    if (index == 0) {
        for (int y = 0; y < bgr.rows; ++y) {
            bgr.row(y).setTo(y < 24 ? cv::Scalar(230, 160 + 2 * y, 90) : cv::Scalar(40, 150 + y, 60));
        }
    } else if (index == 1) {
        bgr.setTo(cv::Scalar(20, 20, 25));
        cv::circle(bgr, cv::Point(40, 14), 6, cv::Scalar(120, 220, 255), cv::FILLED);
    } else {
        cv::circle(bgr, cv::Point(32, 24), 16, cv::Scalar(140, 170, 225), cv::FILLED);
        cv::rectangle(bgr, cv::Rect(24, 18, 5, 3), cv::Scalar(40, 40, 40), cv::FILLED);
        cv::rectangle(bgr, cv::Rect(36, 18, 5, 3), cv::Scalar(40, 40, 40), cv::FILLED);
    }
    return testing::rgbaImage(bgr);
}

// The library's cache, counting what the extractor asks of it. The extractor only calls
// it inside its run gate, so plain counters are enough.
class CountingCache : public MemoryCache {
public:
    using MemoryCache::MemoryCache;
    std::shared_ptr<Result> query(const std::string& assetId, const std::string& algorithmKey) override {
        auto hit = MemoryCache::query(assetId, algorithmKey);
        ++(hit ? hits : misses);
        return hit;
    }
    using MemoryCache::query;
    int hits = 0;
    int misses = 0;
};

std::string blobOf(const Result& result) {
    return result.result == nullptr ? std::string() : std::string(static_cast<const char*>(result.result), result.resultLength);
}

TEST(ExtractorStressTest, EightThreadsShareOneExtractorWithTheCacheOn) {
    // OpenCV's own worker threads (TBB, not instrumented) stay off: TSan cannot see their
    // synchronisation, and the open framework's inner parallelism is not under test here.
    cv::setNumThreads(0);
    TempDir dir;
    dir.write("vantor.json", "{}");
    auto cache = std::make_shared<CountingCache>(256);
    auto config = std::make_shared<Config>();
    std::shared_ptr<CacheAdapter> adapter = cache, noStore;
    Extractor extractor(config, adapter, noStore, VQFE_MODEL_DIR, dir.path() + "/vantor.json", false);
    ASSERT_EQ(extractor.init(), 0);

    std::vector<std::shared_ptr<ImageBuffer>> images;
    for (int i = 0; i < kImages; ++i) images.push_back(picture(i));
    // What a lone run gives, per (photo, kind).
    std::map<std::pair<size_t, int>, std::string> expected;
    for (size_t p = 0; p < images.size(); ++p) {
        for (AlgorithmType kind : kKinds) {
            auto input = std::make_shared<Input>(ResourceList{std::make_shared<Resource>("ref", "", images[p])},
                                                 CoverUtil::getAlgorithmConf(kind), IntParams{}, kind);
            auto out = extractor.extractFeatures(input, false, nullptr);
            ASSERT_EQ(out.size(), 1u);
            std::string& blob = expected[{p, static_cast<int>(kind)}];
            blob = blobOf(*out[0]);
            ASSERT_FALSE(blob.empty()) << static_cast<int>(kind);
        }
    }

    Korvid::resetExecuteCounters();
    std::atomic<int> wrongBlobs{0}, errors{0}, done{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRequestsPerThread; ++i) {
                // Each thread its own assets; every fourth request repeats the one before it,
                // so a quarter are answered by the cache and the rest run the framework.
                const int j = i % 4 == 3 ? i - 1 : i;
                const AlgorithmType kind = kKinds[(j + t) % kKindCount];
                const size_t photo = static_cast<size_t>(j / kKindCount + t) % images.size();
                const std::string assetId = "t" + std::to_string(t) + "-" + std::to_string(j);
                auto input = std::make_shared<Input>(ResourceList{std::make_shared<Resource>(assetId, "", images[photo])},
                                                     CoverUtil::getAlgorithmConf(kind), IntParams{}, kind);
                ErrorPair error{0, ""};
                auto out = extractor.extractFeatures(input, true, &error);
                if (error.first != 0 || !error.second.empty()) ++errors;
                if (out.size() != 1 || blobOf(*out[0]) != expected.at({photo, static_cast<int>(kind)})) ++wrongBlobs;
                ++done;
            }
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_EQ(done.load(), kThreads * kRequestsPerThread);
    EXPECT_EQ(wrongBlobs.load(), 0);
    EXPECT_EQ(errors.load(), 0);
    EXPECT_EQ(Korvid::maxConcurrentExecutes(), 1);
    EXPECT_EQ(cache->hits + cache->misses, kThreads * kRequestsPerThread);
    EXPECT_GT(cache->hits, 0);  // a repeat finds its result unless other threads evicted it
    EXPECT_GE(cache->misses, kThreads * kRequestsPerThread * 3 / 4);
    std::printf("[stress] %d threads x %d requests: %d framework runs, %d cache hits, at most %d run at once\n",
                kThreads, kRequestsPerThread, cache->misses, cache->hits, Korvid::maxConcurrentExecutes());
}

}  // namespace
}  // namespace VQFeature
