// Interruptions through the manager on the manual clock: what a posted "began" silences, what an
// "ended" brings back, and which notifications the manager's handler ignores.
#include <any>
#include <cmath>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

#include <gtest/gtest.h>

#include "support/ManagerFixture.hpp"
#include "support/NamedCase.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds::test {
namespace {

constexpr std::uint64_t kBegan = kAudioSessionInterruptionTypeBegan;
constexpr std::uint64_t kEnded = kAudioSessionInterruptionTypeEnded;

class InterruptionTest : public ManagerFixture, private PlaybackObserver {
protected:
    InterruptionTest() { setPlaybackObserver(this); }
    ~InterruptionTest() override { setPlaybackObserver(nullptr); }

    /// A one-second loop whose first half is quiet (0.2) and second half loud (0.6), so that the
    /// level heard says where in the loop it plays.
    std::string twoLevelLoop() {
        std::vector<float> samples(48000);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const float amplitude = i < 24000 ? 0.2f : 0.6f;
            samples[i] = amplitude * static_cast<float>(std::sin(2 * M_PI * 300.0 * i / 48000.0));
        }
        return sounds.writeBytes("loop.wav",
                                 WavFile{WavFile::kFloat, 1, 48000, 32, samples}.bytes());
    }
    /// Level of the left channel over [from, to) seconds.
    double level(double from, double to) const {
        return heard().rms(0, frameAt(from), frameAt(to)) * std::sqrt(2.0) * std::sqrt(2.0);
    }
    std::shared_ptr<AudioPlayer> player(std::int64_t channel) { return table().at(channel).first; }

    std::vector<std::string> paused; // "pause <file>" and "resume <file>", in order

private:
    void playerStarted(const AudioPlayer&, Duration) override {}
    void playerEnded(const AudioPlayer&, EndReason, Duration) override {}
    void playerPaused(const AudioPlayer& p, Duration) override {
        paused.push_back("pause " + p.url().lastPathComponent());
    }
    void playerResumed(const AudioPlayer& p, Duration) override {
        paused.push_back("resume " + p.url().lastPathComponent());
    }
};

// A loop and a one-shot play, speech is spoken; "began" silences all of them within one block,
// keeps their places and runs no completion. "ended" with should-resume brings the loop back from
// where it was; the one-shot stays silent until another sound's end takes its entry away.
TEST_F(InterruptionTest, BeganSilencesEverythingAndEndedBringsBackOnlyTheLoopFromWhereItWas) {
    manager().play(settingsFor(twoLevelLoop(), 0, 1, false, true), completionNoting("loop"));
    manager().play(settingsFor(sounds.tone("once.wav", 500, 2.0)), completionNoting("once"));
    manager().speak("Hold on, there is a call.");
    advance(0.3);
    AudioSession::sharedInstance().postInterruption(kBegan, std::nullopt);
    advance(0.7);
    EXPECT_FALSE(player(1)->isPlaying() || player(2)->isPlaying());
    EXPECT_EQ(paused, (std::vector<std::string>{"pause loop.wav", "pause once.wav"}));
    EXPECT_EQ(entries().back(), "speechSynthesizer didCancel");
    EXPECT_GT(heard().rms(0, frameAt(0.1), frameAt(0.3)), 0.1) << "it played before";
    EXPECT_LT(heard().peak(0, frameAt(0.3) + 1024), 1e-6f) << "silent within one block";

    AudioSession::sharedInstance().postInterruption(kEnded,
                                                    kAudioSessionInterruptionOptionShouldResume);
    advance(0.5);
    EXPECT_TRUE(player(1)->isPlaying());
    EXPECT_FALSE(player(2)->isPlaying());
    EXPECT_EQ(paused.back(), "resume loop.wav");
    // Paused at 0.3 s into the loop, resumed at 1.0 s: 0.2 s of the quiet half, then the loud one.
    EXPECT_NEAR(level(1.03, 1.18), 0.2, 0.02);
    EXPECT_NEAR(level(1.23, 1.48), 0.6, 0.02);

    // The paused one-shot loses its entry when another sound's end is handled.
    manager().play(settingsFor(sounds.tone("blip.wav", 800, 0.1)));
    advance(0.2);
    EXPECT_EQ(table().size(), 1u);
    EXPECT_EQ(completions("once"), 0);
    EXPECT_EQ(completions("loop"), 0);
}

// A looping sound stopped during an interruption stays stopped; one that plays (started again by
// the game, or after a second "ended") is told to play again and sounds on without a break.
TEST_F(InterruptionTest, OnlyTheLoopsStillInTheTableResumeAndOneAlreadyPlayingPlaysOn) {
    const auto stopped = sounds.tone("stopped.wav", 300, 0.5);
    manager().play(settingsFor(stopped, 0, 1, false, true));
    manager().play(settingsFor(sounds.tone("hum.wav", 200, 0.5), 0, 1, false, true));
    AudioSession& session = AudioSession::sharedInstance();
    session.postInterruption(kBegan, std::nullopt);
    advance(0.1);
    player(2)->play(); // first: a paused player loses its entry to the stop's handling
    manager().stop(settingsFor(stopped));
    advance(0.1);
    for (int twice = 0; twice < 2; ++twice) {
        session.postInterruption(kEnded, kAudioSessionInterruptionOptionShouldResume);
        advance(0.1);
    }
    EXPECT_EQ(table().count(1), 0u);
    EXPECT_TRUE(player(2)->isPlaying());
    EXPECT_EQ(paused,
              (std::vector<std::string>{"pause stopped.wav", "pause hum.wav", "resume hum.wav"}));
    EXPECT_LT(heard().maxStep(0, frameAt(0.15), frameAt(0.4)), 0.03) << "no click, no gap";
}

// The handler looks only at the userInfo: an unsigned type of 0 with bit 0 of unsigned options
// resumes the loops; anything else changes nothing.
struct NotificationRow : NamedCase {
    std::optional<std::map<std::string, std::any>> userInfo;
    bool resumesTheLoop;
};

class InterruptionHandlerTest : public InterruptionTest,
                                public ::testing::WithParamInterface<NotificationRow> {};

TEST_P(InterruptionHandlerTest, ResumesTheLoopOnlyWhenEndedWithShouldResume) {
    manager().play(settingsFor(sounds.tone("loop.wav", 300, 0.5), 0, 1, false, true));
    manager().play(settingsFor(sounds.tone("once.wav", 500, 2.0)));
    AudioSession::sharedInstance().postInterruption(kBegan, std::nullopt);
    advance(0.1);
    NotificationCenter::defaultCenter().post(
        Notification{kAudioSessionInterruptionNotification, nullptr, GetParam().userInfo});
    advance(0.1);
    EXPECT_EQ(player(1)->isPlaying(), GetParam().resumesTheLoop);
    EXPECT_FALSE(player(2)->isPlaying());
    EXPECT_EQ(entries().size(), 2u) << "the handler prints nothing";
}

std::map<std::string, std::any> userInfo(std::any type, std::optional<std::any> options = {}) {
    std::map<std::string, std::any> values{{kAudioSessionInterruptionTypeKey, std::move(type)}};
    if (options) {
        values[kAudioSessionInterruptionOptionKey] = std::move(*options);
    }
    return values;
}

INSTANTIATE_TEST_SUITE_P(
    Table, InterruptionHandlerTest,
    ::testing::Values(
        NotificationRow{"BeganWithOptions", userInfo(kBegan, std::uint64_t{1}), false},
        NotificationRow{"BeganWithoutOptions", userInfo(kBegan), false},
        NotificationRow{"EndedWithoutOptionKey", userInfo(kEnded), false},
        NotificationRow{"EndedOptions0", userInfo(kEnded, std::uint64_t{0}), false},
        NotificationRow{"EndedOptions1", userInfo(kEnded, std::uint64_t{1}), true},
        NotificationRow{"EndedOptions3", userInfo(kEnded, std::uint64_t{3}), true},
        NotificationRow{"EndedOptions2", userInfo(kEnded, std::uint64_t{2}), false},
        NotificationRow{"TypeAsText", userInfo(std::string("0"), std::uint64_t{1}), false},
        NotificationRow{"OptionsAsText", userInfo(kEnded, std::string("1")), false},
        NotificationRow{"SignedType", userInfo(0, std::uint64_t{1}), false},
        NotificationRow{"Type2", userInfo(std::uint64_t{2}, std::uint64_t{1}), false},
        NotificationRow{"NoUserInfo", std::nullopt, false},
        NotificationRow{"EmptyUserInfo", std::map<std::string, std::any>{}, false}),
    CaseName{});

} // namespace
} // namespace vantelo_sounds::test
