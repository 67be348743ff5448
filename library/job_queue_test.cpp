#include "library/job_queue.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "cache/pg_cache.h"
#include "testing/pg_test_database.h"

namespace vqfe {
namespace {

using VQFeature::PgTestDatabase;

class JobQueueTest : public testing::Test {
protected:
    void SetUp() override {
        if (!database_.available()) GTEST_SKIP() << PgTestDatabase::kSkipReason;
    }
    // What the passing of time does to a lease, without the wait.
    void expireLeases() {
        VQFeature::PgConnection(database_.uri())
            .command("UPDATE vqfe_jobs SET lease_until = clock_timestamp() - interval '1 second'");
    }
    std::shared_ptr<VQFeature::Result> result(const std::string& asset) {
        return std::make_shared<VQFeature::Result>(asset, "key", Vantor::AlgorithmType::Face, std::malloc(1), 1);
    }

    PgTestDatabase database_;
};

TEST_F(JobQueueTest, AnExpiredLeaseGoesToAnotherWorkerAndOnlyTheHolderCompletes) {
    JobQueue a(database_.uri());
    JobQueue b(database_.uri());
    EXPECT_EQ(a.enqueue({{"d1", "/img/1.jpg"}, {"d2", "/img/2.jpg"}, {"d3", "/img/3.jpg"}}, "face"), 3);
    EXPECT_EQ(b.enqueue({{"d1", "/elsewhere/1.jpg"}}, "face"), 0);  // same content, same kinds
    EXPECT_EQ(b.enqueue({{"d1", "/img/1.jpg"}}, "face,scene"), 1);

    const auto held = a.claim(2, 60, "a");
    ASSERT_EQ(held.size(), 2u);
    EXPECT_EQ(held[0].path, "/img/1.jpg");
    EXPECT_EQ(b.claim(10, 60, "b").size(), 2u);  // the rest, never a's
    EXPECT_TRUE(b.claim(10, 60, "b").empty());
    EXPECT_TRUE(a.renew({held[0].lease, held[1].lease}, 60).empty());

    expireLeases();
    const auto taken = b.claim(10, 60, "b");
    ASSERT_EQ(taken.size(), 4u);  // everything was leased and expired
    EXPECT_EQ(a.renew({held[0].lease}, 60), std::vector<long long>{held[0].lease});
    EXPECT_FALSE(a.complete(held[0], {result("d1")}));  // nothing written
    EXPECT_EQ(VQFeature::PgCache(database_.uri()).count(), 0);
    for (const Job& job : taken) EXPECT_TRUE(b.complete(job, {result(job.assetId)}));
    EXPECT_FALSE(b.complete(taken[0], {}));  // done once only
    EXPECT_EQ(VQFeature::PgCache(database_.uri()).count(), 3);
    EXPECT_EQ(a.counts()["done"], 4);
    EXPECT_EQ(a.open(), 0);
    EXPECT_GT(a.throughput(), 0);
}

TEST_F(JobQueueTest, FailedJobsStayFailedAndAJobThatKeepsKillingItsWorkersIsGivenUp) {
    JobQueue queue(database_.uri());
    queue.enqueue({{"bad", "/img/bad.jpg"}, {"fatal", "/img/fatal.jpg"}}, "face");
    auto jobs = queue.claim(1, 60, "w");
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_TRUE(queue.fail(jobs[0], "not a JPEG or PNG image"));
    for (int attempt = 0; attempt < JobQueue::kMaxAttempts; ++attempt) {
        jobs = queue.claim(10, 60, "w");
        ASSERT_EQ(jobs.size(), 1u);
        EXPECT_EQ(jobs[0].assetId, "fatal");
        expireLeases();
    }
    EXPECT_TRUE(queue.claim(10, 60, "w").empty());
    EXPECT_EQ(queue.counts()["failed"], 2);
    EXPECT_EQ(queue.open(), 0);
    auto errors = VQFeature::PgConnection(database_.uri()).command("SELECT error FROM vqfe_jobs ORDER BY id");
    EXPECT_EQ(errors.bytes(0, 0), "not a JPEG or PNG image");
    EXPECT_NE(errors.bytes(1, 0).find("abandoned"), std::string::npos);
}

}  // namespace
}  // namespace vqfe
