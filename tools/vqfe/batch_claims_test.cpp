#include "tools/vqfe/batch_claims.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace vqfe {
namespace {

std::vector<size_t> sizes(size_t total, int jobs) {
    BatchClaims claims(total, jobs);
    std::vector<size_t> out;
    size_t expected = 0, first = 0, last = 0;
    while (claims.next(&first, &last)) {
        EXPECT_EQ(first, expected) << "batches follow each other without gap or overlap";
        EXPECT_GT(last, first);
        out.push_back(last - first);
        expected = last;
    }
    EXPECT_EQ(expected, total);
    EXPECT_FALSE(claims.next(&first, &last)) << "a finished list stays finished";
    return out;
}

TEST(BatchClaims, OneJobTakesFullBatchesSeveralJobsShrinkTowardsTheEnd) {
    EXPECT_EQ(sizes(51, 1), (std::vector<size_t>{16, 16, 16, 3}));
    EXPECT_TRUE(sizes(0, 2).empty());
    EXPECT_EQ(sizes(1, 2), (std::vector<size_t>{1}));
    EXPECT_EQ(sizes(51, 0), sizes(51, 1)) << "no jobs counts as one";

    // Two jobs over 51 images: the last batches are single images, so whoever takes the
    // last one runs at most one image alone.
    const std::vector<size_t> two = sizes(51, 2);
    EXPECT_EQ(two, (std::vector<size_t>{16, 16, 9, 5, 2, 1, 1, 1}));
    for (size_t i = 1; i < two.size(); ++i) EXPECT_LE(two[i], two[i - 1]) << "batch " << i;
    EXPECT_LE(two.front(), BatchClaims::kMaxBatch);
    EXPECT_EQ(sizes(1000, 8).front(), BatchClaims::kMaxBatch);
}

TEST(BatchClaims, JobsOnSeveralThreadsTakeEveryImageOnce) {
    constexpr size_t kTotal = 5000;
    BatchClaims claims(kTotal, 4);
    std::vector<std::vector<int>> seen(4, std::vector<int>(kTotal, 0));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&claims, &mine = seen[t]] {
            size_t first = 0, last = 0;
            while (claims.next(&first, &last)) {
                for (size_t i = first; i < last; ++i) ++mine[i];
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (size_t i = 0; i < kTotal; ++i) {
        int count = 0;
        for (const auto& mine : seen) count += mine[i];
        ASSERT_EQ(count, 1) << "image " << i;
    }
}

}  // namespace
}  // namespace vqfe
