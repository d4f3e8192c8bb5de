// Outputs: the WAV writer's file (readable while still being written), and the real-time outputs
// delivering ends without a sound card. (The manual output's file is checked by the offline render
// of AudioOutputTest and the command-line program's render.)
#include <atomic>
#include <cstring>

#include <gtest/gtest.h>

#include "engine/EngineSupport.hpp"
#include "engine/WavWriter.hpp"
#include "engine/output/NullOutput.hpp"
#include "engine/output/OutputError.hpp"
#include "engine/output/SdlOutput.hpp"
#include "support/SoundFixtures.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds::engine {
namespace {

using test::WavFile;

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
    EXPECT_EQ(open.format, WavFile::kFloat);
    EXPECT_EQ(open.channels, 2);
    EXPECT_EQ(open.rate, 48000);
    EXPECT_EQ(open.bits, 32);
    EXPECT_EQ(open.samples, second);

    ASSERT_TRUE(writer.close());
    const std::string bytes = test::SoundFixtures::readBytes(path);
    std::uint32_t riffSize = 0;
    std::memcpy(&riffSize, bytes.data() + 4, 4);
    EXPECT_EQ(riffSize, bytes.size() - 8);
    EXPECT_EQ(WavFile::read(path).frames(), 72000u);
}

TEST_F(OutputTest, APathThatCannotBeCreatedFailsWithItsErrnoAndNothingRecords) {
    const std::string path = mFixtures.path("no/such/folder/out.wav");
    WavWriter writer;
    const auto opened = writer.open(path);
    ASSERT_FALSE(opened);
    EXPECT_EQ(opened.error(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(opened.failure().detail, path);
    EXPECT_FALSE(writer.write(nullptr, 0));

    Engine engine(std::make_unique<NullOutput>());
    EXPECT_EQ(engine.startRecordingMix(path).error(), std::errc::no_such_file_or_directory);
    EXPECT_FALSE(engine.isRecordingMix());
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
    EXPECT_EQ(engine.pollOutput(), Engine::OutputChange::none);
}

// A device that can be unplugged by the test.
class FaultOutput final : public Output {
public:
    std::atomic<bool> unplugged{false};
    int starts = 0;
    const char* name() const noexcept override { return "fault"; }
    Expected<void> start(Mixer&) override {
        ++starts;
        return unplugged ? Expected<void>(OutputError::deviceUnavailable) : Expected<void>();
    }
    void stop() noexcept override {}
    bool lost() const noexcept override { return unplugged; }
};

TEST(OutputFallbackTest, ALostDeviceFallsBackToTheNullOutputAndComesBackWhenItReturns) {
    auto output = std::make_unique<FaultOutput>();
    FaultOutput& device = *output;
    Engine engine(std::move(output));
    engine.setReopenDelay(std::chrono::milliseconds(0));
    EXPECT_EQ(engine.pollOutput(), Engine::OutputChange::none);

    device.unplugged = true;
    EXPECT_EQ(engine.pollOutput(), Engine::OutputChange::lost);
    EXPECT_STREQ(engine.outputName(), "null");
    // The null output keeps the mix going: a voice still ends.
    ASSERT_TRUE(engine.start(constantSound(2400, 0.1f), {}));
    EXPECT_TRUE(awaitEnd(engine));
    // Reopening fails while unplugged, and the null output stays.
    EXPECT_EQ(engine.pollOutput(), Engine::OutputChange::none);
    EXPECT_STREQ(engine.outputName(), "null");

    device.unplugged = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    Engine::OutputChange change = Engine::OutputChange::none;
    while (change == Engine::OutputChange::none && std::chrono::steady_clock::now() < deadline) {
        change = engine.pollOutput();
        std::this_thread::yield();
    }
    EXPECT_EQ(change, Engine::OutputChange::restored);
    EXPECT_STREQ(engine.outputName(), "fault");
    EXPECT_GE(device.starts, 2);
}

} // namespace
} // namespace vantelo_sounds::engine
