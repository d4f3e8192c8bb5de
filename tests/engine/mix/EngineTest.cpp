// The engine with the manual output: the pool's limit, stale handles, sound data released on
// drain, renders that wait for a slow producer, a long sound streamed through a loop. (A voice
// started on the frame another ended is heard in AudioPlayerTest.)
#include "engine/Engine.hpp"

#include <algorithm>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/EngineSupport.hpp"
#include "engine/output/ManualOutput.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::OfflineAudio;

class EngineTest : public ::testing::Test {
protected:
    EngineTest() { mEngine.manualOutput()->setCapture(&mSamples); }
    std::size_t drained() {
        std::size_t ended = 0;
        mEngine.drainEvents([&](const VoiceEnded&) { ++ended; });
        return ended;
    }

    Engine mEngine{std::make_unique<ManualOutput>()};
    std::vector<float> mSamples;
};

TEST_F(EngineTest, AFullPoolRefusesCleanlyAndAStaleHandleNeverReachesTheVoiceReusingItsSlot) {
    auto shortSound = constantSound(100, 0.001f);
    const std::weak_ptr<SoundData> released = shortSound;
    std::vector<VoiceHandle> old;
    for (std::size_t i = 0; i < mEngine.voiceCapacity(); ++i) {
        const auto voice = mEngine.start(shortSound, {});
        ASSERT_TRUE(voice) << "voice " << i;
        old.push_back(*voice);
    }
    EXPECT_EQ(mEngine.voiceCapacity(), Mixer::kDefaultVoices);
    EXPECT_FALSE(mEngine.start(shortSound, {}));
    EXPECT_TRUE(
        std::all_of(old.begin(), old.end(), [&](VoiceHandle v) { return mEngine.isActive(v); }));
    shortSound.reset();

    // Every end frees its slot, and the sound's data goes with the last end drained, not before.
    EXPECT_EQ(mEngine.renderUntil(1000), 100u);
    EXPECT_FALSE(released.expired());
    EXPECT_EQ(drained(), old.size());
    EXPECT_TRUE(released.expired());
    EXPECT_EQ(mEngine.voicesInUse(), 0u);

    const auto reused = mEngine.start(constantSound(48000, 0.5f), {});
    ASSERT_TRUE(reused);
    const auto stale =
        std::find_if(old.begin(), old.end(), [&](VoiceHandle v) { return v.slot == reused->slot; });
    ASSERT_NE(stale, old.end());
    mEngine.stop(*stale, mEngine.renderedFrame());
    mEngine.pause(*stale, mEngine.renderedFrame());
    EXPECT_FALSE(mEngine.isActive(*stale));
    EXPECT_TRUE(mEngine.isActive(*reused));
    mEngine.renderUntil(2000);
    EXPECT_EQ(drained(), 0u);
    EXPECT_GT(OfflineAudio(mSamples).rms(0, 1000, 2000), 0.3);
    EXPECT_TRUE(OfflineAudio(mSamples).allFiniteAndInRange());
}

TEST_F(EngineTest, AManualRenderWaitsForASlowProducerSoTheMixIsTheSameEveryTime) {
    auto data = std::make_shared<SoundData>(1, 48000);
    ASSERT_TRUE(mEngine.start(data, {-1.0f, 1.0f, 0}));
    std::thread producer([data] {
        const std::vector<float> chunk(480, 0.5f);
        for (int i = 0; i < 50; ++i) {
            data->append(chunk.data(), chunk.size());
            std::this_thread::yield();
        }
        data->finish(true);
    });
    const std::uint64_t reached = mEngine.renderUntil(48000);
    producer.join();
    EXPECT_EQ(reached, 24000u);
    const OfflineAudio audio(mSamples);
    EXPECT_EQ(audio.endOfSound(), 24000u);
    EXPECT_FLOAT_EQ(audio.peak(0, 100, 24000), 0.5f);
    EXPECT_NEAR(audio.rms(0, 100, 24000), 0.5, 1e-6); // no gap where the producer was slow
}

TEST(EngineStreamTest, ALongLoopStreamsEveryPassOnTimeWithoutAGapOrAClickAtTheSeam) {
    // A bound of 4 MiB keeps sounds up to 0.5 MiB: the 4 s mono sound (0.75 MiB) streams.
    Engine engine(std::make_unique<ManualOutput>(), Mixer::kDefaultVoices, std::size_t{4} << 20);
    std::vector<float> samples;
    engine.manualOutput()->setCapture(&samples);
    test::SoundFixtures fixtures;
    auto sound = engine.load(fixtures.tone("ambience.wav", 375, 4.0, 48000, 1, 0.5f));
    ASSERT_TRUE(sound);
    ASSERT_TRUE(sound.value().isStreamed());
    auto source = engine.cache().sourceFor(sound.value(), 2);
    ASSERT_TRUE(source);
    ASSERT_TRUE(engine.start(std::move(source).value(), {0.0f, 1.0f, 2}));

    std::optional<VoiceEnded> ended;
    while (!ended && engine.renderedFrame() < 20 * kMixRate) {
        engine.renderUntil(engine.renderedFrame() + kMixRate);
        engine.drainEvents([&](const VoiceEnded& event) { ended = event; });
    }
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->reason, VoiceEnded::Reason::finished);
    EXPECT_EQ(ended->frame, 3u * 192000u) << "three passes of 4 s, not a frame more or less";
    const OfflineAudio audio(samples);
    const float ownStep = static_cast<float>(0.5 * 0.7072 * 2.0 * M_PI * 375.0 / 48000.0) * 1.05f;
    EXPECT_LE(audio.maxStep(0, Voice::kStartRampFrames, 3 * 192000), ownStep) << "a click";
    for (std::size_t pass = 0; pass < 3; ++pass) {
        const std::size_t seam = pass * 192000;
        EXPECT_NEAR(audio.rms(0, seam + 4800, seam + 192000 - 4800), 0.5 * 0.7072 / std::sqrt(2.0),
                    1e-3)
            << "pass " << pass;
    }
    EXPECT_LE(engine.cache().bytes(), std::size_t{4} << 20);
}

} // namespace
} // namespace vantelo_sounds::engine
