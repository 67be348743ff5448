// What every persistent result store must do, run against each of them: SqliteCache
// over a file and PgCache over a database of its own on the test server.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "cache/sqlite_cache.h"
#include "extractor/algorithm_types.h"
#include "testing/stored_results.h"
#include "testing/temp_dir.h"
#ifdef VQFE_WITH_PG_CACHE
#include "cache/pg_cache.h"
#include "testing/pg_test_database.h"
#endif

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

struct SqliteStore {
    using Cache = SqliteCache;
    TempDir dir;
    bool available() const { return true; }
    std::string where() const { return dir.path() + "/results.db"; }
};

#ifdef VQFE_WITH_PG_CACHE
struct PgStore {
    using Cache = PgCache;
    PgTestDatabase database;
    bool available() const { return database.available(); }
    std::string where() const { return database.uri(); }
};
using Stores = testing::Types<SqliteStore, PgStore>;
#else
using Stores = testing::Types<SqliteStore>;
#endif

struct StoreNames {
    template <typename T>
    static std::string GetName(int) {
        return std::is_same<T, SqliteStore>::value ? "Sqlite" : "Postgres";
    }
};

template <typename Store>
class ResultStoreTest : public testing::Test {
protected:
    void SetUp() override {
        if (!store_.available()) GTEST_SKIP() << "VQFE_TEST_PG_URI is not set: no PostgreSQL server to test against";
    }
    std::unique_ptr<typename Store::Cache> open() { return std::make_unique<typename Store::Cache>(store_.where()); }

    Store store_;
};
TYPED_TEST_SUITE(ResultStoreTest, Stores, StoreNames);

TYPED_TEST(ResultStoreTest, StoresCopiesAndAnswersFromAnotherObject) {
    auto input = std::make_shared<Input>(
        ResourceList{std::make_shared<Resource>("a"), std::make_shared<Resource>("missing"),
                     std::make_shared<Resource>("b")},
        "", IntParams{}, AlgorithmType::Face);
    const std::string key = input->algorithmKey();
    {
        auto store = this->open();
        auto saved = makeResult("a", key, AlgorithmType::Face, std::string("\0\x01\xff", 3));
        store->save(saved);
        saved->freeResult();  // the store kept its own copy
        store->save({makeResult("b", key, AlgorithmType::Face, "bb"),
                     std::make_shared<Result>("c", "k", std::string(AlgorithmTypeC300), std::malloc(1), 1)});
        EXPECT_EQ(store->count(), 3);
    }
    auto other = this->open();
    auto hits = other->query(input);
    ASSERT_EQ(hits.size(), 2u);  // misses skipped, resource order kept
    EXPECT_EQ(hits[0]->assetId, "a");
    EXPECT_EQ(blobOf(hits[0]), std::string("\0\x01\xff", 3));
    EXPECT_EQ(hits[0]->algorithmType, AlgorithmType::Face);
    EXPECT_EQ(blobOf(hits[1]), "bb");
    auto named = other->query("c", "k");
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->algorithmStringType, AlgorithmTypeC300);
    EXPECT_EQ(named->algorithmType, AlgorithmType::AllNodes);
    EXPECT_EQ(other->query("c", "other"), nullptr);
    // An empty message is a zero-byte blob, not the absence of one.
    other->save(std::make_shared<Result>("e", "k", AlgorithmType::FacePetDetect, std::malloc(1), 0));
    other->save(std::make_shared<Result>("n", "k", AlgorithmType::FacePetDetect));
    EXPECT_NE(other->query("e", "k")->result, nullptr);
    EXPECT_EQ(other->query("e", "k")->resultLength, 0u);
    EXPECT_EQ(other->query("n", "k")->result, nullptr);
    // The key is the pair, not the concatenation; saving again replaces.
    other->save(makeResult("ab", "c", AlgorithmType::Face, "1"));
    other->save(makeResult("a", "bc", AlgorithmType::Face, "2"));
    other->save(makeResult("a", "bc", AlgorithmType::Face, "3"));
    EXPECT_EQ(blobOf(other->query("ab", "c")), "1");
    EXPECT_EQ(blobOf(other->query("a", "bc")), "3");
}

TYPED_TEST(ResultStoreTest, SelectiveClearsRemoveOnlyWhatTheyName) {
    auto store = this->open();
    store->save({makeResult("a", "k4", AlgorithmType::Face, "x"), makeResult("a", "k25", AlgorithmType::SceneRecog, "x"),
                 makeResult("b", "k4", AlgorithmType::Face, "x"), makeResult("b", "k25", AlgorithmType::SceneRecog, "x"),
                 makeResult("c", "k4", AlgorithmType::Face, "x"),
                 std::make_shared<Result>("b", "kc", std::string(AlgorithmTypeC300), std::malloc(1), 1)});
    store->clear({"a", "c"});  // every value of the list, not only the first
    EXPECT_EQ(store->count(), 3);
    store->clearTypes(std::vector<AlgorithmType>{AlgorithmType::AllNodes, AlgorithmType::Face});
    EXPECT_EQ(store->query("b", "k4"), nullptr);
    EXPECT_NE(store->query("b", "kc"), nullptr);  // a string kind is not kind -1's victim
    store->clearTypes(std::vector<std::string>{AlgorithmTypeC300});
    EXPECT_EQ(store->count(), 1);
    store->clearTypes(std::vector<std::string>{"25"});
    EXPECT_EQ(store->count(), 0);
    store->save(makeResult("a", "k", AlgorithmType::Face, "x"));
    store->clearAll();
    EXPECT_EQ(store->count(), 0);
}

TYPED_TEST(ResultStoreTest, OneStoreSharedByThreads) {
    auto store = this->open();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&store, t] {
            for (int i = 0; i < 50; ++i) {
                const std::string asset = std::to_string(t) + "/" + std::to_string(i);
                store->save(makeResult(asset, "k", AlgorithmType::Face, asset));
                auto hit = store->query(asset, "k");
                ASSERT_NE(hit, nullptr);
                EXPECT_EQ(blobOf(hit), asset);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(store->count(), 200);
}

}  // namespace
}  // namespace VQFeature
