#include "cache/lru_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

namespace VQFeature {
namespace {

using Cache = LRUCache<std::string, std::shared_ptr<int>>;

TEST(LRUCacheTest, GetPromotesAndSetEvictsTheLeastRecent) {
    Cache cache(2);
    auto one = std::make_shared<int>(1);
    auto two = std::make_shared<int>(2);
    cache.set("1", one);
    cache.set("2", two);
    EXPECT_EQ(cache.get("1"), one);  // "2" is now the oldest
    cache.set("3", std::make_shared<int>(3));
    EXPECT_EQ(cache.size(), 2u);
    EXPECT_EQ(cache.get("2"), nullptr);
    EXPECT_EQ(cache.oldest()->key, "1");
    EXPECT_EQ(cache.newest()->key, "3");
    // The evicted node was reclaimed: the test holds the only reference left.
    EXPECT_EQ(two.use_count(), 1);
}

TEST(LRUCacheTest, ReplacingAKeyPromotesWithoutEvicting) {
    Cache cache(2);
    auto old = std::make_shared<int>(1);
    cache.set("a", old);
    cache.set("b", std::make_shared<int>(2));
    auto fresh = std::make_shared<int>(10);
    cache.set("a", fresh);
    EXPECT_EQ(cache.size(), 2u);
    EXPECT_EQ(cache.newest()->key, "a");
    EXPECT_EQ(cache.get("a"), fresh);
    EXPECT_EQ(old.use_count(), 1);
    // A miss changes nothing.
    EXPECT_EQ(cache.get("zzz"), nullptr);
    EXPECT_EQ(cache.oldest()->key, "b");
}

TEST(LRUCacheTest, CapacityEdges) {
    EXPECT_THROW(Cache(0), std::invalid_argument);
    Cache one(1);
    one.set("a", std::make_shared<int>(1));
    one.set("b", std::make_shared<int>(2));
    EXPECT_EQ(one.size(), 1u);
    EXPECT_EQ(one.get("a"), nullptr);
    EXPECT_EQ(*one.get("b"), 2);
    Cache unbounded(-1);  // a negative capacity never evicts
    for (int i = 0; i < 100; ++i) unbounded.set(std::to_string(i), std::make_shared<int>(i));
    EXPECT_EQ(unbounded.size(), 100u);
    EXPECT_EQ(*unbounded.get("0"), 0);
}

TEST(LRUCacheTest, ClearReleasesEveryNodeAndStaysUsable) {
    Cache cache(4);
    auto kept = std::make_shared<int>(1);
    cache.set("a", kept);
    cache.set("b", std::make_shared<int>(2));
    cache.clear();
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_EQ(cache.newest(), nullptr);
    EXPECT_EQ(cache.oldest(), nullptr);
    EXPECT_EQ(cache.get("a"), nullptr);
    EXPECT_EQ(kept.use_count(), 1);
    cache.set("c", std::make_shared<int>(3));
    EXPECT_EQ(cache.newest(), cache.oldest());
}

// The flat index against a plain list of (key, value), newest first, through a long random
// run of gets and sets that grows the table, evicts and shifts probe runs back on erase.
TEST(LRUCacheTest, AgreesWithAPlainListOverARandomRun) {
    for (int capacity : {1, 7, 300}) {
        LRUCache<std::string, int> cache(capacity);
        std::list<std::pair<std::string, int>> model;
        std::mt19937 random(static_cast<unsigned>(capacity));
        for (int step = 0; step < 20000; ++step) {
            const std::string key = "k" + std::to_string(random() % 500);
            auto it = std::find_if(model.begin(), model.end(), [&](const auto& entry) { return entry.first == key; });
            if (random() % 3 == 0) {
                EXPECT_EQ(cache.get(key), it == model.end() ? 0 : it->second) << key;
                if (it != model.end()) model.splice(model.begin(), model, it);
            } else {
                cache.set(key, step + 1);
                if (it != model.end()) model.erase(it);
                else if (model.size() >= static_cast<size_t>(capacity)) model.pop_back();
                model.emplace_front(key, step + 1);
            }
            ASSERT_EQ(cache.size(), model.size());
            if (model.empty()) continue;
            ASSERT_EQ(cache.newest()->key, model.front().first);
            ASSERT_EQ(cache.oldest()->key, model.back().first);
        }
    }
}

}  // namespace
}  // namespace VQFeature
