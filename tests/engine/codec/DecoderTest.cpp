// Decoding: every format at its exact length, seamless, at its pitch and level; bad files refused
// with their reason, odd and damaged ones played as far as they go; the encoder's float WAV.
#include "engine/codec/Decoder.hpp"

#include <cstdlib>
#include <numbers>
#include <optional>

#include <gtest/gtest.h>

#include "engine/sound/SoundData.hpp"
#include "support/DecodedSound.hpp"
#include "support/NamedCase.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::AudioFileFormat;
using engine::Decoder;
using engine::OpenError;
using BadFile = SoundFixtures::BadFile;
using WavEncoding = SoundFixtures::WavEncoding;

constexpr double kSeconds = 0.5; // whole periods of every test tone
constexpr float kAmplitude = 0.5f;

struct DecodeCase : NamedCase { // the name is also the file's
    std::string (*make)(SoundFixtures&, const DecodeCase&);
    int rate;
    int channels;
    double hz;
    bool lossy;
};

/// The decoder's files, made as its cases need them, removed when the program ends.
SoundFixtures& fixtures() {
    static SoundFixtures files;
    return files;
}

// ---- the format matrix --------------------------------------------------------------------

template <WavEncoding encoding>
std::string wav(SoundFixtures& f, const DecodeCase& c) {
    return f.tone(std::string(c.name) + ".wav", c.hz, kSeconds, c.rate, c.channels, kAmplitude,
                  encoding);
}
template <AudioFileFormat format>
std::string written(SoundFixtures& f, const DecodeCase& c) {
    return f.encoded(std::string(c.name) + "." + engine::extensionFor(format), format, c.hz,
                     kSeconds, c.rate, c.channels, kAmplitude);
}
// What the library never writes (AIFF, CAF, Opus): the case's WAV converted by the ffmpeg program.
template <const char* extension, const char* codec>
std::string converted(SoundFixtures& f, const DecodeCase& c) {
    const std::string from = wav<WavEncoding::pcm16>(f, c);
    const std::string to = f.path(std::string(c.name) + "." + extension);
    const std::string command =
        "ffmpeg -nostdin -loglevel error -y -i '" + from + "' -c:a " + codec + " '" + to + "'";
    return std::system(command.c_str()) == 0 ? to : "";
}
constexpr char kAiff[] = "aiff", kCaf[] = "caf", kOpus[] = "opus", kS16be[] = "pcm_s16be",
               kLibopus[] = "libopus";

using DecodeMatrix = ::testing::TestWithParam<DecodeCase>;

// Every format states its exact length (a sample count, an edit list, a granule position, the
// LAME tag), so the encoder's delay and padding are cut to the frame.
TEST_P(DecodeMatrix, DecodesToItsStatedLengthAndLoopsWithoutASeam) {
    const DecodeCase& c = GetParam();
    const std::string file = c.make(fixtures(), c);
    ASSERT_FALSE(file.empty()) << "this FFmpeg cannot write " << c.name;
    const DecodedSound sound = decodeFile(file);
    EXPECT_EQ(sound.info.sourceRate, c.rate);
    EXPECT_EQ(sound.info.sourceChannels, c.channels);
    EXPECT_EQ(sound.info.channels, std::min(c.channels, 2))
        << "mono stays mono, the rest is stereo";
    EXPECT_FALSE(sound.failed);
    ASSERT_EQ(sound.frames(), std::size_t(kSeconds * engine::kMixRate));
    const OfflineAudio audio = sound.audio();
    EXPECT_TRUE(audio.allFiniteAndInRange());

    // Across the seam (the last frames, then the next pass's first) the steps are the sine's own,
    // give or take a lossy codec's edges or a resampler's filter seeing silence before frame 0.
    const double sineStep = 2 * std::numbers::pi * c.hz / engine::kMixRate * kAmplitude;
    const double edgeError = c.lossy                      ? 0.05 * kAmplitude
                             : c.rate != engine::kMixRate ? 0.03 * kAmplitude
                                                          : 0.01 * sineStep;
    const std::size_t n = sound.frames();
    for (std::size_t i = n - 8; i < n + 8; ++i) {
        for (std::size_t ch = 0; ch < 2; ++ch) {
            EXPECT_LE(std::abs(sound.stereo[(i + 1) % n * 2 + ch] - sound.stereo[i % n * 2 + ch]),
                      sineStep + edgeError)
                << "frame " << i << ", channel " << ch;
        }
    }

    // Away from the ends: pitch, level (mono and surround at full level), and no click.
    const std::size_t from = engine::kMixRate / 10;
    const std::size_t to = sound.frames() - from;
    const double rms = kAmplitude / std::sqrt(2.0);
    for (int channel = 0; channel < 2; ++channel) {
        EXPECT_NEAR(audio.zeroCrossingFrequency(channel, from, to), c.hz, c.hz * 0.01);
        EXPECT_NEAR(audio.rms(channel, from, to), rms, rms * (c.lossy ? 0.08 : 0.01));
        EXPECT_LT(audio.maxStep(channel, from, to), sineStep * 1.5);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, DecodeMatrix,
    ::testing::Values(
        DecodeCase{"wav16_48k_mono", wav<WavEncoding::pcm16>, 48000, 1, 440, false},
        DecodeCase{"wav16_44k_stereo", wav<WavEncoding::pcm16>, 44100, 2, 440, false},
        DecodeCase{"wav24_96k_stereo", wav<WavEncoding::pcm24>, 96000, 2, 1000, false},
        DecodeCase{"wavf32_22k_mono", wav<WavEncoding::float32>, 22050, 1, 440, false},
        DecodeCase{"wav16_48k_surround", wav<WavEncoding::pcm16>, 48000, 6, 440, false},
        DecodeCase{"flac_96k_stereo", written<AudioFileFormat::flac>, 96000, 2, 1000, false},
        DecodeCase{"aiff_44k_mono", converted<kAiff, kS16be>, 44100, 1, 440, false},
        DecodeCase{"caf_48k_stereo", converted<kCaf, kS16be>, 48000, 2, 440, false},
        DecodeCase{"mp3_44k_stereo", written<AudioFileFormat::mp3>, 44100, 2, 440, true},
        DecodeCase{"mp3_22k_mono", written<AudioFileFormat::mp3>, 22050, 1, 440, true},
        DecodeCase{"m4a_48k_stereo", written<AudioFileFormat::m4a>, 48000, 2, 440, true},
        DecodeCase{"m4a_16k_mono", written<AudioFileFormat::m4a>, 16000, 1, 440, true},
        DecodeCase{"vorbis_48k_mono", written<AudioFileFormat::ogg>, 48000, 1, 440, true},
        DecodeCase{"vorbis_44k_stereo", written<AudioFileFormat::ogg>, 44100, 2, 440, true},
        DecodeCase{"opus_48k_stereo", converted<kOpus, kLibopus>, 48000, 2, 440, true}),
    CaseName());

// The encoder's float WAV holds exactly the stereo sine it was given, left and right apart,
// except non-finite samples, written as silence (before any encoder sees them).
TEST(DecoderTest, AWrittenFloatWavIsExactAndNonFiniteSamplesAreWrittenAsSilence) {
    std::vector<float> samples(2 * 24000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = (i % 2 ? -0.25f : 0.5f) *
                     float(std::sin(2 * std::numbers::pi * 440 * double(i / 2) / 48000));
    }
    auto expected = samples;
    for (const auto& [at, nonFinite] : {std::pair{100, NAN}, {5001, INFINITY}, {9000, -INFINITY}}) {
        samples[at] = nonFinite;
        expected[at] = 0.0f;
    }
    engine::AudioFileWriter writer;
    const std::string file = fixtures().path("nan.wav");
    ASSERT_TRUE(writer.open(file, AudioFileFormat::wavFloat, 48000, 2));
    ASSERT_TRUE(writer.write(samples.data(), 24000));
    EXPECT_EQ(writer.framesWritten(), 24000u);
    ASSERT_TRUE(writer.close());
    EXPECT_EQ(decodeFile(file).stereo, expected);
}

// The decoder's frames land in the sound exactly, in pieces of any size, up to the sound's own
// bound, where decoding ends as too large. (Reading across the sound's chunks: AudioPlayerTest's
// seamless loop.)
TEST(DecoderTest, DecodeIntoFillsTheSoundExactlyUpToItsBound) {
    const std::string file = fixtures().tone("count.wav", 440, 0.5);
    auto opened = Decoder::open(file);
    ASSERT_TRUE(opened) << opened.failure().describe();
    Decoder& decoder = *opened.value();
    engine::SoundData data(1, 20000);
    EXPECT_EQ(decoder.decodeInto(data, 1000), 1000u);
    EXPECT_EQ(decoder.decodeInto(data, 3), 3u);
    while (!decoder.atEnd()) {
        decoder.decodeInto(data, 777);
    }
    EXPECT_EQ(decoder.decodeInto(data, 100), 0u) << "nothing after the end";
    EXPECT_EQ(decoder.outcome().error(), OpenError::tooLarge);
    ASSERT_EQ(data.frames(), 20000u);
    std::vector<float> heard(20000);
    data.read(0, heard.data(), heard.size());
    std::vector<float> written = WavFile::read(file).samples;
    written.resize(heard.size());
    EXPECT_EQ(heard, written);
}

// ---- unusual files: refused with their reason (a FIFO read would hang), or played ---------

struct UnusualCase : NamedCase {
    BadFile file;
    std::optional<OpenError> refusal; // none: it plays for [minSeconds, maxSeconds]
    double minSeconds = 0;
    double maxSeconds = 0;
};

using UnusualFiles = ::testing::TestWithParam<UnusualCase>;

TEST_P(UnusualFiles, AreRefusedWithTheirReasonOrPlayWhatTheyHold) {
    const UnusualCase& c = GetParam();
    const std::string file = fixtures().bad(c.file);
    if (c.refusal) {
        auto opened = Decoder::open(file);
        ASSERT_FALSE(opened) << "opened as " << opened.value()->info().container;
        EXPECT_EQ(opened.error(), *c.refusal) << opened.failure().describe();
        EXPECT_FALSE(opened.failure().detail.empty());
        return;
    }
    const DecodedSound sound = decodeFile(file);
    EXPECT_GE(double(sound.frames()) / engine::kMixRate, c.minSeconds);
    EXPECT_LE(double(sound.frames()) / engine::kMixRate, c.maxSeconds);
    EXPECT_NEAR(sound.audio().zeroCrossingFrequency(0, 2400, sound.frames() - 2400), 440, 5);
    EXPECT_TRUE(sound.audio().allFiniteAndInRange());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UnusualFiles,
    ::testing::Values(
        UnusualCase{"missing", BadFile::missing, OpenError::fileNotFound},
        UnusualCase{"empty", BadFile::empty, OpenError::notAudio},
        UnusualCase{"directory", BadFile::directory, OpenError::notARegularFile},
        UnusualCase{"fifo", BadFile::fifo, OpenError::notARegularFile},
        UnusualCase{"text", BadFile::text, OpenError::notAudio},
        UnusualCase{"m4aWithoutMoov", BadFile::truncatedM4a, OpenError::corrupt},
        UnusualCase{"m4aOnlyFtyp", BadFile::m4aOnlyFtyp, OpenError::corrupt},
        UnusualCase{"concat", BadFile::concatScript, OpenError::unsupportedFormat},
        UnusualCase{"rateZero", BadFile::wavRateZero, OpenError::corrupt},
        UnusualCase{"rateOneHertz", BadFile::wavRateOneHertz, OpenError::corrupt},
        UnusualCase{"channels65535", BadFile::wavManyChannels, OpenError::corrupt},
        UnusualCase{"drm", BadFile::protectedM4p, OpenError::protectedContent},
        UnusualCase{"linkLoop", BadFile::symlinkLoop, OpenError::notReadable},
        UnusualCase{"colonInName", BadFile::colonPath, {}, 0.99, 1.01}, // "a:" is no protocol
        UnusualCase{"mp3NamedWav", BadFile::mp3NamedWav, {}, 0.95, 1.05},
        UnusualCase{"symlink", BadFile::symlinkToSound, {}, 0.99, 1.01},
        UnusualCase{"truncatedWav", BadFile::truncatedWav, {}, 0.99, 1.01},
        UnusualCase{"truncatedMp3", BadFile::truncatedMp3, {}, 0.8, 1.2},
        UnusualCase{"truncatedFragmentedM4a", BadFile::truncatedFragmentedM4a, {}, 0.5, 1.2}),
    CaseName());

} // namespace
} // namespace vantelo_sounds::test
