// The encoder (its M4A, MP3, FLAC and Ogg round trips are the decoder's format matrix): exact
// float WAV, fragmented M4A that survives being cut off, non-finite input, refused parameters.

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

TEST_F(AudioFileWriterTest, FragmentedM4aKeepsAllButTheLastFragmentWhenCutOff) {
    AudioFileWriter::Options options;
    options.fragmented = true;
    options.fragmentSeconds = 0.5;
    const std::string whole =
        fixtures.encoded("frag.m4a", AudioFileFormat::m4a, 440, 3.0, 16000, 1, 0.5f, options);
    ASSERT_FALSE(whole.empty());
    // With the trailer: the whole sound plus the encoder's priming (no edit list when fragmented).
    EXPECT_NEAR(double(decodeFile(whole).frames()), 3.064 * engine::kMixRate, 3072);

    // Cut off as a crash would leave it: everything up to some fragment boundary still plays.
    const std::string bytes = SoundFixtures::readBytes(whole);
    const DecodedSound cut =
        decodeFile(fixtures.writeBytes("cut.m4a", bytes.substr(0, bytes.size() * 3 / 4)));
    EXPECT_GE(double(cut.frames()) / engine::kMixRate, 1.5);
    EXPECT_NEAR(cut.audio().zeroCrossingFrequency(0, 4800, cut.frames() - 4800), 440, 5);
}

// A stereo sine, left and right apart, with non-finite samples that must be written as silence.
TEST_F(AudioFileWriterTest, FloatWavIsExactAndNonFiniteSamplesAreWrittenAsSilence) {
    std::vector<float> samples(2 * 24000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = (i % 2 ? -0.25f : 0.5f) *
                     float(std::sin(2 * std::numbers::pi * 440 * double(i / 2) / 48000));
    }
    auto expected = samples;
    for (const std::size_t at : {100, 5001, 9000}) {
        expected[at] = 0.0f;
    }
    samples[100] = std::numeric_limits<float>::quiet_NaN();
    samples[5001] = std::numeric_limits<float>::infinity();
    samples[9000] = -std::numeric_limits<float>::infinity();
    for (const AudioFileFormat format : {AudioFileFormat::wavFloat, AudioFileFormat::m4a}) {
        AudioFileWriter writer;
        const std::string file = fixtures.path(std::string("nan.") + engine::extensionFor(format));
        ASSERT_TRUE(writer.open(file, format, 48000, 2));
        ASSERT_TRUE(writer.write(samples.data(), 24000));
        EXPECT_EQ(writer.framesWritten(), 24000u);
        ASSERT_TRUE(writer.close());
        const DecodedSound sound = decodeFile(file);
        EXPECT_TRUE(sound.audio().allFiniteAndInRange());
        EXPECT_EQ(sound.frames(), 24000u);
        if (format == AudioFileFormat::wavFloat) {
            EXPECT_EQ(sound.stereo, expected);
        }
    }
}

TEST_F(AudioFileWriterTest, BadParametersAreErrors) {
    AudioFileWriter writer;
    EXPECT_EQ(writer.open(fixtures.path("three.wav"), AudioFileFormat::wav16, 48000, 3).error(),
              engine::WriteError::badParameters);
    EXPECT_EQ(writer.open(fixtures.path("rate.wav"), AudioFileFormat::wav16, 0, 1).error(),
              engine::WriteError::badParameters);
    const auto missingFolder =
        writer.open(fixtures.path("no/such/folder/x.m4a"), AudioFileFormat::m4a, 16000, 1);
    EXPECT_EQ(missingFolder.error(), std::errc::no_such_file_or_directory);
    EXPECT_NE(missingFolder.failure().detail.find("cannot create the file"), std::string::npos);
    EXPECT_FALSE(writer.isOpen());
    EXPECT_EQ(writer.write(nullptr, 10).error(), engine::WriteError::notOpen);
    EXPECT_TRUE(writer.close()) << "closing while closed is fine";
}

} // namespace
} // namespace vantelo_sounds::test
