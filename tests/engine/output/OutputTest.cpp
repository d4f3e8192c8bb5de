// Outputs without a sound card: the WAV writer's file, readable while written; the ring and tap
// recording a real-time mix; SDL's dummy driver; the null output standing in for a lost device.
#include <atomic>
#include <cstring>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "engine/EngineSupport.hpp"
#include "engine/WavWriter.hpp"
#include "engine/output/MixTap.hpp"
#include "engine/output/NullOutput.hpp"
#include "engine/output/OutputError.hpp"
#include "engine/output/SdlOutput.hpp"
#include "engine/rt/FrameRing.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::WavFile;

/// Interleaved stereo frames whose left sample is the frame's number and right sample its negative.
std::vector<float> numbered(std::size_t first, std::size_t frames) {
    std::vector<float> samples;
    for (std::size_t i = first; i < first + frames; ++i) {
        samples.insert(samples.end(), {static_cast<float>(i), -static_cast<float>(i)});
    }
    return samples;
}

/// Waits, bounded, for the engine to report an end rendered by an output's own thread.
bool awaitEnd(Engine& engine) {
    bool ended = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!ended && std::chrono::steady_clock::now() < deadline) {
        engine.drainEvents([&](const VoiceEnded&) { ended = true; });
        std::this_thread::yield();
    }
    return ended;
}

class OutputTest : public ::testing::Test {
protected:
    test::SoundFixtures mFixtures;
};

TEST_F(OutputTest, WavWriterKeepsItsHeaderTrueWhileTheFileIsStillOpen) {
    const std::string path = mFixtures.path("growing.wav");
    WavWriter writer;
    ASSERT_TRUE(writer.open(path));
    EXPECT_EQ(WavFile::read(path).frames(), 0u);
    // One second reaches the header; the half second after it not yet.
    const auto second = numbered(0, WavWriter::kHeaderUpdateFrames);
    const auto half = numbered(WavWriter::kHeaderUpdateFrames, 24000);
    ASSERT_TRUE(writer.write(second.data(), WavWriter::kHeaderUpdateFrames));
    ASSERT_TRUE(writer.write(half.data(), 24000));

    const WavFile open = WavFile::read(path);
    EXPECT_EQ(std::tuple(open.format, open.channels, open.rate, open.bits),
              std::tuple(WavFile::kFloat, 2, 48000, 32));
    EXPECT_EQ(open.samples, second);

    ASSERT_TRUE(writer.close());
    const std::string bytes = test::SoundFixtures::readBytes(path);
    std::uint32_t riffSize = 0;
    std::memcpy(&riffSize, bytes.data() + 4, 4);
    EXPECT_EQ(riffSize, bytes.size() - 8);
    EXPECT_EQ(WavFile::read(path).frames(), 72000u);
}

// An odd capacity, so that pushes and pops straddle the end at every offset; blocks larger than
// the ring, so that pushes keep what fits and count the rest.
TEST(FrameRingTest, EveryFrameArrivesOnceAndInOrderBetweenTwoThreads) {
    constexpr std::size_t kFrames = 400000;
    FrameRing ring(257);
    const auto source = numbered(0, kFrames);
    std::uint64_t refused = 0;
    std::thread producer([&] {
        std::size_t sent = 0;
        for (std::size_t block = 1; sent < kFrames; block = block % 300 + 7) {
            const std::size_t offered = std::min(block, kFrames - sent);
            const std::size_t kept = ring.push(source.data() + 2 * sent, offered);
            sent += kept;
            refused += offered - kept;
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
        inOrder = std::equal(out.begin(), out.begin() + 2 * taken, source.begin() + 2 * received);
        received += taken;
        if (taken == 0) {
            std::this_thread::yield();
        }
    }
    producer.join();
    EXPECT_TRUE(inOrder) << "out of order near frame " << received;
    EXPECT_EQ(received, kFrames);
    EXPECT_GT(refused, 0u);
    EXPECT_EQ(ring.dropped(), refused);
}

TEST_F(OutputTest, TheTapWritesWhatWasPushedUpToTheLimitOrPaddedWithSilence) {
    const std::string path = mFixtures.path("tap.wav");
    MixTap tap(256);
    const auto block = numbered(0, 30);
    tap.push(block.data(), 30); // not recording: nothing happens
    ASSERT_TRUE(tap.open(path, 100));
    for (std::size_t pushed = 0; pushed < 120; pushed += 30) {
        tap.push(numbered(pushed, 30).data(), 30);
    }
    const auto limited = tap.close(150);
    ASSERT_TRUE(limited);
    EXPECT_EQ(limited->framesWritten, 100u); // the limit wins over the padding
    EXPECT_EQ(limited->droppedFrames, 0u);
    EXPECT_EQ(WavFile::read(path).samples, numbered(0, 100));

    ASSERT_TRUE(tap.open(path));
    tap.push(block.data(), 10);
    ASSERT_TRUE(tap.close(25));
    auto padded = numbered(0, 10);
    padded.resize(50, 0.0f);
    EXPECT_EQ(WavFile::read(path).samples, padded);
    EXPECT_FALSE(tap.isOpen());
}

std::chrono::nanoseconds steadyNow() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

TEST_F(OutputTest, TheSdlOutputRendersWithTheDummyDriver) {
    Engine engine(std::make_unique<SdlOutput>());
    if (!engine.startResult()) {
        GTEST_SKIP() << "SDL could not open a device: " << engine.startError();
    }
    ASSERT_STREQ(engine.outputName(), "sdl");
    ASSERT_TRUE(engine.start(constantSound(2400, 0.1f), {}));
    ASSERT_TRUE(awaitEnd(engine));
    EXPECT_GE(engine.renderedFrame(), 2400u);
    EXPECT_EQ(engine.pollOutput(steadyNow()), Engine::OutputChange::none);
}

} // namespace
} // namespace vantelo_sounds::engine
