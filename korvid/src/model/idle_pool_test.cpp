#include "model/idle_pool.h"

#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

namespace kv {
namespace {

TEST(IdlePool, LeasesComeBackAlsoWhenTheirUseOrTheMakingThrows) {
    IdlePool<int> pool;
    pool.add(std::make_unique<int>(1));
    int made = 0;
    const auto make = [&] { return std::make_unique<int>(100 + ++made); };
    try {
        const auto lease = pool.take(make);
        EXPECT_EQ(*lease, 1) << "the idle object before a new one";
        const auto second = pool.take(make);
        EXPECT_EQ(*second, 101) << "made while the first is out";
        throw std::runtime_error("a use that fails");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(pool.count(), 2u);
    const auto refuse = []() -> std::unique_ptr<int> { throw std::bad_alloc(); };
    const auto first = pool.take(refuse);  // both went back: nothing is made
    const auto second = pool.take(refuse);
    EXPECT_EQ(*first + *second, 102);
    EXPECT_THROW(pool.take(refuse), std::bad_alloc);
    EXPECT_EQ(pool.count(), 2u) << "a making that failed adds nothing";
}

}  // namespace
}  // namespace kv
