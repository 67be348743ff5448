#include "cache/memory_cache.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace VQFeature {
namespace {

std::shared_ptr<Result> makeResult(const std::string& assetId, const std::string& key) {
    return std::make_shared<Result>(assetId, key, Vantor::AlgorithmType::Face);
}

std::shared_ptr<Input> makeInput(const std::vector<std::string>& assetIds) {
    ResourceList resources;
    for (const auto& id : assetIds) {
        resources.push_back(std::make_shared<Resource>(id));
    }
    return std::make_shared<Input>(resources, "", IntParams{}, Vantor::AlgorithmType::Face);
}

TEST(MemoryCacheTest, KeyIsAFlatConcatenation) {
    MemoryCache cache(4);
    auto first = makeResult("ab", "c");
    auto second = makeResult("a", "bc");
    cache.save(first);
    cache.save(second);
    cache.save(std::shared_ptr<Result>());  // ignored
    EXPECT_EQ(cache.query("ab", "c"), second);
    EXPECT_EQ(cache.query("ab", "other"), nullptr);
    EXPECT_EQ(first.use_count(), 1);  // replaced and released
}

TEST(MemoryCacheTest, BulkQueryReturnsHitsInResourceOrderAndPromotesThem) {
    MemoryCache cache(2);
    auto input = makeInput({"x", "y", "z", "x"});
    const std::string key = input->algorithmKey(Vantor::AlgorithmType::AllNodes);
    auto rx = makeResult("x", key);
    auto rz = makeResult("z", key);
    cache.save(std::vector<std::shared_ptr<Result>>{rz, rx});
    auto hits = cache.query(input);
    ASSERT_EQ(hits.size(), 3u);
    EXPECT_EQ(hits[0], rx);
    EXPECT_EQ(hits[1], rz);
    EXPECT_EQ(hits[2], rx);
    // The last hit (x) is the most recent entry: a new save evicts z.
    cache.save(makeResult("w", key));
    EXPECT_EQ(cache.query("z", key), nullptr);
    EXPECT_EQ(cache.query("x", key), rx);

    EXPECT_TRUE(cache.query(makeInput({})).empty());
}

TEST(MemoryCacheTest, OnlyClearAllClears) {
    MemoryCache cache(4);
    auto r = makeResult("a", "k");
    cache.save(r);
    cache.clear({"a"});
    cache.clearTypes(std::vector<Vantor::AlgorithmType>{Vantor::AlgorithmType::Face});
    cache.clearTypes(std::vector<std::string>{"ClassificationPostProcess_c300"});
    EXPECT_EQ(cache.query("a", "k"), r);
    cache.clearAll();
    EXPECT_EQ(cache.query("a", "k"), nullptr);
    EXPECT_EQ(r.use_count(), 1);
    cache.save(r);
    EXPECT_EQ(cache.query("a", "k"), r);
}

// An override of the single save governs the bulk save too.
TEST(MemoryCacheTest, BulkSaveGoesThroughTheVirtualSingleSave) {
    struct Counting : MemoryCache {
        Counting() : MemoryCache(8) {}
        using MemoryCache::save;
        void save(const std::shared_ptr<Result>& result) override {
            ++saves;
            MemoryCache::save(result);
        }
        int saves = 0;
    } cache;
    cache.save(std::vector<std::shared_ptr<Result>>{makeResult("a", "k"), makeResult("b", "k")});
    EXPECT_EQ(cache.saves, 2);
}

}  // namespace
}  // namespace VQFeature
