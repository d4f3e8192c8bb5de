// The mixer heard through its output: exact levels and pan, exact start and end frames, ramps
// with no click. (Hostile samples: MixKernelTest; loops and stale handles: player and engine.)
#include "engine/mix/Mixer.hpp"

#include <cmath>
#include <numbers>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "engine/EngineSupport.hpp"
#include "support/NamedCase.hpp"
#include "support/OfflineAudio.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::OfflineAudio;

class MixerTest : public ::testing::Test {
protected:
    VoiceHandle send(MixerCommand::Kind kind, VoiceHandle voice, std::uint64_t frame,
                     VoiceParams params = {}, const SoundData* data = nullptr) {
        EXPECT_TRUE(mMixer.send({kind, voice, frame, params.sanitized(), data}));
        return voice;
    }
    VoiceHandle start(const SoundData& data, VoiceParams params = {},
                      std::uint64_t frame = MixerCommand::kNow, std::uint32_t slot = 0) {
        return send(MixerCommand::Kind::start, {slot, 1}, frame, params, &data);
    }
    /// Renders `frames` more frames in blocks of 512, appending them to mSamples.
    void render(std::size_t frames) {
        std::vector<float> buffer(2 * 512);
        while (frames > 0) {
            const std::size_t n = std::min<std::size_t>(frames, 512);
            mMixer.render(buffer.data(), n);
            mSamples.insert(mSamples.end(), buffer.begin(),
                            buffer.begin() + static_cast<std::ptrdiff_t>(2 * n));
            frames -= n;
        }
    }
    Mixer mMixer{8};
    std::vector<float> mSamples;
};

struct PanCase : test::NamedCase {
    float pan;
    float volume;
    int channels;
    float expectedLeft; // for a source of 0.5 (stereo: left 0.5, right -0.25)
    float expectedRight;
};

class MixerPanTest : public MixerTest, public ::testing::WithParamInterface<PanCase> {};

TEST_P(MixerPanTest, SteadyLevelsFollowPanAndVolume) {
    const PanCase& c = GetParam();
    std::vector<float> source(4800 * static_cast<std::size_t>(c.channels), 0.5f);
    for (std::size_t i = 1; c.channels == 2 && i < source.size(); i += 2) {
        source[i] = -0.25f;
    }
    const auto data = soundOf(source, c.channels);
    start(*data, {c.pan, c.volume, 0});
    render(4800);
    const OfflineAudio audio(mSamples);
    for (std::size_t frame : {100u, 2000u, 4799u}) {
        EXPECT_NEAR(audio.sample(frame, 0), c.expectedLeft, 1e-6f) << "frame " << frame;
        EXPECT_NEAR(audio.sample(frame, 1), c.expectedRight, 1e-6f) << "frame " << frame;
    }
    // A silent side is silence from the first frame, not just quiet.
    EXPECT_EQ(audio.peak(0) == 0.0f, c.expectedLeft == 0.0f);
    EXPECT_EQ(audio.peak(1) == 0.0f, c.expectedRight == 0.0f);
}

const float kCentre = 0.5f * static_cast<float>(std::numbers::sqrt2 / 2.0); // -3 dB

INSTANTIATE_TEST_SUITE_P(
    Table, MixerPanTest,
    ::testing::Values(PanCase{"mono centre", 0.0f, 1.0f, 1, kCentre, kCentre},
                      PanCase{"mono half right", 0.5f, 1.0f, 1, 0.5f * 0.38268343f,
                              0.5f * 0.92387953f},
                      PanCase{"stereo centre", 0.0f, 1.0f, 2, 0.5f, -0.25f},
                      PanCase{"stereo half left", -0.5f, 1.0f, 2, 0.5f, -0.25f * 0.70710678f},
                      PanCase{"stereo hard left half volume", -1.0f, 0.5f, 2, 0.25f, 0.0f},
                      PanCase{"NaN volume is silence", 0.0f, NAN, 1, 0.0f, 0.0f},
                      PanCase{"out of range is clamped to hard left", -7.0f, 3.0f, 1, 0.5f, 0.0f}),
    test::CaseName());

// Every way a voice ends: its sound played out (started inside a block), its source failed, its
// sound was empty (even looping), or its source ran dry, waited silently and then filled.
TEST_F(MixerTest, EveryVoiceEndsOnItsExactFrameWithItsReason) {
    const auto tone = constantSound(1000, 0.5f);
    auto failing = constantSound(1000, 0.0f, false);
    failing->finish(false);
    const auto empty = constantSound(0, 0.0f);
    auto dry = constantSound(1000, 0.5f, false);
    start(*failing, {}, MixerCommand::kNow, 1); // commands go in frame order
    start(*dry, {1.0f, 1.0f, 0}, MixerCommand::kNow, 3);
    start(*empty, {0.0f, 1.0f, -1}, 300, 2);
    start(*tone, {-1.0f, 1.0f, 0}, 1234, 0);
    render(3000);
    EXPECT_EQ(mMixer.voicePosition({3, 1}), 1000u);
    const std::vector<float> more(500, 0.5f);
    dry->append(more.data(), more.size());
    dry->finish(true);
    render(1000);

    using Reason = VoiceEnded::Reason;
    std::vector<std::tuple<std::uint32_t, std::uint64_t, Reason>> ends;
    for (VoiceEnded end; mMixer.pollEvent(end);) {
        ends.emplace_back(end.voice.slot, end.frame, end.reason);
    }
    EXPECT_EQ(ends, (decltype(ends){{2, 300, Reason::finished},
                                    {1, 1000, Reason::failed},
                                    {0, 2234, Reason::finished},
                                    {3, 3500, Reason::finished}}));
    EXPECT_EQ(mMixer.voiceState({0, 1}), Mixer::VoiceState::ended);
    // Left: the tone from its first frame to its last. Right: silence while the source was dry.
    const OfflineAudio audio(mSamples);
    EXPECT_EQ(audio.peak(0, 0, 1234), 0.0f);
    EXPECT_GT(audio.peak(0, 1234, 1235), 0.0f);
    EXPECT_GT(audio.peak(0, 2233, 2234), 0.0f);
    EXPECT_EQ(audio.peak(0, 2234), 0.0f);
    EXPECT_EQ(audio.peak(1, 1000, 3000), 0.0f);
    EXPECT_EQ(audio.endOfSound(), 3500u);
}

struct RampCase : test::NamedCase {
    MixerCommand::Kind kind;
    std::uint32_t rampFrames;
    float gainDrop; // how far the gain falls
};

class MixerRampTest : public MixerTest, public ::testing::WithParamInterface<RampCase> {};

TEST_P(MixerRampTest, NoStepIsSteeperThanTheRamp) {
    // A constant source makes every step of the output a step of the gain.
    const float level = 0.8f;
    const auto data = constantSound(48000, level);
    const VoiceHandle voice = start(*data, {-1.0f, 1.0f, 0});
    send(GetParam().kind, voice, 1000, {-1.0f, 0.25f, 0});
    render(4000);
    const OfflineAudio audio(mSamples);
    const float slope = level * GetParam().gainDrop / static_cast<float>(GetParam().rampFrames);
    EXPECT_LE(audio.maxStep(0, 0, 1000), level / Voice::kStartRampFrames * 1.001f);
    EXPECT_LE(audio.maxStep(0, 900, 4000), slope * 1.001f);
    EXPECT_GT(audio.maxStep(0, 900, 4000), slope * 0.9f); // and the ramp is not longer
    EXPECT_TRUE(audio.allFiniteAndInRange());
}

INSTANTIATE_TEST_SUITE_P(
    Changes, MixerRampTest,
    ::testing::Values(RampCase{"stop", MixerCommand::Kind::stop, Voice::kStopRampFrames, 1.0f},
                      RampCase{"pause", MixerCommand::Kind::pause, Voice::kStopRampFrames, 1.0f},
                      RampCase{"volume", MixerCommand::Kind::setParams, Voice::kParamRampFrames,
                               0.75f}),
    test::CaseName());

} // namespace
} // namespace vantelo_sounds::engine
