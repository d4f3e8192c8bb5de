// Queued playback on the manual clock: what waits, what starts when a sound ends, in which order,
// and when completions run, checked in the console, in the queue and in what is heard.
#include <thread>

#include <gtest/gtest.h>

#include "support/ManagerFixture.hpp"

namespace vantelo_sounds::test {
namespace {

class PlayQueueTest : public ManagerFixture {
protected:
    std::string waiting(const std::string& path) {
        return "Sound is already playing, waiting... " +
               FileURL::fileURLWithPath(path).description();
    }
    PlaySoundSettings queued(const std::string& path, bool looped = false) {
        return settingsFor(path, 0.0f, 1.0f, true, looped);
    }

    std::string a = sounds.tone("a.wav", 300, 0.5);
    std::string b = sounds.tone("b.wav", 600, 0.5);
    std::string c = sounds.tone("c.wav", 900, 0.5);
};

// The first starts at once and its item stays while it plays; the others wait. Each end takes
// the ended sound's item out, starts the last waiting item, and only then completes: waiting
// sounds start in reverse order of arrival.
TEST_F(PlayQueueTest, WaitingSoundsStartLastFirstEachBeforeTheEndedSoundsCompletion) {
    manager().play(queued(a), completionNoting("a"));
    manager().play(queued(b), completionNoting("b"));
    manager().play(queued(c), completionNoting("c"));
    EXPECT_EQ(playQueue().size(), 3u);
    advance(1.6);
    EXPECT_EQ(timedEntries(),
              (std::vector<std::string>{"0.000ms " + playingIn(1), "0.000ms " + waiting(b),
                                        "0.000ms " + waiting(c), "500.000ms " + playingIn(1),
                                        "500.000ms done a", "1000.000ms " + playingIn(1),
                                        "1000.000ms done c", "1500.000ms done b"}));
    EXPECT_TRUE(playQueue().empty());
    EXPECT_NEAR(heard().zeroCrossingFrequency(0, frameAt(0.05), frameAt(0.45)), 300, 3);
    EXPECT_NEAR(heard().zeroCrossingFrequency(0, frameAt(0.55), frameAt(0.95)), 900, 3);
    EXPECT_NEAR(heard().zeroCrossingFrequency(0, frameAt(1.05), frameAt(1.45)), 600, 3);
    EXPECT_EQ(heard().endOfSound(), frameAt(1.5)) << "each started on the frame the last ended";
}

TEST_F(PlayQueueTest, QueuedRequestForAnUnqueuedSoundsFileLeavesUnplayedWhenThatSoundEnds) {
    manager().play(settingsFor(a), completionNoting("a"));
    manager().play(queued(a), completionNoting("queued a"));
    EXPECT_EQ(entries().back(), waiting(a));
    advance(2.0);
    EXPECT_TRUE(playQueue().empty());
    EXPECT_EQ(completions("queued a"), 0);
    EXPECT_EQ(completions("a"), 1);
    EXPECT_TRUE(table().empty());
    EXPECT_LT(heard().peak(0, frameAt(0.5)), 1e-6f) << "the queued copy never sounded";
}

// Only the end or stop of a sound whose file is queued moves the queue: then the next waiting
// sound starts before the stopped one completes.
TEST_F(PlayQueueTest, StoppingAWaitingFileOrEndingAnUnqueuedSoundLeavesTheQueueAlone) {
    manager().play(queued(a, true), completionNoting("a"));
    manager().play(queued(b), completionNoting("b"));
    const auto before = entries();
    manager().stop(queued(b));
    EXPECT_EQ(entries(), before);
    manager().play(settingsFor(c), completionNoting("c"));
    advance(0.7);
    EXPECT_EQ(playQueue().size(), 2u);
    EXPECT_EQ(entries().back(), "done c") << "nothing started from the queue";

    manager().stop(queued(a));
    const auto log = entries();
    EXPECT_EQ(std::vector<std::string>(log.end() - 2, log.end()),
              (std::vector<std::string>{playingIn(1), "done a"}));
    ASSERT_EQ(playQueue().size(), 1u);
    EXPECT_EQ(playQueue()[0].settings.filePathURL(), FileURL::fileURLWithPath(b));
}

// The looping c, played without queueing, holds up no queued request for another file.
TEST_F(PlayQueueTest, CompletionsMayPlayAndStopSoundsThemselves) {
    manager().play(settingsFor(c, 0, 1, false, true), completionNoting("c"));
    manager().play(queued(a), [&] {
        manager().stop(settingsFor(c));
        manager().play(queued(b), completionNoting("b"));
        manager().play(queued(a), completionNoting("a again"));
    });
    advance(2.0);
    EXPECT_EQ(completions("c"), 1);
    EXPECT_EQ(completions("b"), 1);
    EXPECT_EQ(completions("a again"), 1);
    EXPECT_TRUE(playQueue().empty());
    EXPECT_TRUE(table().empty());
}

TEST_F(PlayQueueTest, CallsFromAnotherThreadRunOnTheLoopThread) {
    auto completion = completionNoting("a");
    manager();
    std::thread other([&] { manager().play(queued(a), completion); });
    other.join();
    EXPECT_TRUE(entries().empty()) << "posted, not run on the calling thread";
    advance(0.6);
    EXPECT_EQ(entries(), (std::vector<std::string>{playingIn(1), "done a"}));
}

// Real time on the null output: two sounds whose ends fall a few milliseconds apart, usually in
// one 21 ms output block, each complete once. Each case takes about 0.15 s of real time.
class CompletionsInRealTimeTest : public ManagerFixture, public ::testing::WithParamInterface<int> {
protected:
    CompletionsInRealTimeTest()
        : ManagerFixture(true) {}
};

TEST_P(CompletionsInRealTimeTest, SoundsEndingMillisecondsApartEachCompleteOnce) {
    RunLoop& loop = RunLoop::main();
    manager().play(settingsFor(sounds.tone("first.wav", 300, 0.1)), completionNoting("first"));
    manager().play(settingsFor(sounds.tone("second.wav", 500, 0.1 + GetParam() / 1000.0)),
                   [&, done = completionNoting("second")] {
                       done();
                       loop.stop();
                   });
    loop.runUntil(loop.now() + seconds(3.0));
    loop.runUntil(loop.now() + seconds(0.03)); // anything late or repeated would come now
    EXPECT_EQ(completions("first"), 1);
    EXPECT_EQ(completions("second"), 1);
    EXPECT_TRUE(table().empty());
}

INSTANTIATE_TEST_SUITE_P(Gaps, CompletionsInRealTimeTest, ::testing::Values(0, 1, 2, 3, 5),
                         [](const auto& param) { return std::to_string(param.param) + "msApart"; });

} // namespace
} // namespace vantelo_sounds::test
