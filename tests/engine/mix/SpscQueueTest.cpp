// The lock-free queue between the control and audio threads: full, it refuses and counts without
// growing; then a producer and a consumer thread move a million items, each once and in order.
#include "engine/rt/SpscQueue.hpp"

#include <cstdint>
#include <thread>

#include <gtest/gtest.h>

namespace vantelo_sounds::engine {
namespace {

TEST(SpscQueueTest, AFullQueueRefusesThenTwoThreadsMoveEveryItemOnceInOrder) {
    constexpr std::uint64_t kItems = 1'000'000;
    SpscQueue<std::uint64_t> queue(64);
    std::uint64_t first = 0;
    while (queue.tryPush(first)) {
        ASSERT_LT(++first, 1000u) << "the queue grew";
    }
    EXPECT_GE(first, 64u);
    EXPECT_EQ(queue.dropped(), 1u);

    std::thread producer([&] {
        for (std::uint64_t i = first; i < kItems;) {
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
