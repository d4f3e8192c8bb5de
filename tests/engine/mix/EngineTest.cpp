// The engine on the control thread with the manual output: the voice pool's limit, stale handles,
// sound data released when an end is drained, and manual renders that wait for a slow producer.
#include "engine/Engine.hpp"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/output/ManualOutput.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/OfflineAudio.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::OfflineAudio;

std::shared_ptr<SoundData> constantSound(std::size_t frames, float value, bool complete = true) {
    auto data = std::make_shared<SoundData>(1, frames + 1);
    const std::vector<float> samples(frames, value);
    data->append(samples.data(), frames);
    if (complete) {
        data->finish(true);
    }
    return data;
}

class EngineTest : public ::testing::Test {
protected:
    EngineTest()
        : mEngine(std::make_unique<ManualOutput>()) {
        mEngine.manualOutput()->setCapture(&mSamples);
    }
    std::vector<VoiceEnded> drain() {
        std::vector<VoiceEnded> ended;
        mEngine.drainEvents([&](const VoiceEnded& event) { ended.push_back(event); });
        return ended;
    }

    Engine mEngine;
    std::vector<float> mSamples;
};

TEST_F(EngineTest, ThePoolRefusesOneVoiceTooManyCleanlyAndFreesSlotsOnDrain) {
    const auto data = constantSound(100, 0.001f);
    std::vector<VoiceHandle> voices;
    for (std::size_t i = 0; i < mEngine.voiceCapacity(); ++i) {
        const auto voice = mEngine.start(data, {});
        ASSERT_TRUE(voice) << "voice " << i;
        voices.push_back(*voice);
    }
    EXPECT_EQ(mEngine.voiceCapacity(), Mixer::kDefaultVoices);
    EXPECT_FALSE(mEngine.start(data, {}));
    EXPECT_TRUE(std::all_of(voices.begin(), voices.end(),
                            [&](VoiceHandle v) { return mEngine.isActive(v); }));

    EXPECT_EQ(mEngine.renderUntil(1000), 100u);
    EXPECT_EQ(drain().size(), voices.size());
    EXPECT_EQ(mEngine.voicesInUse(), 0u);
    EXPECT_TRUE(mEngine.start(data, {}));
    EXPECT_TRUE(OfflineAudio(mSamples).allFiniteAndInRange());
}

TEST_F(EngineTest, AStaleHandleNeverReachesTheVoiceThatReusedItsSlot) {
    // Fill every slot once so that the next start must reuse a slot.
    const auto shortSound = constantSound(10, 0.5f);
    std::vector<VoiceHandle> old;
    for (std::size_t i = 0; i < mEngine.voiceCapacity(); ++i) {
        old.push_back(*mEngine.start(shortSound, {}));
    }
    mEngine.renderUntil(100);
    drain();
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
    EXPECT_TRUE(drain().empty());
    EXPECT_GT(OfflineAudio(mSamples).rms(0, 1000, 2000), 0.3);
}

TEST_F(EngineTest, SoundDataIsReleasedWhenTheEndIsDrainedNotBefore) {
    auto data = constantSound(100, 0.5f);
    std::weak_ptr<SoundData> weak = data;
    ASSERT_TRUE(mEngine.start(std::move(data), {}));
    mEngine.renderUntil(500);
    EXPECT_FALSE(weak.expired());
    ASSERT_EQ(drain().size(), 1u);
    EXPECT_TRUE(weak.expired());
}

TEST_F(EngineTest, RenderStopsOnEachEndSoTheNextVoiceCanStartOnThatFrame) {
    const auto first = constantSound(700, 0.5f);
    const auto second = constantSound(300, 0.25f);
    ASSERT_TRUE(mEngine.start(first, {-1.0f, 1.0f, 0}, 0));
    EXPECT_EQ(mEngine.renderUntil(5000), 700u);
    const auto ended = drain();
    ASSERT_EQ(ended.size(), 1u);
    ASSERT_TRUE(mEngine.start(second, {-1.0f, 1.0f, 0}, ended[0].frame));
    EXPECT_EQ(mEngine.renderUntil(5000), 1000u);
    EXPECT_EQ(mEngine.renderUntil(5000), 5000u);
    const OfflineAudio audio(mSamples);
    EXPECT_FLOAT_EQ(audio.sample(699, 0), 0.5f);
    EXPECT_FLOAT_EQ(audio.sample(700, 0), 0.25f / Voice::kStartRampFrames);
    EXPECT_EQ(audio.endOfSound(), 1000u);
}

TEST_F(EngineTest, AManualRenderWaitsForASlowProducerSoTheMixIsTheSameEveryTime) {
    auto data = std::make_shared<SoundData>(1, 48000);
    ASSERT_TRUE(mEngine.start(data, {-1.0f, 1.0f, 0}));
    std::thread producer([data] {
        const std::vector<float> chunk(480, 0.5f);
        for (int i = 0; i < 50; ++i) {
            data->append(chunk.data(), chunk.size());
            std::this_thread::sleep_for(std::chrono::microseconds(300));
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

} // namespace
} // namespace vantelo_sounds::engine
