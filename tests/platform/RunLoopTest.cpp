// The run loop's passes: callbacks posted from anywhere run on its thread in order, and a pass
// ends however fast work arrives. (Timers in deadline order are the scenario steps of
// CliRunTest; sources that stop time at a sound's end are heard in the player and manager tests:
// ends are delivered at their exact frame, between the timers around them.)
#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

using namespace std::chrono_literals;
using Log = std::vector<std::string>;

// One pass runs what was due when it began, so that neither the loop's own callbacks nor threads
// that post without pause keep runOnce() from returning to the game. What a thread posts runs on
// the loop's thread, in the order it was posted.
TEST(RunLoopTest, OnePassIsBoundedAndEveryPostedCallbackRunsOnceInTheEnd) {
    RunLoop& loop = RunLoop::resetMainManual();
    std::atomic<bool> stopPosting{false};
    std::atomic<long> posted{0};
    long ran = 0;       // touched on the loop thread only
    long misplaced = 0; // callbacks out of their thread's order or off the loop's thread
    std::array<long, 4> next{};
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < next.size(); ++t) {
        threads.emplace_back([&, t] {
            for (long n = 0; !stopPosting; ++n) {
                loop.post([&, t, n, poster = std::this_thread::get_id()] {
                    ++ran;
                    misplaced += n != next[t]++ || std::this_thread::get_id() == poster;
                });
                ++posted;
            }
        });
    }
    while (posted < 1000) {
        std::this_thread::yield(); // the passes below run while every thread is posting
    }
    for (int pass = 0; pass < 100; ++pass) {
        loop.runOnce();
    }
    stopPosting = true;
    for (auto& thread : threads) {
        thread.join();
    }
    while (loop.runOnce() > 0) {
    }
    EXPECT_EQ(ran, posted.load());
    EXPECT_EQ(misplaced, 0);

    Log log;
    std::function<void()> repost = [&] {
        log.push_back("posted");
        loop.post(repost);
    };
    std::function<void()> rearm = [&] {
        log.push_back("timer");
        loop.scheduleTimer(0ms, rearm);
    };
    loop.post(repost);
    loop.scheduleTimer(0ms, rearm);
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_EQ(loop.runOnce(), 2u);
    }
    EXPECT_EQ(log, (Log{"posted", "timer", "posted", "timer", "posted", "timer"}));
    EXPECT_EQ(loop.now(), 0ms);
}

} // namespace
} // namespace vantelo_sounds
