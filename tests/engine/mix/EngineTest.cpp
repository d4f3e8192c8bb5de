// The engine on the manual output: the pool's limit, stale handles, data released on drain, a
// long loop streamed. (Back-to-back voices: AudioPlayerTest.)
#include "engine/Engine.hpp"

#include <vector>

#include <gtest/gtest.h>

#include "engine/EngineSupport.hpp"
#include "engine/output/ManualOutput.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::OfflineAudio;

// A pool of one voice: the second start is refused; the end frees the slot and releases the sound
// data when it is drained, not before; a handle to the slot's previous voice changes nothing.
TEST(EngineTest, AFullPoolRefusesCleanlyAndAStaleHandleNeverReachesTheVoiceReusingItsSlot) {
    Engine engine(std::make_unique<ManualOutput>(), 1);
    std::vector<float> samples;
    engine.manualOutput()->setCapture(&samples);
    std::size_t ended = 0;
    const auto drain = [&] {
        engine.drainEvents([&](const VoiceEnded&) { ++ended; });
    };
    auto shortSound = constantSound(100, 0.001f);
    const std::weak_ptr<SoundData> released = shortSound;
    const auto stale = engine.start(std::move(shortSound), {});
    ASSERT_TRUE(stale);
    EXPECT_FALSE(engine.start(constantSound(100, 0.5f), {}));
    EXPECT_TRUE(engine.isActive(*stale));

    EXPECT_EQ(engine.renderUntil(1000), 100u);
    EXPECT_FALSE(released.expired());
    drain();
    EXPECT_EQ(ended, 1u);
    EXPECT_TRUE(released.expired());
    EXPECT_EQ(engine.voicesInUse(), 0u);

    const auto reused = engine.start(constantSound(48000, 0.5f), {});
    ASSERT_TRUE(reused);
    ASSERT_EQ(reused->slot, stale->slot);
    engine.stop(*stale, engine.renderedFrame());
    engine.pause(*stale, engine.renderedFrame());
    EXPECT_FALSE(engine.isActive(*stale));
    EXPECT_TRUE(engine.isActive(*reused));
    engine.renderUntil(2000);
    drain();
    EXPECT_EQ(ended, 1u);
    EXPECT_GT(OfflineAudio(samples).rms(0, 1000, 2000), 0.3);
}

// A render that did not wait for the cache to refill the stream's one-second window would leave
// the voice silent meanwhile: it would click and end late.
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
