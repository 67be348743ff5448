// Several threads extracting through one Extractor never overlap inside the framework.
// Run it under the tsan preset as well.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "cache/memory_cache.h"
#include "extractor/extractor.h"
#include "testing/fake_algorithm_system.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

std::shared_ptr<Resource> asset(const std::string& id, int width) {
    auto buffer = std::make_shared<ImageBuffer>();
    buffer->width = width;
    buffer->height = 1;
    std::string pixels(static_cast<size_t>(width) * 4, '\1');
    buffer->setData(pixels.data(), pixels.size());
    buffer->length = pixels.size();
    return std::make_shared<Resource>(id, "", buffer);
}

TEST(ExtractorConcurrencyTest, RunsNeverOverlapInsideTheFramework) {
    FakeSystemFactory factory;
    auto config = std::make_shared<Config>();
    // No caches shared between the threads: MemoryCache is not synchronised.
    Extractor extractor(config, nullptr, nullptr, "models", "vantor.json", false);
    ASSERT_EQ(extractor.init(), 0);

    constexpr int kThreads = 6;
    constexpr int kRounds = 40;
    std::vector<std::thread> threads;
    std::vector<int> blobs(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                if (round % 4 == 3) {
                    auto multi = std::make_shared<MultiAlgorithmInput>(
                        ResourceList{asset("m", 100 + t)}, "", std::vector<AlgorithmType>{AlgorithmType::PornCls},
                        std::vector<std::string>{"ClassificationPostProcess_c300"});
                    auto out = extractor.extractFeatures(multi, false, nullptr);
                    blobs[t] += out[0]->resultCount() == 2 ? 1 : 0;
                    continue;
                }
                auto input = std::make_shared<Input>(ResourceList{asset("a", 100 + t), asset("b", 200 + t)}, "",
                                                     IntParams{}, AlgorithmType::PornCls);
                ErrorPair error;
                for (const auto& result : extractor.extractFeatures(input, false, &error)) {
                    blobs[t] += result->result != nullptr ? 1 : 0;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    FakeAlgorithmSystem& fake = factory.latest();
    EXPECT_EQ(fake.maxInside.load(), 1);
    const int singleRounds = kRounds - kRounds / 4;
    EXPECT_EQ(fake.executes, kThreads * (singleRounds * 2 + kRounds / 4));
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(blobs[t], singleRounds * 2 + kRounds / 4);
    }
}

}  // namespace
}  // namespace VQFeature
