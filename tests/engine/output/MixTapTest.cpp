// Recording the played mix. Test plan for the frame ring between the audio thread and the writer:
// order across wrap-around, a full ring keeping what fits and counting the rest, and every frame
// arriving once and in order between two threads. Then the tap's file (limit, padding) and a
// real-time null-output run whose recording holds the tone that was played.
#include "engine/output/MixTap.hpp"

#include <thread>

#include <gtest/gtest.h>

#include "engine/EngineSupport.hpp"
#include "engine/output/FrameRing.hpp"
#include "engine/output/NullOutput.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::WavFile;

TEST(FrameRingTest, AFullRingKeepsWhatFitsCountsTheRestAndWrapsAroundInOrder) {
    FrameRing ring(4);
    const auto in = numbered(0, 3);
    EXPECT_EQ(ring.push(in.data(), 3), 3u);
    EXPECT_EQ(ring.push(in.data(), 3), 1u); // one frame of room
    EXPECT_EQ(ring.push(in.data(), 3), 0u);
    EXPECT_EQ(ring.dropped(), 5u);

    std::vector<float> out(8);
    ASSERT_EQ(ring.pop(out.data(), 8), 4u);
    EXPECT_EQ(out, (std::vector<float>{0, -0, 1, -1, 2, -2, 0, -0}));
    EXPECT_EQ(ring.pop(out.data(), 1), 0u);
    // The next frames straddle the end of the storage and come out whole and in order.
    EXPECT_EQ(ring.push(numbered(10, 3).data(), 3), 3u);
    ASSERT_EQ(ring.pop(out.data(), 4), 3u);
    EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 6), numbered(10, 3));
}

TEST(FrameRingTest, EveryFrameArrivesOnceAndInOrderBetweenTwoThreads) {
    constexpr std::size_t kFrames = 400000;
    FrameRing ring(257); // odd, so pushes and pops straddle the end at every offset
    const auto source = numbered(0, kFrames);
    std::thread producer([&] {
        std::size_t sent = 0;
        for (std::size_t block = 1; sent < kFrames; block = block % 300 + 7) {
            sent += ring.push(source.data() + 2 * sent, std::min(block, kFrames - sent));
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
}

class MixTapTest : public ::testing::Test {
protected:
    test::SoundFixtures mFixtures;
};

TEST_F(MixTapTest, WritesWhatWasPushedUpToTheLimitOrPaddedWithSilence) {
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

TEST_F(MixTapTest, TheRealTimeNullOutputRecordsTheToneItPlayed) {
    constexpr std::size_t kToneFrames = 9600; // 0.2 s
    const std::string path = mFixtures.path("played.wav");
    Engine engine(std::make_unique<NullOutput>());
    ASSERT_TRUE(engine.startRecordingMix(path));
    ASSERT_TRUE(engine.start(constantSound(kToneFrames, 0.5f), {-1.0f, 1.0f, 0}));
    ASSERT_TRUE(awaitEnd(engine));
    const auto recorded = engine.stopRecordingMix();
    ASSERT_TRUE(recorded);
    EXPECT_EQ(recorded->droppedFrames, 0u);

    // The tone is where it starts sounding (the block after the start command), hard left, and
    // silence follows its end.
    const WavFile wav = WavFile::read(path);
    ASSERT_EQ(wav.frames(), recorded->framesWritten);
    const test::OfflineAudio audio(wav.samples);
    const auto first = audio.firstNonSilentFrame();
    ASSERT_TRUE(first);
    EXPECT_NEAR(audio.rms(0, *first + 480, *first + kToneFrames - 480), 0.5, 0.01);
    EXPECT_EQ(audio.peak(1, *first, *first + kToneFrames), 0.0f);
    EXPECT_EQ(audio.peak(0, *first + kToneFrames + 480), 0.0f);
}

} // namespace
} // namespace vantelo_sounds::engine
