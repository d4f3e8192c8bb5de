// The player's contract as the manager relies on it, checked on the manual clock with the mix
// rendered offline: when isPlaying() turns false, when and where the finished callback comes
// (once, on the loop's thread, never after stop()), what create() says about bad paths, and what
// the rendered audio sounds like.
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <poll.h>
#include <string>
#include <thread>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "engine/output/ManualOutput.hpp"
#include "platform/AudioSystem.hpp"
#include "support/NamedCase.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds {
namespace {

using test::OfflineAudio;
using test::SoundFixtures;

struct Finish {
    const AudioPlayer* player;
    bool successfully;
    bool wasPlaying;
    Duration at;
    std::thread::id thread;
};

class RecordingDelegate final : public AudioPlayerDelegate {
public:
    std::vector<Finish> finishes;
    std::function<void(const std::shared_ptr<AudioPlayer>&)> then;

    void audioPlayerDidFinishPlaying(const std::shared_ptr<AudioPlayer>& player,
                                     bool successfully) override {
        finishes.push_back({player.get(), successfully, player->isPlaying(), RunLoop::main().now(),
                            std::this_thread::get_id()});
        if (then) {
            then(player);
        }
    }
};

struct ObservedEvent {
    const AudioPlayer* player;
    bool started;
    PlaybackObserver::EndReason reason;
    Duration at;
};

class RecordingObserver final : public PlaybackObserver {
public:
    std::vector<ObservedEvent> events;
    void playerStarted(const AudioPlayer& player, Duration at) override {
        events.push_back({&player, true, EndReason::finished, at});
    }
    void playerEnded(const AudioPlayer& player, EndReason reason, Duration at) override {
        events.push_back({&player, false, reason, at});
    }
};

constexpr std::size_t frameAt(double secondsValue) {
    return static_cast<std::size_t>(secondsValue * 48000.0 + 0.5);
}

class AudioPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        mLoop = &RunLoop::resetMainManual();
        OutputConfig config;
        config.kind = OutputConfig::Kind::manual;
        mSystem = &AudioSystem::reset(config);
        mSystem->engine().manualOutput()->setCapture(&mSamples);
        setPlaybackObserver(&mObserver);
    }
    void TearDown() override {
        setPlaybackObserver(nullptr);
        mSystem->engine().manualOutput()->setCapture(nullptr);
    }

    std::shared_ptr<AudioPlayer> player(const std::string& path) {
        auto created = AudioPlayer::create(FileURL::fileURLWithPath(path));
        EXPECT_TRUE(created) << created.error().message();
        auto result = created ? created.value() : nullptr;
        if (result) {
            result->setDelegate(&mDelegate);
        }
        return result;
    }

    std::string tone(double seconds, double hz = 1000.0, float amplitude = 0.5f) {
        return mFixtures.tone("tone" + std::to_string(mToneCount++) + ".wav", hz, seconds, 48000, 1,
                              amplitude, SoundFixtures::WavEncoding::float32);
    }

    SoundFixtures mFixtures;
    RunLoop* mLoop = nullptr;
    AudioSystem* mSystem = nullptr;
    std::vector<float> mSamples;
    RecordingDelegate mDelegate;
    RecordingObserver mObserver;
    int mToneCount = 0;
};

TEST_F(AudioPlayerTest, NaturalEndTurnsPlayingOffThenCallsBackOnceOnTheLoopThreadAtTheExactEnd) {
    auto p = player(tone(0.5));
    ASSERT_TRUE(p);
    EXPECT_FALSE(p->isPlaying());
    EXPECT_TRUE(p->play());
    EXPECT_TRUE(p->isPlaying());

    mLoop->advance(seconds(0.25));
    EXPECT_TRUE(p->isPlaying());
    EXPECT_TRUE(mDelegate.finishes.empty());

    mLoop->advance(seconds(0.5));
    EXPECT_FALSE(p->isPlaying());
    ASSERT_EQ(mDelegate.finishes.size(), 1u);
    const Finish& finish = mDelegate.finishes[0];
    EXPECT_EQ(finish.player, p.get());
    EXPECT_TRUE(finish.successfully);
    EXPECT_FALSE(finish.wasPlaying);
    EXPECT_EQ(finish.thread, std::this_thread::get_id());
    EXPECT_EQ(AudioSystem::frameOfTime(finish.at), frameAt(0.5));

    const OfflineAudio audio(mSamples);
    EXPECT_EQ(audio.firstNonSilentFrame(), 1u); // a sine's sample 0 is 0
    EXPECT_EQ(audio.endOfSound(), frameAt(0.5));
    EXPECT_NEAR(audio.zeroCrossingFrequency(0, 0, frameAt(0.5)), 1000.0, 5.0);

    mLoop->advance(seconds(1.0));
    EXPECT_EQ(mDelegate.finishes.size(), 1u);
}

TEST_F(AudioPlayerTest, StopIsSilentWithinItsFadeAndNeverCallsBack) {
    auto p = player(tone(1.0));
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(0.2));
    p->stop();
    EXPECT_FALSE(p->isPlaying());
    mLoop->advance(seconds(1.5));
    EXPECT_TRUE(mDelegate.finishes.empty());

    const OfflineAudio audio(mSamples);
    const auto end = audio.endOfSound();
    ASSERT_TRUE(end);
    EXPECT_LE(*end, frameAt(0.2) + 240);
    EXPECT_GE(*end, frameAt(0.2) + 200);
    ASSERT_GE(mObserver.events.size(), 2u);
    EXPECT_EQ(mObserver.events[1].reason, PlaybackObserver::EndReason::stopped);
    EXPECT_EQ(AudioSystem::frameOfTime(mObserver.events[1].at), frameAt(0.2));
}

TEST_F(AudioPlayerTest, PlayAfterStopStartsAgainFromTheBeginning) {
    auto p = player(tone(0.5));
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(0.3));
    p->stop();
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(0.49));
    EXPECT_TRUE(p->isPlaying());
    mLoop->advance(seconds(0.02));
    EXPECT_FALSE(p->isPlaying());
    ASSERT_EQ(mDelegate.finishes.size(), 1u);
    EXPECT_EQ(AudioSystem::frameOfTime(mDelegate.finishes[0].at), frameAt(0.8));
}

TEST_F(AudioPlayerTest, PauseKeepsThePositionAndPlayResumes) {
    auto p = player(tone(0.5));
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(0.2));
    p->pause();
    EXPECT_FALSE(p->isPlaying());
    mLoop->advance(seconds(1.0));
    EXPECT_TRUE(mDelegate.finishes.empty());
    ASSERT_TRUE(p->play());
    EXPECT_TRUE(p->isPlaying());
    mLoop->advance(seconds(1.0));
    ASSERT_EQ(mDelegate.finishes.size(), 1u);
    // 0.2 s before the pause, the 5 ms fade-out, then the remaining 0.295 s after 1.2 s.
    EXPECT_EQ(AudioSystem::frameOfTime(mDelegate.finishes[0].at),
              frameAt(1.2) + frameAt(0.3) - 240);
}

struct LoopCase : test::NamedCase {
    long loops;
    double endsAt; // seconds; negative: still playing at 5 s
};

class AudioPlayerLoopTest : public AudioPlayerTest,
                            public ::testing::WithParamInterface<LoopCase> {};

TEST_P(AudioPlayerLoopTest, PlaysLoopsPlusOnePasses) {
    auto p = player(tone(0.5));
    p->setNumberOfLoops(GetParam().loops);
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(5.0));
    if (GetParam().endsAt < 0) {
        EXPECT_TRUE(p->isPlaying());
        EXPECT_TRUE(mDelegate.finishes.empty());
        p->stop();
        mLoop->advance(seconds(0.1));
        EXPECT_TRUE(mDelegate.finishes.empty());
        return;
    }
    ASSERT_EQ(mDelegate.finishes.size(), 1u);
    EXPECT_EQ(AudioSystem::frameOfTime(mDelegate.finishes[0].at), frameAt(GetParam().endsAt));
    EXPECT_EQ(OfflineAudio(mSamples).endOfSound(), frameAt(GetParam().endsAt));
}

INSTANTIATE_TEST_SUITE_P(Loops, AudioPlayerLoopTest,
                         ::testing::Values(LoopCase{"Once", 0, 0.5}, LoopCase{"Twice", 1, 1.0},
                                           LoopCase{"FourTimes", 3, 2.0},
                                           LoopCase{"Forever", -1, -1.0},
                                           LoopCase{"AnyNegativeCountIsForever", -7, -1.0}),
                         test::CaseName());

TEST_F(AudioPlayerTest, TheNextSoundStartedFromTheCallbackBeginsOnTheFrameTheFirstEnded) {
    auto first = player(tone(0.3, 1000.0));
    auto second = player(tone(0.2, 500.0));
    mDelegate.then = [&](const std::shared_ptr<AudioPlayer>& finished) {
        if (finished == first) {
            second->play();
        }
    };
    ASSERT_TRUE(first->play());
    mLoop->advance(seconds(1.0));
    ASSERT_EQ(mDelegate.finishes.size(), 2u);
    EXPECT_EQ(AudioSystem::frameOfTime(mDelegate.finishes[1].at), frameAt(0.5));
    const OfflineAudio audio(mSamples);
    EXPECT_NEAR(audio.zeroCrossingFrequency(0, frameAt(0.3) + 100, frameAt(0.5)), 500.0, 10.0);
    // No gap: the only quiet samples around the seam are the new voice's 1.5 ms fade-in.
    EXPECT_EQ(audio.endOfSound(), frameAt(0.5));
}

TEST_F(AudioPlayerTest, AOneShotWhoseOwnerLetsGoStillFinishesAndCallsBack) {
    std::weak_ptr<AudioPlayer> weak;
    {
        auto p = player(tone(0.4));
        ASSERT_TRUE(p->play());
        weak = p;
    }
    EXPECT_FALSE(weak.expired());
    mLoop->advance(seconds(1.0));
    ASSERT_EQ(mDelegate.finishes.size(), 1u);
    EXPECT_TRUE(weak.expired());
}

TEST_F(AudioPlayerTest, ALoopingPlayerThatGoesAwayFallsSilent) {
    {
        auto p = player(tone(0.4));
        p->setNumberOfLoops(-1);
        ASSERT_TRUE(p->play());
        mLoop->advance(seconds(1.0));
    }
    mLoop->advance(seconds(1.0));
    const OfflineAudio audio(mSamples);
    EXPECT_LE(audio.endOfSound(), frameAt(1.0) + 240);
    EXPECT_EQ(mSystem->engine().voicesInUse(), 0u);
}

// Every voice in use: a new sound takes the voice of a sound nobody holds any more before one
// that somebody still holds, and every player ends, by itself or by giving its voice away.
TEST_F(AudioPlayerTest, WhenVoicesRunOutOrphansGiveTheirVoiceFirstAndEveryPlayerEnds) {
    const auto sound = tone(0.25);
    std::vector<std::shared_ptr<AudioPlayer>> held;
    std::vector<const AudioPlayer*> orphans;
    for (std::size_t i = 0; i < AudioSystem::kVoiceLimit; ++i) {
        auto p = player(sound);
        ASSERT_TRUE(p->play());
        if (i % 10 == 5) {
            orphans.push_back(p.get()); // let go of: only the audio system keeps it now
        } else {
            held.push_back(p);
        }
    }
    const std::size_t heldBefore = held.size();
    for (std::size_t i = 0; i < orphans.size(); ++i) {
        held.push_back(player(sound));
        EXPECT_TRUE(held.back()->play());
    }
    mLoop->advance(seconds(0.1));
    ASSERT_EQ(mDelegate.finishes.size(), orphans.size());
    for (const Finish& finish : mDelegate.finishes) {
        EXPECT_NE(std::find(orphans.begin(), orphans.end(), finish.player), orphans.end());
        EXPECT_FALSE(finish.successfully);
    }
    for (std::size_t i = 0; i < heldBefore; ++i) {
        EXPECT_TRUE(held[i]->isPlaying());
    }

    // 200 more at one instant: the oldest held voices go next, the spare slots fill, and the
    // sounds that get no voice at all end at once; all of them end.
    for (int i = 0; i < 200; ++i) {
        held.push_back(player(sound));
        held.back()->play();
    }
    mLoop->advance(seconds(1.0));
    EXPECT_EQ(mDelegate.finishes.size(), orphans.size() + held.size());
    for (const auto& p : held) {
        EXPECT_FALSE(p->isPlaying());
    }
    EXPECT_EQ(mSystem->engine().voicesInUse(), 0u);
    const OfflineAudio audio(mSamples);
    EXPECT_LE(audio.peak(0), 1.0f);
}

TEST_F(AudioPlayerTest, PanAndVolumeShapeTheMix) {
    auto left = player(tone(0.5, 1000.0, 0.5f));
    left->setPan(-1.0f);
    left->setVolume(0.5f);
    ASSERT_TRUE(left->play());
    mLoop->advance(seconds(0.6));
    const OfflineAudio audio(mSamples);
    EXPECT_EQ(audio.peak(1), 0.0f);
    EXPECT_NEAR(audio.peak(0, 100), 0.25f, 0.002f);
}

TEST_F(AudioPlayerTest, NonFinitePanAndVolumeAreReportedAsGivenAndPlayHarmlessly) {
    auto p = player(tone(0.3));
    p->setPan(std::numeric_limits<float>::quiet_NaN());
    p->setVolume(std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(p->pan()));
    EXPECT_TRUE(std::isinf(p->volume()));
    ASSERT_TRUE(p->play());
    p->setVolume(-std::numeric_limits<float>::infinity());
    p->setPan(1e30f);
    mLoop->advance(seconds(0.5));
    EXPECT_TRUE(OfflineAudio(mSamples).allFiniteAndInRange());
    EXPECT_EQ(mDelegate.finishes.size(), 1u);
}

TEST_F(AudioPlayerTest, AnEmptyURLIsNotAFileURL) {
    const auto created = AudioPlayer::create(FileURL());
    ASSERT_FALSE(created);
    EXPECT_EQ(created.error(), make_error_code(AudioPlayerError::notAFileURL));
}

} // namespace
} // namespace vantelo_sounds

namespace vantelo_sounds {
namespace {

// Real time on the null output, for a game that waits on the run loop's descriptor in its own
// poll(): the end of a sound makes the descriptor readable by itself (no timer, no polling), and
// the pass that delivers it leaves the descriptor quiet. Takes about 0.1 s.
TEST(AudioPlayerRealTimeTest, TheEndWakesTheLoopsDescriptorAndOnePassDeliversIt) {
    test::SoundFixtures fixtures;
    RunLoop& loop = RunLoop::resetMain(std::make_shared<SteadyClock>());
    AudioSystem& system = AudioSystem::reset(OutputConfig{OutputConfig::Kind::null, {}});
    ASSERT_STREQ(system.outputName(), "null");
    RecordingDelegate delegate;
    auto created =
        AudioPlayer::create(FileURL::fileURLWithPath(fixtures.tone("short.wav", 440.0, 0.05)));
    ASSERT_TRUE(created);
    auto p = created.value();
    p->setDelegate(&delegate);
    ASSERT_TRUE(p->play());
    loop.runOnce();

    pollfd fd{loop.fileDescriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&fd, 1, 2000), 1) << "the end woke the descriptor";
    EXPECT_TRUE(p->isPlaying()) << "until its end is delivered";
    loop.runOnce();
    ASSERT_EQ(delegate.finishes.size(), 1u);
    EXPECT_EQ(delegate.finishes[0].thread, std::this_thread::get_id());
    EXPECT_FALSE(delegate.finishes[0].wasPlaying);
    EXPECT_EQ(poll(&fd, 1, 0), 0) << "nothing left to do";

    RunLoop::resetMainManual();
    AudioSystem::reset(OutputConfig{OutputConfig::Kind::manual, {}});
}

} // namespace
} // namespace vantelo_sounds
