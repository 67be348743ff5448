#include "cache/sqlite_cache.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include "extractor/algorithm_types.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

std::shared_ptr<Result> makeResult(const std::string& asset, const std::string& key, AlgorithmType type,
                                   const std::string& bytes) {
    void* blob = std::malloc(bytes.size());
    std::memcpy(blob, bytes.data(), bytes.size());
    return std::make_shared<Result>(asset, key, type, blob, static_cast<int>(bytes.size()));
}

std::string blobOf(const std::shared_ptr<Result>& result) {
    return std::string(static_cast<const char*>(result->result), result->resultLength);
}

class SqliteCacheTest : public testing::Test {
protected:
    TempDir temp_;
    const std::string dir_ = temp_.path();
    const std::string path_ = dir_ + "/results.db";
};

TEST_F(SqliteCacheTest, StoresCopiesAndAnswersAfterReopening) {
    auto input = std::make_shared<Input>(
        ResourceList{std::make_shared<Resource>("a"), std::make_shared<Resource>("missing"),
                     std::make_shared<Resource>("b")},
        "", IntParams{}, AlgorithmType::Face);
    const std::string key = input->algorithmKey();
    {
        SqliteCache store(path_);
        auto saved = makeResult("a", key, AlgorithmType::Face, std::string("\0\x01\xff", 3));
        store.save(saved);
        saved->freeResult();  // the store kept its own copy
        store.save({makeResult("b", key, AlgorithmType::Face, "bb"),
                    std::make_shared<Result>("c", "k", std::string(AlgorithmTypeC300),
                                             std::malloc(1), 1)});
        EXPECT_EQ(store.count(), 3);
    }
    SqliteCache reopened(path_);
    auto hits = reopened.query(input);
    ASSERT_EQ(hits.size(), 2u);  // misses skipped, resource order kept
    EXPECT_EQ(hits[0]->assetId, "a");
    EXPECT_EQ(blobOf(hits[0]), std::string("\0\x01\xff", 3));
    EXPECT_EQ(hits[0]->algorithmType, AlgorithmType::Face);
    EXPECT_EQ(blobOf(hits[1]), "bb");
    auto named = reopened.query("c", "k");
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->algorithmStringType, AlgorithmTypeC300);
    EXPECT_EQ(named->algorithmType, AlgorithmType::AllNodes);
    EXPECT_EQ(reopened.query("c", "other"), nullptr);
    // An empty message is a zero-byte blob, not the absence of one.
    reopened.save(std::make_shared<Result>("e", "k", AlgorithmType::FacePetDetect, std::malloc(1), 0));
    reopened.save(std::make_shared<Result>("n", "k", AlgorithmType::FacePetDetect));
    EXPECT_NE(reopened.query("e", "k")->result, nullptr);
    EXPECT_EQ(reopened.query("e", "k")->resultLength, 0u);
    EXPECT_EQ(reopened.query("n", "k")->result, nullptr);
    // The key is the pair, not the concatenation: "a"+"bc" is not "ab"+"c".
    reopened.save(makeResult("ab", "c", AlgorithmType::Face, "1"));
    reopened.save(makeResult("a", "bc", AlgorithmType::Face, "2"));
    EXPECT_EQ(blobOf(reopened.query("ab", "c")), "1");
}

TEST_F(SqliteCacheTest, SelectiveClearsRemoveOnlyWhatTheyName) {
    SqliteCache store(path_);
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

TEST_F(SqliteCacheTest, ForeignFileIsRefusedAndLeftAsItWas) {
    const std::string garbage(4096, 'G');
    std::ofstream(path_, std::ios::binary) << garbage;
    try {
        SqliteCache store(path_);
        FAIL() << "a non-database file was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(path_), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("not a database"), std::string::npos) << e.what();
    }
    std::ifstream in(path_, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), garbage);
    EXPECT_THROW(SqliteCache(dir_ + "/no/such/dir/results.db"), std::runtime_error);
}

TEST_F(SqliteCacheTest, TwoProcessesWriteAtOnceAndAKilledWriterLosesNothingCommitted) {
    { SqliteCache create(path_); }
    auto writer = [&](const std::string& prefix, int count) {
        SqliteCache store(path_);
        for (int i = 0; i < count; ++i) store.save(makeResult(prefix + std::to_string(i), "k", AlgorithmType::Face, "v"));
    };
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
        children[c] = fork();
        ASSERT_GE(children[c], 0);
        if (children[c] == 0) {
            writer(c ? "p" : "q", 150);
            _exit(0);
        }
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(SqliteCache(path_).count(), 300);

    pid_t victim = fork();
    ASSERT_GE(victim, 0);
    if (victim == 0) {
        writer("killed", 1000000);
        _exit(0);
    }
    // Kill the writer once it has committed 50 rows; a writer stuck on a lock fails the
    // test after the deadline instead of hanging it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (SqliteCache(path_).count() < 350 && std::chrono::steady_clock::now() < deadline) usleep(1000);
    kill(victim, SIGKILL);
    waitpid(victim, nullptr, 0);
    SqliteCache after(path_);
    EXPECT_GE(after.count(), 350);
    ASSERT_NE(after.query("p149", "k"), nullptr);
    after.save(makeResult("late", "k", AlgorithmType::Face, "v"));
    EXPECT_NE(after.query("late", "k"), nullptr);
}

TEST_F(SqliteCacheTest, OneStoreSharedByThreads) {
    SqliteCache store(path_);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&store, t] {
            for (int i = 0; i < 50; ++i) {
                const std::string asset = std::to_string(t) + "/" + std::to_string(i);
                store.save(makeResult(asset, "k", AlgorithmType::Face, asset));
                auto hit = store.query(asset, "k");
                ASSERT_NE(hit, nullptr);
                EXPECT_EQ(blobOf(hit), asset);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(store.count(), 200);
}

}  // namespace
}  // namespace VQFeature
