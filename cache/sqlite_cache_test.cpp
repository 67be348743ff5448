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

#include "extractor/algorithm_types.h"
#include "testing/stored_results.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

class SqliteCacheTest : public testing::Test {
protected:
    TempDir temp_;
    const std::string dir_ = temp_.path();
    const std::string path_ = dir_ + "/results.db";
};

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

}  // namespace
}  // namespace VQFeature
