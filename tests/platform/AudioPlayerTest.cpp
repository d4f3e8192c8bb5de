// The player's contract as the manager relies on it, checked on the manual clock with the mix
// rendered offline: stop and pause, endless loops, voices running out, and the wake-up of a loop
// that waits on its descriptor. (A sound's natural end is ChannelPlaybackTest's.)
#include <algorithm>
#include <cmath>
#include <poll.h>
#include <string>
#include <thread>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "engine/output/ManualOutput.hpp"
#include "platform/AudioSystem.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds {
namespace {

using test::OfflineAudio;

struct Finish {
    const AudioPlayer* player;
    bool successfully;
    bool wasPlaying;
    std::size_t frame;
    std::thread::id thread;
};

class RecordingDelegate final : public AudioPlayerDelegate {
public:
    std::vector<Finish> finishes;

    void audioPlayerDidFinishPlaying(const std::shared_ptr<AudioPlayer>& player,
                                     bool successfully) override {
        finishes.push_back({player.get(), successfully, player->isPlaying(),
                            AudioSystem::frameOfTime(RunLoop::main().now()),
                            std::this_thread::get_id()});
    }
};

constexpr std::size_t frameAt(double secondsValue) {
    return static_cast<std::size_t>(secondsValue * 48000.0 + 0.5);
}

class AudioPlayerTest : public ::testing::Test {
protected:
    AudioPlayerTest() { mSystem.engine().manualOutput()->setCapture(&mSamples); }
    ~AudioPlayerTest() override { mSystem.engine().manualOutput()->setCapture(nullptr); }

    /// A player of a float 0.5-amplitude 1 kHz sine of `seconds`, reporting to mDelegate.
    std::shared_ptr<AudioPlayer> player(double seconds) {
        const auto path =
            mFixtures.tone("tone" + std::to_string(mToneCount++) + ".wav", 1000.0, seconds, 48000,
                           1, 0.5f, test::SoundFixtures::WavEncoding::float32);
        auto created = AudioPlayer::create(FileURL::fileURLWithPath(path));
        EXPECT_TRUE(created) << created.error().message();
        if (!created) {
            return nullptr;
        }
        created.value()->setDelegate(&mDelegate);
        return created.value();
    }

    test::SoundFixtures mFixtures;
    RunLoop* mLoop = &RunLoop::resetMainManual();
    AudioSystem& mSystem = AudioSystem::reset(OutputConfig{OutputConfig::Kind::manual, {}});
    std::vector<float> mSamples;
    RecordingDelegate mDelegate;
    int mToneCount = 0;
};

// A 1 kHz sine of 0.5 s is exactly 500 periods: seamless passes are one unbroken sine. Stop fades
// out over 5 ms with no callback and rewinds; pause fades out and keeps the place (the 240 frames
// of its fade are played), so the end comes 240 frames before 0.2 + 0.3 s after the resume.
TEST_F(AudioPlayerTest, ALoopRepeatsSeamlesslyStopFadesSilentlyAndRewindsAndPauseKeepsThePlace) {
    auto p = player(0.5);
    p->setNumberOfLoops(-7); // any negative count loops until stopped
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(5.0));
    EXPECT_TRUE(p->isPlaying());
    p->stop();
    EXPECT_FALSE(p->isPlaying());
    mLoop->advance(seconds(0.5));
    const OfflineAudio audio(mSamples);
    const float sineStep = 0.5f * 2.0f * static_cast<float>(M_PI) * 1000.0f / 48000.0f;
    EXPECT_LE(audio.maxStep(0), sineStep * 1.01f);
    EXPECT_NEAR(audio.rms(0, frameAt(4.5), frameAt(5.0)), 0.25, 0.005) << "still sounding";
    const auto end = audio.endOfSound();
    ASSERT_TRUE(end);
    EXPECT_LE(*end, frameAt(5.0) + 240);
    EXPECT_GE(*end, frameAt(5.0) + 200);

    p->setNumberOfLoops(0);
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(0.2));
    p->pause();
    EXPECT_FALSE(p->isPlaying());
    mLoop->advance(seconds(0.3));
    EXPECT_TRUE(mDelegate.finishes.empty());
    ASSERT_TRUE(p->play());
    mLoop->advance(seconds(1.0));
    ASSERT_EQ(mDelegate.finishes.size(), 1u);
    EXPECT_EQ(mDelegate.finishes[0].frame, frameAt(6.3) - 240);
}

// Every voice in use: a new sound takes the voice of a sound nobody holds any more before one
// that somebody still holds. (Hundreds at once all ending: ChannelPlaybackTest's burst.)
TEST_F(AudioPlayerTest, WhenVoicesRunOutOrphansGiveTheirVoiceFirst) {
    std::vector<std::shared_ptr<AudioPlayer>> held;
    std::vector<const AudioPlayer*> orphans;
    for (std::size_t i = 0; i < AudioSystem::kVoiceLimit; ++i) {
        auto p = player(0.25);
        ASSERT_TRUE(p->play());
        if (i % 10 == 5) {
            orphans.push_back(p.get()); // let go of: only the audio system keeps it now
        } else {
            held.push_back(p);
        }
    }
    const std::size_t heldBefore = held.size();
    for (std::size_t i = 0; i < orphans.size(); ++i) {
        held.push_back(player(0.25));
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
}

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
