#include "model/process_store.h"

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

namespace kv {
namespace {

// A system waiting for another's read of the same key reads for itself when that read fails
// (a missing wake-up leaves it waiting for ever); once read, the key is read no more, and what
// no system holds leaves the store.
TEST(ProcessStoreConcurrency, AWaiterOfAFailedReadReadsItselfAndUnheldObjectsGo) {
    ProcessStore<int, int> store;
    std::promise<void> started, fail;
    auto failing = std::async(std::launch::async, [&] {
        return store.get(1, [&]() -> std::shared_ptr<int> {
            started.set_value();
            fail.get_future().wait();
            throw std::runtime_error("damaged");
        });
    });
    started.get_future().wait();
    std::atomic<int> reads{0};
    auto waiting = std::async(std::launch::async, [&] {
        return store.get(1, [&] {
            ++reads;
            return std::make_shared<int>(7);
        });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // so that it waits (either order must pass)
    fail.set_value();
    EXPECT_THROW(failing.get(), std::runtime_error);
    std::shared_ptr<int> held = waiting.get();
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(*held, 7);
    EXPECT_EQ(store.get(1, [&] { return std::make_shared<int>(8); }), held);
    EXPECT_EQ(reads.load(), 1);
    EXPECT_EQ(store.count(), 1u);
    held.reset();
    EXPECT_EQ(store.count(), 0u);
    EXPECT_EQ(*store.get(1, [&] { return std::make_shared<int>(9); }), 9);
}

}  // namespace
}  // namespace kv
