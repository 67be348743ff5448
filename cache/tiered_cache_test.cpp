#include "cache/tiered_cache.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "cache/memory_cache.h"
#include "cache/sqlite_cache.h"
#include "extractor/algorithm_types.h"
#include "extractor/extractor.h"
#include "testing/fake_algorithm_system.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

std::shared_ptr<Result> blobResult(const std::string& assetId, const std::string& key, const std::string& bytes) {
    void* blob = std::malloc(bytes.size());
    std::memcpy(blob, bytes.data(), bytes.size());
    return std::make_shared<Result>(assetId, key, AlgorithmType::Face, blob, static_cast<int>(bytes.size()));
}

std::string bytesOf(Result& result) {
    std::string bytes(result.resultLength, '\0');
    result.memcpyStructResult(bytes.data(), bytes.size());
    return bytes;
}

TEST(TieredCacheTest, ReadsThroughTheStoreAcrossRestartsAndHandsOutCopies) {
    TempDir dir;
    const std::string path = dir.path() + "/store.db";
    {
        TieredCache cache(2, std::make_shared<SqliteCache>(path));
        cache.save(blobResult("a", "k", "alpha"));
        EXPECT_EQ(cache.find("a", "k"), TieredCache::MEMORY);
        // Every query is a new object with its own blob: consuming one leaves the next.
        auto first = cache.query("a", "k");
        auto second = cache.query("a", "k");
        ASSERT_NE(first, nullptr);
        EXPECT_NE(first, second);
        first->freeResult();
        EXPECT_EQ(bytesOf(*second), "alpha");
        EXPECT_EQ(second->algorithmType, AlgorithmType::Face);
    }
    // A restarted app: the store answers once, then memory does.
    TieredCache restarted(2, std::make_shared<SqliteCache>(path));
    EXPECT_EQ(restarted.memoryCount(), 0);
    EXPECT_EQ(restarted.find("a", "k"), TieredCache::STORE);
    EXPECT_EQ(restarted.memoryCount(), 1);
    EXPECT_EQ(restarted.find("a", "k"), TieredCache::MEMORY);
    EXPECT_EQ(bytesOf(*restarted.query("a", "k")), "alpha");
    EXPECT_EQ(restarted.find("b", "k"), TieredCache::MISS);

    // Memory is bounded; evicted entries still come from the store.
    restarted.save(blobResult("b", "k", "beta"));
    restarted.save(blobResult("c", "k", "gamma"));
    EXPECT_EQ(restarted.memoryCount(), 2);
    EXPECT_EQ(restarted.find("a", "k"), TieredCache::STORE);

    // Clears reach the store and empty the memory tier.
    restarted.clear({"a"});
    EXPECT_EQ(restarted.memoryCount(), 0);
    EXPECT_EQ(restarted.find("a", "k"), TieredCache::MISS);
    EXPECT_EQ(restarted.find("b", "k"), TieredCache::STORE);
    restarted.clearAll();
    EXPECT_EQ(restarted.find("c", "k"), TieredCache::MISS);

    TieredCache memoryOnly(-1, nullptr);
    memoryOnly.save(blobResult("a", "k", "x"));
    EXPECT_EQ(memoryOnly.find("a", "k"), TieredCache::MEMORY);
    EXPECT_THROW(TieredCache(0, nullptr), std::invalid_argument);
}

// The engine moves blobs out of the Results a cache gives it; a several-kind request
// answered from the cache twice must still find every blob the second time.
TEST(TieredCacheTest, ALengthSetPastTheBlobCopiesTheBlobOnly) {
    TieredCache cache(2, nullptr);
    auto result = blobResult("a", "k", "abc");
    for (unsigned long wrong : {4096UL, 1UL << 40}) {  // a public field, set wrong by its user
        result->resultLength = wrong;
        cache.save(result);
        auto copy = cache.query("a", "k");
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(bytesOf(*copy), "abc");
    }
}

TEST(TieredCacheTest, SeveralKindRequestsAnsweredFromTheCacheKeepTheirBlobs) {
    FakeSystemFactory factory;
    auto config = std::make_shared<Config>();
    auto tiered = std::make_shared<TieredCache>(16, std::make_shared<MemoryCache>(16));
    Extractor extractor(config, tiered, nullptr, "models", "vantor.json", false);
    ASSERT_EQ(extractor.init(), 0);
    auto buffer = std::make_shared<ImageBuffer>();
    buffer->width = 100;
    buffer->height = 1;
    buffer->setData(std::string(400, '\1').data(), 400);
    buffer->length = 400;
    auto input = std::make_shared<MultiAlgorithmInput>(ResourceList{std::make_shared<Resource>("a", "", buffer)},
                                                       "{g}", std::vector<AlgorithmType>{AlgorithmType::PornCls},
                                                       std::vector<std::string>{AlgorithmTypeC300});
    for (int round = 0; round < 3; ++round) {
        auto out = extractor.extractFeatures(input, true, nullptr);
        ASSERT_EQ(out.size(), 1u);
        ASSERT_NE(out[0]->pornClsBuffer(), nullptr) << "round " << round;
        EXPECT_FLOAT_EQ(out[0]->pornClsBuffer()->confidence, 0.1f);
        EXPECT_NE(out[0]->c300Buffer(), nullptr) << "round " << round;
    }
    EXPECT_EQ(factory.latest().executes, 1);
}

TEST(TieredCacheTest, ManyThreadsSaveAndQueryOneCache) {
    TieredCache cache(8, std::make_shared<MemoryCache>(-1));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&cache, t] {
            for (int i = 0; i < 300; ++i) {
                const std::string id = std::to_string(t) + "/" + std::to_string(i % 20);
                cache.save(blobResult(id, "k", id));
                auto hit = cache.query(id, "k");
                ASSERT_NE(hit, nullptr);
                EXPECT_EQ(bytesOf(*hit), id);
                if (i % 50 == 0) cache.clearTypes(std::vector<AlgorithmType>{AlgorithmType::Face});
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_LE(cache.memoryCount(), 8);
}

}  // namespace
}  // namespace VQFeature
