// Outputs: the WAV writer's file, the manual output rendering into one, and the real-time outputs
// (null, and SDL with its dummy driver) delivering ends without a sound card. Real-time cases
// wait, bounded, for the output's own thread; they never need a device.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/Engine.hpp"
#include "engine/WavWriter.hpp"
#include "engine/output/ManualOutput.hpp"
#include "engine/output/NullOutput.hpp"
#include "engine/output/SdlOutput.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::engine {
namespace {

std::uint32_t read32(const std::string& bytes, std::size_t at) {
    std::uint32_t v = 0;
    std::memcpy(&v, bytes.data() + at, 4);
    return v;
}

std::uint16_t read16(const std::string& bytes, std::size_t at) {
    std::uint16_t v = 0;
    std::memcpy(&v, bytes.data() + at, 2);
    return v;
}

// The sample data of a WAV file written by WavWriter (its header is 58 bytes).
std::vector<float> wavSamples(const std::string& bytes) {
    std::vector<float> samples((bytes.size() - 58) / 4);
    std::memcpy(samples.data(), bytes.data() + 58, samples.size() * 4);
    return samples;
}

class OutputTest : public ::testing::Test {
protected:
    test::SoundFixtures mFixtures;
};

TEST_F(OutputTest, WavWriterWritesAFloatStereoHeaderThatMatchesTheData) {
    const std::string path = mFixtures.path("out.wav");
    WavWriter writer;
    std::string error;
    ASSERT_TRUE(writer.open(path, error)) << error;
    const std::vector<float> frames = {0.5f, -0.5f, 0.25f, -0.25f, 1.0f, -1.0f};
    ASSERT_TRUE(writer.write(frames.data(), 3));
    ASSERT_TRUE(writer.close());

    const std::string bytes = test::SoundFixtures::readBytes(path);
    ASSERT_EQ(bytes.size(), 58u + 24u);
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(read32(bytes, 4), bytes.size() - 8);
    EXPECT_EQ(bytes.substr(8, 4), "WAVE");
    EXPECT_EQ(read16(bytes, 20), 3u); // IEEE float
    EXPECT_EQ(read16(bytes, 22), 2u);
    EXPECT_EQ(read32(bytes, 24), 48000u);
    EXPECT_EQ(read16(bytes, 34), 32u);
    EXPECT_EQ(bytes.substr(50, 4), "data");
    EXPECT_EQ(read32(bytes, 54), 24u);
    EXPECT_EQ(wavSamples(bytes), frames);
}

TEST_F(OutputTest, WavWriterReportsAPathItCannotCreate) {
    WavWriter writer;
    std::string error;
    EXPECT_FALSE(writer.open(mFixtures.path("no/such/folder/out.wav"), error));
    EXPECT_NE(error.find("out.wav"), std::string::npos);
    EXPECT_FALSE(writer.write(nullptr, 0));
}

TEST_F(OutputTest, TheManualOutputRendersExactlyTheFramesAskedIntoItsFile) {
    const std::string path = mFixtures.path("render.wav");
    {
        Engine engine(std::make_unique<ManualOutput>(path));
        auto data = std::make_shared<SoundData>(1, 4800);
        const std::vector<float> samples(4800, 0.5f);
        data->append(samples.data(), samples.size());
        data->finish(true);
        ASSERT_TRUE(engine.start(data, {-1.0f, 1.0f, 0}, 1000));
        EXPECT_EQ(engine.renderUntil(20000), 5800u);
        EXPECT_EQ(engine.renderUntil(20000), 20000u);
    }
    const auto samples = wavSamples(test::SoundFixtures::readBytes(path));
    ASSERT_EQ(samples.size(), 2u * 20000u);
    EXPECT_EQ(samples[2 * 999], 0.0f);
    EXPECT_GT(samples[2 * 1000], 0.0f);
    EXPECT_EQ(samples[2 * 3000], 0.5f);
    EXPECT_EQ(samples[2 * 3000 + 1], 0.0f);
    EXPECT_EQ(samples[2 * 5800], 0.0f);
}

// Waits, bounded, for the engine to report an end rendered by an output's own thread.
std::optional<VoiceEnded> awaitEnd(Engine& engine, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::optional<VoiceEnded> ended;
    while (!ended && std::chrono::steady_clock::now() < deadline) {
        engine.drainEvents([&](const VoiceEnded& event) { ended = event; });
        std::this_thread::yield();
    }
    return ended;
}

std::shared_ptr<SoundData> shortTone() {
    auto data = std::make_shared<SoundData>(1, 2400);
    const std::vector<float> samples(2400, 0.1f); // 50 ms
    data->append(samples.data(), samples.size());
    data->finish(true);
    return data;
}

TEST_F(OutputTest, TheNullOutputEndsVoicesInRealTime) {
    Engine engine(std::make_unique<NullOutput>());
    ASSERT_STREQ(engine.outputName(), "null");
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(engine.start(shortTone(), {}));
    const auto ended = awaitEnd(engine, std::chrono::seconds(5));
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->reason, VoiceEnded::Reason::finished);
    // Paced, not rushed: 50 ms of sound takes at least about 50 ms less one block of lead.
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(25));
}

TEST_F(OutputTest, TheSdlOutputRendersWithTheDummyDriver) {
    Engine engine(std::make_unique<SdlOutput>());
    if (!engine.startError().empty()) {
        GTEST_SKIP() << "SDL could not open a device: " << engine.startError();
    }
    ASSERT_STREQ(engine.outputName(), "sdl");
    ASSERT_TRUE(engine.start(shortTone(), {}));
    const auto ended = awaitEnd(engine, std::chrono::seconds(5));
    ASSERT_TRUE(ended);
    EXPECT_GE(engine.renderedFrame(), 2400u);
    EXPECT_EQ(engine.pollOutput(), Engine::OutputChange::none);
}

} // namespace
} // namespace vantelo_sounds::engine

namespace vantelo_sounds::engine {
namespace {

// A device that can be unplugged by the test.
class FaultOutput final : public Output {
public:
    std::atomic<bool> unplugged{false};
    int starts = 0;
    const char* name() const noexcept override { return "fault"; }
    bool start(Mixer&, std::string& error) override {
        ++starts;
        if (unplugged) {
            error = "no device";
            return false;
        }
        return true;
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
    ASSERT_TRUE(engine.start(shortTone(), {}));
    EXPECT_TRUE(awaitEnd(engine, std::chrono::seconds(5)));
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
