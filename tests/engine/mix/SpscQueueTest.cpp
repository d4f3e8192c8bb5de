// The lock-free queue between the control and audio threads. Plan: a full queue refuses and
// counts; then one producer and one consumer thread move a million items through a small queue
// and every item must arrive once, in order.
#include "engine/rt/SpscQueue.hpp"

#include <cstdint>
#include <thread>

#include <gtest/gtest.h>

namespace vantelo_sounds::engine {
namespace {

TEST(SpscQueueTest, AFullQueueRefusesAndCountsWithoutGrowing) {
    SpscQueue<int> queue(16);
    int pushed = 0;
    while (queue.tryPush(pushed)) {
        ++pushed;
        ASSERT_LT(pushed, 1000) << "the queue grew";
    }
    EXPECT_GE(pushed, 16);
    EXPECT_EQ(queue.dropped(), 1u);
    int value = -1;
    ASSERT_TRUE(queue.tryPop(value));
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(queue.tryPush(pushed));
}

TEST(SpscQueueTest, TwoThreadsMoveEveryItemOnceInOrder) {
    constexpr std::uint64_t kItems = 1'000'000;
    SpscQueue<std::uint64_t> queue(64);
    std::thread producer([&] {
        for (std::uint64_t i = 0; i < kItems;) {
            if (queue.tryPush(i)) {
                ++i;
            } else {
                std::this_thread::yield();
            }
        }
    });
    std::uint64_t expected = 0;
    std::uint64_t outOfOrder = 0;
    while (expected < kItems) {
        std::uint64_t value = 0;
        if (queue.tryPop(value)) {
            outOfOrder += value != expected ? 1 : 0;
            ++expected;
        } else {
            std::this_thread::yield();
        }
    }
    producer.join();
    EXPECT_EQ(outOfOrder, 0u);
    std::uint64_t extra = 0;
    EXPECT_FALSE(queue.tryPop(extra));
}

} // namespace
} // namespace vantelo_sounds::engine
