// Channel playback through the manager on the manual clock: channel numbers, the per-file limit,
// the 32-channel reset, stop, completions, and pan and volume in what is heard.
#include <algorithm>
#include <cmath>
#include <vantelo_sounds/platform/AudioSession.hpp>

#include <gtest/gtest.h>

#include "support/ManagerFixture.hpp"

namespace vantelo_sounds::test {
namespace {

using ChannelPlaybackTest = ManagerFixture;

// Pan and volume reach the player as asked, unclamped; the mix makes absurd ones harmless (a
// negative volume is silence).
TEST_F(ChannelPlaybackTest, HardLeftAtHalfVolumeIsHalfTheToneOnTheLeftAndAbsurdValuesAreSilent) {
    manager().play(settingsFor(sounds.tone("left.wav", 440, 0.5), -1.0f, 0.5f),
                   completionNoting("left"));
    manager().play(settingsFor(sounds.tone("absurd.wav", 300, 0.5), 2.0f, -3.0f, false, true));
    const auto& absurd = table().at(2).first;
    EXPECT_EQ(absurd->pan(), 2.0f);
    EXPECT_EQ(absurd->volume(), -3.0f);
    EXPECT_EQ(absurd->numberOfLoops(), -1);
    EXPECT_EQ(entries(), (std::vector<std::string>{playingIn(1), playingIn(2)}));
    advance(0.75);
    EXPECT_EQ(timedEntries().back(), "500.000ms done left");
    EXPECT_EQ(table().size(), 1u);

    const OfflineAudio audio = heard();
    EXPECT_NEAR(audio.rms(0, frameAt(0.05), frameAt(0.45)), 0.25 / std::sqrt(2.0), 0.005);
    EXPECT_EQ(audio.peak(1), 0.0f);
    EXPECT_EQ(audio.firstNonSilentFrame(), 1u); // a sine's sample 0 is 0
    EXPECT_EQ(audio.endOfSound(), frameAt(0.5));
}

TEST_F(ChannelPlaybackTest, FreedChannelsAreReusedLowestFirst) {
    std::vector<std::string> files;
    for (const char* name : {"a", "b", "c", "d", "e", "f"}) {
        files.push_back(sounds.tone(std::string(name) + ".wav", 300, 0.2));
    }
    for (int i = 0; i < 4; ++i) {
        manager().play(settingsFor(files[i], 0, 1, false, true));
    }
    manager().stop(settingsFor(files[2]));
    manager().play(settingsFor(files[4], 0, 1, false, true));
    manager().stop(settingsFor(files[1]));
    manager().play(settingsFor(files[5], 0, 1, false, true));
    EXPECT_EQ(table().size(), 4u);
    EXPECT_EQ(entries(), (std::vector<std::string>{playingIn(1), playingIn(2), playingIn(3),
                                                   playingIn(4), playingIn(3), playingIn(2)}));
}

// The ninth is queued, so the limit fires inside the queue step: the stop's finished handling
// must not wait for the queue its own thread holds, and it takes the new item out of the queue.
TEST_F(ChannelPlaybackTest, EightChannelsPerFileTheNinthCancelsOneFirstEvenFromTheQueue) {
    const auto tone = sounds.tone("busy.wav", 300, 1.0);
    for (int i = 1; i <= 8; ++i) {
        manager().play(settingsFor(tone, 0, 1, false, true), completionNoting(std::to_string(i)));
    }
    EXPECT_EQ(entries().size(), 8u) << "seven or eight entries cancel nothing";

    manager().play(settingsFor(tone, 0, 1, true, true), completionNoting("9"));
    EXPECT_EQ(table().size(), 8u);
    EXPECT_TRUE(playQueue().empty());
    const auto log = entries();
    ASSERT_EQ(log.size(), 11u);
    EXPECT_EQ(log[8], "Sound is already playing on more than 8 channels. Cancelling one before "
                      "starting new playback of url " +
                          FileURL::fileURLWithPath(tone).description());
    EXPECT_EQ(log[9], "done 1");
    EXPECT_EQ(log[10], playingIn(1));
}

TEST_F(ChannelPlaybackTest, StopEndsEveryChannelOfTheFileAndRunsEachCompletion) {
    const auto a = sounds.tone("a.wav", 300, 2.0);
    const auto b = sounds.tone("b.wav", 500, 2.0);
    for (int i = 0; i < 3; ++i) {
        manager().play(settingsFor(a), completionNoting("a" + std::to_string(i)));
    }
    manager().play(settingsFor(b), completionNoting("b"));
    advance(0.1);
    manager().stop(settingsFor(a));
    EXPECT_EQ(completions("a0") + completions("a1") + completions("a2"), 3);
    EXPECT_TRUE(table().size() == 1 && table().count(4) == 1) << "only b's channel 4 is left";

    const auto before = entries().size();
    manager().stop(settingsFor(sounds.tone("idle.wav", 300, 0.1)));
    EXPECT_EQ(entries().size(), before) << "stopping a file that no channel plays does nothing";
    advance(0.5);
    // Only b is heard after the stop's fade.
    EXPECT_NEAR(heard().zeroCrossingFrequency(0, frameAt(0.15), frameAt(0.55)), 500, 3);
}

TEST_F(ChannelPlaybackTest, SoundsEndingOnTheSameFrameEachComplete) {
    // Eight footsteps of one file and a ninth sound of another, all ending on one frame: each
    // finished handling must still see the others playing, or it would drop their entries.
    const auto step = sounds.tone("step.wav", 300, 0.25);
    const auto other = sounds.tone("other.wav", 500, 0.25);
    for (int i = 0; i < 8; ++i) {
        manager().play(settingsFor(step), completionNoting("step" + std::to_string(i)));
    }
    manager().play(settingsFor(other), completionNoting("other"));
    advance(0.5);
    std::vector<std::string> completedAt; // each completion checks that it runs once
    for (const auto& entry : timedEntries()) {
        if (entry.find(" done ") != std::string::npos) {
            completedAt.push_back(entry.substr(0, entry.find(' ')));
        }
    }
    EXPECT_EQ(completedAt, std::vector<std::string>(9, "250.000ms"));
    EXPECT_TRUE(table().empty());
}

TEST_F(ChannelPlaybackTest, TwoHundredPlaysAtOneInstantAllEndAndFreeTheirChannels) {
    // 25 files, 8 plays each: every 33rd play finds all 32 channels taken, empties the table and is
    // dropped; the players it drops play on with nobody holding them (when voices run out theirs
    // go first) and their completions never run. Only the two plays after the last reset complete.
    std::vector<std::string> files;
    for (int i = 0; i < 25; ++i) {
        files.push_back(sounds.tone("burst" + std::to_string(i) + ".wav", 200 + 20 * i, 0.25));
    }
    for (int i = 0; i < 200; ++i) {
        manager().play(settingsFor(files[static_cast<std::size_t>(i) % files.size()], 0, 0.5f),
                       completionNoting("burst" + std::to_string(i)));
    }
    EXPECT_EQ(table().size(), 2u);
    advance(0.5);
    EXPECT_TRUE(table().empty()) << "every channel was freed by an end";
    EXPECT_EQ(AudioSystem::shared().engine().voicesInUse(), 0u) << "and every voice";
    const auto log = entries();
    EXPECT_EQ(std::count(log.begin(), log.end(), "No more available audio players"), 6);
    EXPECT_EQ(completions("burst199") + completions("burst198"), 2);
    EXPECT_EQ(log.size(), 194u + 6u + 2u) << "starts, resets and those two completions only";
    EXPECT_TRUE(heard().allFiniteAndInRange());
}

class StopAroundTheEndTest : public ChannelPlaybackTest,
                             public ::testing::WithParamInterface<double> {};

TEST_P(StopAroundTheEndTest, CompletionRunsExactlyOnce) {
    const auto tone = sounds.tone("short.wav", 300, 0.2);
    const auto settings = settingsFor(tone);
    manager().play(settings, completionNoting("short"));
    RunLoop::main().scheduleTimer(seconds(GetParam()), [&] { manager().stop(settings); });
    advance(0.5);
    EXPECT_EQ(completions("short"), 1);
}

INSTANTIATE_TEST_SUITE_P(StopTimes, StopAroundTheEndTest,
                         ::testing::Values(0.0, 0.1995, 0.2, 0.2005, 0.3), [](const auto& param) {
                             return "At" + std::to_string(std::lround(param.param * 10000)) +
                                    "TenthsOfAMillisecond";
                         });

} // namespace
} // namespace vantelo_sounds::test
