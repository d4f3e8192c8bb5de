// The encoder: round trips through the decoder (pitch, duration, level), fragmented M4A that
// survives being cut off, non-finite input, and refused parameters.

#include "engine/codec/AudioFileWriter.hpp"

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/DecodedSound.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::AudioFileFormat;
using engine::AudioFileWriter;

class AudioFileWriterTest : public ::testing::Test {
protected:
    SoundFixtures fixtures;
};

TEST_F(AudioFileWriterTest, M4aAt16kMonoRoundTripsWithinOneAacFrame) {
    const std::string file =
        fixtures.encoded("voice.m4a", AudioFileFormat::m4a, 440, 3.0, 16000, 1, 0.5f);
    ASSERT_FALSE(file.empty());
    const DecodedSound sound = decodeFile(file);
    EXPECT_EQ(sound.info.codec, "aac");
    EXPECT_EQ(sound.info.sourceRate, 16000);
    ASSERT_EQ(sound.channels, 1);
    const double aacFrameAtMixRate = 1024.0 * engine::kMixRate / 16000;
    EXPECT_NEAR(double(sound.frames()), 3.0 * engine::kMixRate, aacFrameAtMixRate);
    EXPECT_NEAR(sound.frequency(0, 4800, sound.frames() - 4800), 440, 2);
    EXPECT_NEAR(sound.rms(0, 4800, sound.frames() - 4800), 0.5 / std::sqrt(2.0), 0.03);
}

TEST_F(AudioFileWriterTest, FragmentedM4aKeepsAllButTheLastFragmentWhenCutOff) {
    AudioFileWriter::Options options;
    options.fragmented = true;
    options.fragmentSeconds = 0.5;
    const std::string whole =
        fixtures.encoded("frag.m4a", AudioFileFormat::m4a, 440, 3.0, 16000, 1, 0.5f, options);
    ASSERT_FALSE(whole.empty());
    // With the trailer: the whole sound plus the encoder's priming (no edit list when fragmented).
    const DecodedSound complete = decodeFile(whole);
    EXPECT_NEAR(double(complete.frames()), 3.064 * engine::kMixRate, 3072);

    // Cut off as a crash would leave it: everything up to some fragment boundary still plays.
    const std::string bytes = SoundFixtures::readBytes(whole);
    const DecodedSound cut =
        decodeFile(fixtures.writeBytes("cut.m4a", bytes.substr(0, bytes.size() * 3 / 4)));
    EXPECT_GE(double(cut.frames()) / engine::kMixRate, 1.5);
    EXPECT_NEAR(cut.frequency(0, 4800, cut.frames() - 4800), 440, 2);
}

TEST_F(AudioFileWriterTest, NonFiniteSamplesAreWrittenAsSilence) {
    std::vector<float> samples(16000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = 0.5f * float(std::sin(2 * std::numbers::pi * 440 * double(i) / 16000));
    }
    samples[100] = std::numeric_limits<float>::quiet_NaN();
    samples[5000] = std::numeric_limits<float>::infinity();
    samples[9000] = -std::numeric_limits<float>::infinity();
    for (const AudioFileFormat format : {AudioFileFormat::m4a, AudioFileFormat::wavFloat}) {
        AudioFileWriter writer;
        const std::string file = fixtures.path(std::string("nan.") + engine::extensionFor(format));
        ASSERT_FALSE(writer.open(file, format, 16000, 1));
        ASSERT_FALSE(writer.write(samples.data(), samples.size()));
        ASSERT_FALSE(writer.close());
        const DecodedSound sound = decodeFile(file);
        EXPECT_TRUE(sound.allFinite());
        EXPECT_NEAR(double(sound.frames()), engine::kMixRate, 3072);
    }
}

TEST_F(AudioFileWriterTest, StereoWavFloatIsExact) {
    std::vector<float> samples{0.25f, -0.25f, 0.5f, -0.5f, 1.0f, -1.0f};
    AudioFileWriter writer;
    const std::string file = fixtures.path("exact.wav");
    ASSERT_FALSE(writer.open(file, AudioFileFormat::wavFloat, 48000, 2));
    ASSERT_FALSE(writer.write(samples.data(), 3));
    EXPECT_EQ(writer.framesWritten(), 3u);
    ASSERT_FALSE(writer.close());
    EXPECT_FALSE(writer.isOpen());
    const DecodedSound sound = decodeFile(file);
    EXPECT_EQ(sound.samples, samples);
}

TEST_F(AudioFileWriterTest, BadParametersAreErrors) {
    AudioFileWriter writer;
    EXPECT_TRUE(writer.open(fixtures.path("three.wav"), AudioFileFormat::wav16, 48000, 3));
    EXPECT_TRUE(writer.open(fixtures.path("rate.wav"), AudioFileFormat::wav16, 0, 1));
    auto error = writer.open(fixtures.path("no/such/folder/x.m4a"), AudioFileFormat::m4a, 16000, 1);
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->detail.empty());
    EXPECT_FALSE(writer.isOpen());
    EXPECT_TRUE(writer.write(nullptr, 10)) << "writing while closed";
    EXPECT_FALSE(writer.close()) << "closing while closed is fine";
}

} // namespace
} // namespace vantelo_sounds::test
