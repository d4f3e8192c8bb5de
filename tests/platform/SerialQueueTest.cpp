// The serial queue: blocks never overlap across threads, and a block may dispatch onto its own
// queue (the play queue's finished handling runs inside a queue step) without deadlocking.
#include <atomic>
#include <thread>
#include <vantelo_sounds/platform/SerialQueue.hpp>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

TEST(SerialQueueTest, BlocksFromManyThreadsNeverOverlapAndANestedSyncRunsInline) {
    SerialQueue queue("q");
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    long counter = 0; // unguarded on purpose: the queue is its only protection
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                queue.sync([&] {
                    overlaps += inside.fetch_add(1) != 0 ? 1 : 0;
                    ++counter;
                    queue.sync([&] { ++counter; }); // on its own queue: at once, no deadlock
                    inside.fetch_sub(1);
                });
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(counter, 4 * 2000 * 2);
}

} // namespace
} // namespace vantelo_sounds
