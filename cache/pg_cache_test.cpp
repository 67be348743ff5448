#include "cache/pg_cache.h"

#include <gtest/gtest.h>


#include "extractor/algorithm_types.h"
#include "testing/stored_results.h"
#include "testing/pg_test_database.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

class PgCacheTest : public testing::Test {
protected:
    void SetUp() override {
        if (!database_.available()) GTEST_SKIP() << PgTestDatabase::kSkipReason;
    }

    PgTestDatabase database_;
    const std::string& uri_ = database_.uri();
};

// How a store's text selects the server: both URI schemes of libpq, at the start only.
TEST(PgUriTest, BothSchemesAtTheStartOnly) {
    EXPECT_TRUE(PgCache::isUri("postgresql://vqfe@/db?host=/run"));
    EXPECT_TRUE(PgCache::isUri("postgres://vqfe@/db"));
    EXPECT_FALSE(PgCache::isUri("results.db"));
    EXPECT_FALSE(PgCache::isUri("stores/postgresql://x"));
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

TEST_F(PgCacheTest, ReconnectsAfterTheServerDropsTheConnection) {
    PgCache store(uri_);
    store.save(makeResult("before", "k", AlgorithmType::Face, "v"));
    // What a server restart does to each session: the backend goes away.
    database_.admin().command("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '" +
                               database_.name() + "'");
    EXPECT_EQ(blobOf(store.query("before", "k")), "v");  // statements prepared again
    store.save(makeResult("after", "k", AlgorithmType::Face, "w"));
    EXPECT_EQ(store.count(), 2);
}

}  // namespace
}  // namespace VQFeature
