#include "cache/sqlite_cache.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cache/index_sql.h"
#include "cache/sqlite_statement.h"
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

// Answers every statement with SQLite's query plan for it instead of its rows.
class PlanRunner : public SqlRunner {
public:
    explicit PlanRunner(sqlite3* db) : inner_(db) {}
    std::vector<SqlRow> run(const std::string& sql, const std::vector<SqlValue>& params) override {
        for (const SqlRow& row : inner_.run("EXPLAIN QUERY PLAN " + sql, params)) plans_.push_back(row[3].bytes);
        return {};
    }
    bool postgres() const override { return false; }
    const std::vector<std::string>& plans() const { return plans_; }

private:
    SqliteRunner inner_;
    std::vector<std::string> plans_;
};

// The query plans of the statements a label search runs, joined by "; ".
std::string searchPlan(const std::string& store, const std::vector<std::string>& names) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(store.c_str(), &db), SQLITE_OK);
    PlanRunner plans(db);
    SearchQuery query;
    query.labels = {names};
    searchIndex(plans, query);
    sqlite3_close(db);
    std::string joined;
    for (const auto& plan : plans.plans()) joined += plan + "; ";
    return joined;
}

TEST_F(SqliteCacheTest, ALabelSearchReadsTheLowerCaseNameIndexAlone) {
    SqliteCache store(path_);
    const std::string covering = "SEARCH vqfe_labels USING COVERING INDEX vqfe_labels_by_lower_name (<expr>=?)";
    // One name reads the index in asset order, so grouping by asset needs no sort.
    const std::string one = searchPlan(path_, {"sky"});
    EXPECT_NE(one.find(covering), std::string::npos) << one;
    EXPECT_EQ(one.find("GROUP BY"), std::string::npos) << one;
    const std::string two = searchPlan(path_, {"Sky", "sky"});
    EXPECT_NE(two.find(covering), std::string::npos) << two;
    EXPECT_EQ(two.find("SCAN vqfe_labels"), std::string::npos) << two;
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
