// Recording the played mix: the frame ring between the audio thread and the writer (order,
// wrap-around, drops, two threads), the tap's file (limit, padding, errors), and a real-time
// null-output run whose recording holds the tone that was played.
#include "engine/output/MixTap.hpp"

#include <chrono>
#include <cmath>
#include <cstring>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/Engine.hpp"
#include "engine/output/FrameRing.hpp"
#include "engine/output/NullOutput.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::engine {
namespace {

// Interleaved frames whose left sample is the frame's number and right sample its negative.
std::vector<float> numbered(std::size_t first, std::size_t frames) {
    std::vector<float> samples(frames * 2);
    for (std::size_t i = 0; i < frames; ++i) {
        samples[2 * i] = static_cast<float>(first + i);
        samples[2 * i + 1] = -static_cast<float>(first + i);
    }
    return samples;
}

// The sample data of a WAV file written by WavWriter (its header is 58 bytes).
std::vector<float> wavSamples(const std::string& bytes) {
    if (bytes.size() < 58) {
        ADD_FAILURE() << "not a WAV file of ours: " << bytes.size() << " bytes";
        return {};
    }
    std::vector<float> samples((bytes.size() - 58) / 4);
    std::memcpy(samples.data(), bytes.data() + 58, samples.size() * 4);
    return samples;
}

TEST(FrameRingTest, KeepsOrderAcrossWrapAround) {
    FrameRing ring(5);
    std::vector<float> out(5 * 2);
    std::size_t next = 0;
    std::size_t expected = 0;
    // Pushes of 3 and pops of 2 or 3 walk the positions around the 5-frame storage many times.
    for (int round = 0; round < 20; ++round) {
        const auto in = numbered(next, 3);
        ASSERT_EQ(ring.push(in.data(), 3), 3u) << "round " << round;
        next += 3;
        const std::size_t want = round % 2 == 0 ? 2 : 3;
        const std::size_t taken = ring.pop(out.data(), want);
        for (std::size_t i = 0; i < taken; ++i, ++expected) {
            ASSERT_EQ(out[2 * i], static_cast<float>(expected)) << "round " << round;
            ASSERT_EQ(out[2 * i + 1], -static_cast<float>(expected));
        }
        // Whatever was not taken this round must still be there, next in line.
        const std::size_t rest = ring.pop(out.data(), 5);
        for (std::size_t i = 0; i < rest; ++i, ++expected) {
            ASSERT_EQ(out[2 * i], static_cast<float>(expected)) << "round " << round;
        }
    }
    EXPECT_EQ(expected, next);
    EXPECT_EQ(ring.dropped(), 0u);
}

TEST(FrameRingTest, AFullRingKeepsWhatFitsAndCountsTheRestAsDropped) {
    FrameRing ring(4);
    const auto in = numbered(0, 3);
    EXPECT_EQ(ring.push(in.data(), 3), 3u);
    EXPECT_EQ(ring.push(in.data(), 3), 1u); // one frame of room
    EXPECT_EQ(ring.dropped(), 2u);
    EXPECT_EQ(ring.push(in.data(), 3), 0u);
    EXPECT_EQ(ring.dropped(), 5u);
    EXPECT_EQ(ring.available(), 4u);

    std::vector<float> out(8);
    ASSERT_EQ(ring.pop(out.data(), 8), 4u);
    EXPECT_EQ(out, (std::vector<float>{0, -0, 1, -1, 2, -2, 0, -0}));
    EXPECT_EQ(ring.pop(out.data(), 1), 0u);
    ring.clear();
    EXPECT_EQ(ring.dropped(), 0u);
}

TEST(FrameRingTest, EveryFrameArrivesOnceAndInOrderBetweenTwoThreads) {
    constexpr std::size_t kFrames = 400000;
    FrameRing ring(257); // odd, so pushes and pops straddle the end at every offset
    const auto source = numbered(0, kFrames);
    std::thread producer([&] {
        std::size_t sent = 0;
        std::size_t block = 1;
        while (sent < kFrames) {
            const std::size_t frames = std::min(block, kFrames - sent);
            sent += ring.push(source.data() + 2 * sent, frames);
            block = block % 300 + 7; // blocks of changing sizes, some larger than the ring
            if (ring.available() == ring.capacity()) {
                std::this_thread::yield();
            }
        }
    });
    std::vector<float> out(2 * 100);
    std::size_t received = 0;
    bool inOrder = true;
    while (received < kFrames && inOrder) {
        const std::size_t taken = ring.pop(out.data(), 1 + received % 100);
        for (std::size_t i = 0; i < taken; ++i) {
            inOrder = inOrder && out[2 * i] == source[2 * (received + i)] &&
                      out[2 * i + 1] == source[2 * (received + i) + 1];
        }
        received += taken;
        if (taken == 0) {
            std::this_thread::yield();
        }
    }
    producer.join();
    EXPECT_TRUE(inOrder) << "out of order near frame " << received;
    EXPECT_EQ(received, kFrames);
    EXPECT_EQ(ring.available(), 0u);
}

class MixTapTest : public ::testing::Test {
protected:
    test::SoundFixtures mFixtures;
};

TEST_F(MixTapTest, WritesWhatWasPushedTrimmedToTheLimitAndPaddedWithSilence) {
    const std::string path = mFixtures.path("tap.wav");
    MixTap tap(256);
    std::string error;
    ASSERT_TRUE(tap.open(path, error, 100)) << error;
    for (std::size_t pushed = 0; pushed < 120; pushed += 30) {
        const auto block = numbered(pushed, 30);
        tap.push(block.data(), 30);
    }
    const MixTap::Result result = tap.close(150);
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.droppedFrames, 0u);
    EXPECT_EQ(result.framesWritten, 100u); // the limit wins over the padding

    const auto samples = wavSamples(test::SoundFixtures::readBytes(path));
    ASSERT_EQ(samples.size(), 200u);
    EXPECT_EQ(samples, numbered(0, 100));
}

TEST_F(MixTapTest, PadsAShortRecordingAndIgnoresPushesWhenClosed) {
    const std::string path = mFixtures.path("short.wav");
    MixTap tap;
    const auto block = numbered(1, 10);
    tap.push(block.data(), 10); // not recording: nothing happens
    std::string error;
    ASSERT_TRUE(tap.open(path, error)) << error;
    tap.push(block.data(), 10);
    const MixTap::Result result = tap.close(25);
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.framesWritten, 25u);
    tap.push(block.data(), 10);
    EXPECT_FALSE(tap.isOpen());

    auto expected = numbered(1, 10);
    expected.resize(50, 0.0f);
    EXPECT_EQ(wavSamples(test::SoundFixtures::readBytes(path)), expected);
}

TEST_F(MixTapTest, AFileThatCannotBeCreatedIsAnErrorAndNothingRecords) {
    Engine engine(std::make_unique<NullOutput>());
    std::string error;
    EXPECT_FALSE(engine.startRecordingMix(mFixtures.path("no/such/folder/mix.wav"), error));
    EXPECT_NE(error.find("mix.wav"), std::string::npos);
    EXPECT_FALSE(engine.isRecordingMix());
    EXPECT_FALSE(engine.stopRecordingMix().ok);
}

TEST_F(MixTapTest, TheRealTimeNullOutputRecordsTheToneItPlayed) {
    constexpr std::size_t kToneFrames = 9600; // 0.2 s
    constexpr double kAmplitude = 0.5;
    auto data = std::make_shared<SoundData>(1, kToneFrames);
    std::vector<float> sine(kToneFrames);
    for (std::size_t i = 0; i < kToneFrames; ++i) {
        sine[i] = static_cast<float>(kAmplitude *
                                     std::sin(2.0 * M_PI * 1000.0 * i / 48000.0 + 0.25 * M_PI));
    }
    data->append(sine.data(), sine.size());
    data->finish(true);

    const std::string path = mFixtures.path("played.wav");
    Engine engine(std::make_unique<NullOutput>());
    ASSERT_STREQ(engine.outputName(), "null");
    std::string error;
    ASSERT_TRUE(engine.startRecordingMix(path, error)) << error;
    ASSERT_TRUE(engine.start(data, {-1.0f, 1.0f, 0}));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::optional<VoiceEnded> ended;
    while (!ended && std::chrono::steady_clock::now() < deadline) {
        engine.drainEvents([&](const VoiceEnded& event) { ended = event; });
        std::this_thread::yield();
    }
    ASSERT_TRUE(ended);
    const MixTap::Result result = engine.stopRecordingMix();
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.droppedFrames, 0u);

    const auto samples = wavSamples(test::SoundFixtures::readBytes(path));
    ASSERT_EQ(samples.size(), 2 * result.framesWritten);
    ASSERT_GE(result.framesWritten, kToneFrames);
    // The tone is where it starts sounding: the block after the start command, hard left.
    std::size_t first = 0;
    while (first < result.framesWritten && samples[2 * first] == 0.0f) {
        ++first;
    }
    ASSERT_LE(first + kToneFrames, result.framesWritten);
    double left = 0.0;
    double right = 0.0;
    for (std::size_t i = first; i < first + kToneFrames; ++i) {
        left += samples[2 * i] * samples[2 * i];
        right += samples[2 * i + 1] * samples[2 * i + 1];
    }
    EXPECT_NEAR(std::sqrt(left / kToneFrames), kAmplitude / std::sqrt(2.0), 0.02);
    EXPECT_LT(std::sqrt(right / kToneFrames), 1e-3);
    for (std::size_t i = first + kToneFrames + 480; i < result.framesWritten; ++i) {
        ASSERT_EQ(samples[2 * i], 0.0f) << "sound after the tone ended, frame " << i;
    }
}

} // namespace
} // namespace vantelo_sounds::engine
