// The speech worker through the engine, rendered offline: a text is heard for about its spoken
// length, a long text starts at once and stops with its voice, and a voice that does not exist
// fails its utterance without holding up the next.
#include "engine/speech/SpeechWorker.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/Engine.hpp"
#include "engine/output/ManualOutput.hpp"
#include "engine/sound/SoundStream.hpp"
#include "support/OfflineAudio.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::OfflineAudio;

class SpeechWorkerTest : public ::testing::Test {
protected:
    SpeechWorkerTest() { mEngine.manualOutput()->setCapture(&mSamples); }

    VoiceHandle say(const std::string& text, const std::string& voice = "gmw/en") {
        auto voiceHandle = mEngine.start(mEngine.speech().speak({text, voice, "en", 175}), {});
        EXPECT_TRUE(voiceHandle);
        return voiceHandle.value_or(VoiceHandle{});
    }
    // Renders until a voice ends (or `limit` frames); the end it saw.
    std::optional<VoiceEnded> renderToEnd(std::size_t limit = 60 * kMixRate) {
        std::optional<VoiceEnded> ended;
        const std::uint64_t last = mEngine.renderedFrame() + limit;
        while (!ended && mEngine.renderedFrame() < last) {
            mEngine.renderUntil(mEngine.renderedFrame() + ManualOutput::kBlockFrames);
            mEngine.drainEvents([&](const VoiceEnded& event) { ended = event; });
        }
        return ended;
    }

    Engine mEngine{std::make_unique<ManualOutput>()};
    std::vector<float> mSamples;
};

TEST_F(SpeechWorkerTest, ATextIsHeardForAboutItsSpokenLengthThenEnds) {
    say("Hello world");
    const auto ended = renderToEnd();
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->reason, VoiceEnded::Reason::finished);
    // espeak-ng speaks "Hello world" in about 0.73 s (its length varies by a few samples).
    EXPECT_NEAR(static_cast<double>(ended->frame) / kMixRate, 0.73, 0.15);
    const OfflineAudio audio(mSamples);
    EXPECT_GT(audio.rms(0, 0, ended->frame), 0.02) << "speech, not silence";
    EXPECT_NEAR(audio.rms(0, 0, ended->frame), audio.rms(1, 0, ended->frame), 1e-6) << "centred";
    EXPECT_TRUE(audio.allFiniteAndInRange());
}

TEST_F(SpeechWorkerTest, AHundredKilobyteTextStartsAtOnceAndStopsWithItsVoice) {
    std::string text;
    while (text.size() < 100'000) {
        text += "The quick brown fox jumps over the lazy dog. ";
    }
    const VoiceHandle voice = say(text);
    mEngine.renderUntil(kMixRate / 2);
    const OfflineAudio heard(mSamples);
    ASSERT_TRUE(heard.firstNonSilentFrame(1e-3f));
    EXPECT_LT(*heard.firstNonSilentFrame(1e-3f), kMixRate / 5)
        << "speech starts with its first piece";

    mEngine.stop(voice);
    const auto ended = renderToEnd();
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->reason, VoiceEnded::Reason::stopped);
    EXPECT_LT(ended->frame, kMixRate / 2 + 2 * ManualOutput::kBlockFrames);

    // The worker let the long text go: the next one is spoken.
    say("Next");
    const auto next = renderToEnd();
    ASSERT_TRUE(next);
    EXPECT_EQ(next->reason, VoiceEnded::Reason::finished);
}

TEST_F(SpeechWorkerTest, AVoiceThatDoesNotExistFailsItsUtteranceAndTheNextIsSpoken) {
    say("Nobody says this", "xx/none");
    const auto failed = renderToEnd();
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->reason, VoiceEnded::Reason::failed);
    say("");
    const auto empty = renderToEnd();
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->reason, VoiceEnded::Reason::finished)
        << "an empty text is an utterance of no length";
}

} // namespace
} // namespace vantelo_sounds::engine
