#include "cache/pg_cache.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "extractor/algorithm_types.h"
#include "testing/pg_test_database.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

std::shared_ptr<Result> makeResult(const std::string& asset, const std::string& key, AlgorithmType type,
                                   const std::string& bytes) {
    void* blob = std::malloc(bytes.size() + 1);
    std::memcpy(blob, bytes.data(), bytes.size());
    return std::make_shared<Result>(asset, key, type, blob, static_cast<int>(bytes.size()));
}

std::string blobOf(const std::shared_ptr<Result>& result) {
    return std::string(static_cast<const char*>(result->result), result->resultLength);
}

class PgCacheTest : public testing::Test {
protected:
    void SetUp() override {
        if (!database_.available()) GTEST_SKIP() << PgTestDatabase::kSkipReason;
    }

    PgTestDatabase database_;
    const std::string& uri_ = database_.uri();
};

TEST_F(PgCacheTest, StoresCopiesAndAnswersFromAnotherConnection) {
    auto input = std::make_shared<Input>(
        ResourceList{std::make_shared<Resource>("a"), std::make_shared<Resource>("missing"),
                     std::make_shared<Resource>("b")},
        "", IntParams{}, AlgorithmType::Face);
    const std::string key = input->algorithmKey();
    {
        PgCache store(uri_);
        auto saved = makeResult("a", key, AlgorithmType::Face, std::string("\0\x01\xff", 3));
        store.save(saved);
        saved->freeResult();  // the store kept its own copy
        store.save({makeResult("b", key, AlgorithmType::Face, "bb"),
                    std::make_shared<Result>("c", "k", std::string(AlgorithmTypeC300), std::malloc(1), 1)});
        EXPECT_EQ(store.count(), 3);
    }
    PgCache other(uri_);
    auto hits = other.query(input);
    ASSERT_EQ(hits.size(), 2u);  // misses skipped, resource order kept
    EXPECT_EQ(hits[0]->assetId, "a");
    EXPECT_EQ(blobOf(hits[0]), std::string("\0\x01\xff", 3));
    EXPECT_EQ(hits[0]->algorithmType, AlgorithmType::Face);
    EXPECT_EQ(blobOf(hits[1]), "bb");
    auto named = other.query("c", "k");
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->algorithmStringType, AlgorithmTypeC300);
    EXPECT_EQ(named->algorithmType, AlgorithmType::AllNodes);
    EXPECT_EQ(other.query("c", "other"), nullptr);
    // An empty message is a zero-byte blob, not the absence of one.
    other.save(std::make_shared<Result>("e", "k", AlgorithmType::FacePetDetect, std::malloc(1), 0));
    other.save(std::make_shared<Result>("n", "k", AlgorithmType::FacePetDetect));
    EXPECT_NE(other.query("e", "k")->result, nullptr);
    EXPECT_EQ(other.query("e", "k")->resultLength, 0u);
    EXPECT_EQ(other.query("n", "k")->result, nullptr);
    // The key is the pair, not the concatenation; saving again replaces.
    other.save(makeResult("ab", "c", AlgorithmType::Face, "1"));
    other.save(makeResult("a", "bc", AlgorithmType::Face, "2"));
    other.save(makeResult("a", "bc", AlgorithmType::Face, "3"));
    EXPECT_EQ(blobOf(other.query("ab", "c")), "1");
    EXPECT_EQ(blobOf(other.query("a", "bc")), "3");
}

TEST_F(PgCacheTest, SelectiveClearsRemoveOnlyWhatTheyName) {
    PgCache store(uri_);
    store.save({makeResult("a", "k4", AlgorithmType::Face, "x"), makeResult("a", "k25", AlgorithmType::SceneRecog, "x"),
                makeResult("b", "k4", AlgorithmType::Face, "x"), makeResult("b", "k25", AlgorithmType::SceneRecog, "x"),
                std::make_shared<Result>("b", "kc", std::string(AlgorithmTypeC300), std::malloc(1), 1)});
    store.clear({"a"});
    EXPECT_EQ(store.count(), 3);
    store.clearTypes(std::vector<AlgorithmType>{AlgorithmType::Face});
    EXPECT_EQ(store.query("b", "k4"), nullptr);
    EXPECT_NE(store.query("b", "kc"), nullptr);  // a string kind is not kind -1's victim
    store.clearTypes(std::vector<std::string>{AlgorithmTypeC300});
    EXPECT_EQ(store.count(), 1);
    store.clearTypes(std::vector<std::string>{"25"});
    EXPECT_EQ(store.count(), 0);
    store.save(makeResult("a", "k", AlgorithmType::Face, "x"));
    store.clearAll();
    EXPECT_EQ(store.count(), 0);
}

TEST_F(PgCacheTest, ForeignTableAndUnreachableServerAreClearErrors) {
    PgConnection(uri_).command("CREATE TABLE vqfe_results (id serial, name text)");
    try {
        PgCache store(uri_);
        FAIL() << "a foreign table was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("belongs to something else"), std::string::npos) << e.what();
    }
    EXPECT_EQ(PgConnection(uri_).command("SELECT count(*) FROM vqfe_results").int64(0, 0), 0);
    try {
        PgCache store("postgresql://vqfe:secret@/x?host=/nonexistent/socket/dir");
        FAIL() << "connected to nothing";
    } catch (const std::runtime_error& e) {
        const std::string message = e.what();
        EXPECT_EQ(message.rfind("result store postgresql://vqfe:***@/x", 0), 0u) << message;
        EXPECT_NE(message.find("/nonexistent/socket/dir"), std::string::npos) << message;
        EXPECT_EQ(message.find("secret"), std::string::npos) << message;
    }
}

TEST_F(PgCacheTest, ReconnectsAfterTheServerDropsTheConnectionAndServesThreads) {
    PgCache store(uri_);
    store.save(makeResult("before", "k", AlgorithmType::Face, "v"));
    // What a server restart does to each session: the backend goes away.
    database_.admin().command("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '" +
                               database_.name() + "'");
    EXPECT_EQ(blobOf(store.query("before", "k")), "v");  // statements prepared again
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&store, t] {
            for (int i = 0; i < 25; ++i) {
                const std::string asset = std::to_string(t) + "/" + std::to_string(i);
                store.save(makeResult(asset, "k", AlgorithmType::Face, asset));
                auto hit = store.query(asset, "k");
                ASSERT_NE(hit, nullptr);
                EXPECT_EQ(blobOf(hit), asset);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(store.count(), 101);
}

}  // namespace
}  // namespace VQFeature
