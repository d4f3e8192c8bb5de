// Decoding: the format matrix (length, pitch, level, channels), bad files that must be refused
// with the right reason and without blocking, and odd files that must still play.

#include <chrono>
#include <filesystem>
#include <memory>
#include <numbers>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "engine/codec/DecodedSound.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::AudioFileFormat;
using engine::Decoder;
using engine::OpenError;
using engine::SoundData;
using BadFile = SoundFixtures::BadFile;
using WavEncoding = SoundFixtures::WavEncoding;

enum class Source { wav16, wav24, wavFloat, mp3, m4a, flac, ogg };

struct DecodeCase {
    const char* name;
    Source source;
    int rate;
    int channels;
    double hz;
    /// Allowed difference in length, in source frames (codec delay and padding).
    int lengthTolerance;
    /// Allowed relative error of the RMS level.
    double levelTolerance;
};

constexpr double kSeconds = 1.0;
constexpr float kAmplitude = 0.5f;

class DecoderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { sFixtures = std::make_unique<SoundFixtures>(); }
    static void TearDownTestSuite() { sFixtures.reset(); }
    static SoundFixtures& fixtures() { return *sFixtures; }

private:
    static inline std::unique_ptr<SoundFixtures> sFixtures;
};

class DecodeMatrix : public DecoderTest, public ::testing::WithParamInterface<DecodeCase> {};

std::string makeSource(SoundFixtures& f, const DecodeCase& c) {
    const std::string name = c.name;
    switch (c.source) {
    case Source::wav16:
        return f.tone(name + ".wav", c.hz, kSeconds, c.rate, c.channels, kAmplitude,
                      WavEncoding::pcm16);
    case Source::wav24:
        return f.tone(name + ".wav", c.hz, kSeconds, c.rate, c.channels, kAmplitude,
                      WavEncoding::pcm24);
    case Source::wavFloat:
        return f.tone(name + ".wav", c.hz, kSeconds, c.rate, c.channels, kAmplitude,
                      WavEncoding::float32);
    case Source::mp3:
        return f.encoded(name + ".mp3", AudioFileFormat::mp3, c.hz, kSeconds, c.rate, c.channels);
    case Source::m4a:
        return f.encoded(name + ".m4a", AudioFileFormat::m4a, c.hz, kSeconds, c.rate, c.channels);
    case Source::flac:
        return f.encoded(name + ".flac", AudioFileFormat::flac, c.hz, kSeconds, c.rate, c.channels);
    case Source::ogg:
        return f.encoded(name + ".ogg", AudioFileFormat::ogg, c.hz, kSeconds, c.rate, c.channels);
    }
    return "";
}

TEST_P(DecodeMatrix, KeepsLengthPitchLevelAndChannels) {
    const DecodeCase& c = GetParam();
    const std::string file = makeSource(fixtures(), c);
    ASSERT_FALSE(file.empty());
    const DecodedSound sound = decodeFile(file);

    EXPECT_EQ(sound.info.sourceRate, c.rate);
    EXPECT_EQ(sound.info.sourceChannels, c.channels);
    ASSERT_EQ(sound.channels, c.channels) << "mono stays mono, stereo stays stereo";
    EXPECT_FALSE(sound.failed);

    const double expectedFrames = kSeconds * engine::kMixRate;
    const double tolerance = c.lengthTolerance * double(engine::kMixRate) / c.rate + 2;
    EXPECT_NEAR(double(sound.frames()), expectedFrames, tolerance);

    // Measure away from the ends, where codecs fade in and out.
    const std::size_t from = engine::kMixRate / 10;
    const std::size_t to = sound.frames() - engine::kMixRate / 10;
    const double expectedRms = kAmplitude / std::sqrt(2.0);
    for (int channel = 0; channel < sound.channels; ++channel) {
        EXPECT_NEAR(sound.frequency(channel, from, to), c.hz, c.hz * 0.005)
            << "channel " << channel;
        EXPECT_NEAR(sound.rms(channel, from, to), expectedRms, expectedRms * c.levelTolerance)
            << "channel " << channel << " (mono must keep its full level)";
        const double sineStep = 2 * std::numbers::pi * c.hz / engine::kMixRate * kAmplitude;
        EXPECT_LT(sound.maxStep(channel, from, to), sineStep * 1.5) << "channel " << channel;
    }
    EXPECT_TRUE(sound.allFinite());
}

INSTANTIATE_TEST_SUITE_P(
    Formats, DecodeMatrix,
    ::testing::Values(DecodeCase{"wav16_48k_mono", Source::wav16, 48000, 1, 440, 0, 0.01},
                      DecodeCase{"wav16_44k_stereo", Source::wav16, 44100, 2, 440, 2, 0.01},
                      DecodeCase{"wav16_22k_mono", Source::wav16, 22050, 1, 1000, 2, 0.01},
                      DecodeCase{"wav16_96k_stereo", Source::wav16, 96000, 2, 440, 2, 0.01},
                      DecodeCase{"wav24_44k_mono", Source::wav24, 44100, 1, 440, 2, 0.01},
                      DecodeCase{"wav24_96k_stereo", Source::wav24, 96000, 2, 1000, 2, 0.01},
                      DecodeCase{"wavf32_48k_stereo", Source::wavFloat, 48000, 2, 440, 0, 0.01},
                      DecodeCase{"wavf32_22k_mono", Source::wavFloat, 22050, 1, 440, 2, 0.01},
                      DecodeCase{"mp3_44k_stereo", Source::mp3, 44100, 2, 440, 2, 0.08},
                      DecodeCase{"mp3_22k_mono", Source::mp3, 22050, 1, 440, 2, 0.08},
                      DecodeCase{"m4a_48k_stereo", Source::m4a, 48000, 2, 440, 2, 0.08},
                      DecodeCase{"m4a_16k_mono", Source::m4a, 16000, 1, 440, 2, 0.08},
                      DecodeCase{"flac_44k_mono", Source::flac, 44100, 1, 440, 2, 0.01},
                      DecodeCase{"flac_96k_stereo", Source::flac, 96000, 2, 1000, 2, 0.01},
                      DecodeCase{"ogg_44k_stereo", Source::ogg, 44100, 2, 440, 512, 0.08},
                      DecodeCase{"ogg_22k_mono", Source::ogg, 22050, 1, 440, 512, 0.08}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(DecoderTest, SurroundIsMixedDownToStereo) {
    const DecodedSound sound = decodeFile(fixtures().tone("six.wav", 440, 0.5, 48000, 6));
    EXPECT_EQ(sound.info.sourceChannels, 6);
    ASSERT_EQ(sound.channels, 2);
    EXPECT_NEAR(sound.frequency(0), 440, 3);
    EXPECT_GT(sound.rms(0), 0.1);
    EXPECT_GT(sound.rms(1), 0.1);
}

TEST_F(DecoderTest, DecodeIntoStopsAtTheAskedCount) {
    auto opened = Decoder::open(fixtures().tone("count.wav", 440, 0.5));
    ASSERT_TRUE(opened.hasValue()) << opened.failure().describe();
    Decoder& decoder = *opened.value();
    SoundData data(1, engine::kMixRate);
    EXPECT_EQ(decoder.decodeInto(data, 1000), 1000u);
    EXPECT_EQ(decoder.decodeInto(data, 3), 3u);
    EXPECT_EQ(data.frames(), 1003u);
    std::size_t total = data.frames();
    while (!decoder.atEnd()) {
        total += decoder.decodeInto(data, 777);
    }
    EXPECT_EQ(total, 24000u);
    EXPECT_EQ(decoder.decodeInto(data, 100), 0u) << "nothing after the end";
    EXPECT_TRUE(decoder.outcome().hasValue());
}

TEST_F(DecoderTest, FullOutputEndsTheSoundAsFailed) {
    auto opened = Decoder::open(fixtures().tone("long.wav", 440, 1.0));
    ASSERT_TRUE(opened.hasValue()) << opened.failure().describe();
    Decoder& decoder = *opened.value();
    SoundData data(1, 10000);
    while (!decoder.atEnd()) {
        decoder.decodeInto(data, 4096);
    }
    EXPECT_EQ(data.frames(), 10000u);
    ASSERT_FALSE(decoder.outcome().hasValue());
    EXPECT_EQ(decoder.outcome().error(), OpenError::tooLarge);
}

// Random damage anywhere in a file: an error or partial audio, never a crash, hang or NaN.
TEST_F(DecoderTest, DamagedFilesNeverCrash) {
    std::mt19937 random(20240601);
    const std::vector<std::string> sources = {
        fixtures().tone("dmg.wav", 440, 0.5, 44100, 2),
        fixtures().encoded("dmg.mp3", AudioFileFormat::mp3, 440, 0.5),
        fixtures().encoded("dmg.m4a", AudioFileFormat::m4a, 440, 0.5),
        fixtures().encoded("dmg.flac", AudioFileFormat::flac, 440, 0.5),
        fixtures().encoded("dmg.ogg", AudioFileFormat::ogg, 440, 0.5)};
    for (const std::string& source : sources) {
        const std::string original = SoundFixtures::readBytes(source);
        ASSERT_FALSE(original.empty());
        for (int variant = 0; variant < 40; ++variant) {
            std::string bytes = original;
            const int damage = 1 + static_cast<int>(random() % 16);
            for (int i = 0; i < damage; ++i) {
                bytes[random() % bytes.size()] = static_cast<char>(random() & 0xff);
            }
            if (variant % 4 == 3) {
                bytes.resize(random() % bytes.size());
            }
            const std::string file = fixtures().writeBytes("damaged.bin", bytes);
            auto opened = Decoder::open(file);
            if (!opened) {
                EXPECT_FALSE(opened.failure().detail.empty());
                continue;
            }
            Decoder& decoder = *opened.value();
            SoundData data(decoder.info().channels, std::size_t{10} * engine::kMixRate);
            for (int steps = 0; !decoder.atEnd(); ++steps) {
                ASSERT_LT(steps, 10000) << source << " variant " << variant << " does not end";
                decoder.decodeInto(data, 4096);
            }
            std::vector<float> samples(data.frames() * std::size_t(data.channels()));
            data.read(0, samples.data(), data.frames());
            for (const float v : samples) {
                ASSERT_TRUE(std::isfinite(v)) << source << " variant " << variant;
            }
        }
    }
}

// The sounds the project ships all decode, at their stated length.
TEST_F(DecoderTest, ShippedAssetsDecode) {
    const auto assets = std::filesystem::path(__FILE__).parent_path() / "../../../assets";
    const std::pair<const char*, double> expected[] = {{"click.wav", 0.02}, {"beep.wav", 0.25},
                                                       {"chime.m4a", 1.0},  {"whoosh.mp3", 0.8},
                                                       {"pad.ogg", 2.0},    {"blip.flac", 0.15}};
    for (const auto& [name, seconds] : expected) {
        const DecodedSound sound = decodeFile((assets / name).string());
        EXPECT_NEAR(double(sound.frames()) / engine::kMixRate, seconds, 0.05) << name;
        EXPECT_FALSE(sound.failed) << name;
        EXPECT_GT(sound.rms(0), 0.005) << name;
    }
}

// ---- bad files --------------------------------------------------------------------------

struct BadCase {
    const char* name;
    BadFile file;
    OpenError kind;
};

class BadFiles : public DecoderTest, public ::testing::WithParamInterface<BadCase> {};

TEST_P(BadFiles, AreRefusedWithTheirReasonWithoutBlocking) {
    const BadCase& c = GetParam();
    const std::string file = fixtures().bad(c.file);
    const auto start = std::chrono::steady_clock::now();
    auto opened = Decoder::open(file);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_FALSE(opened.hasValue()) << file << " opened as " << opened.value()->info().container;
    EXPECT_EQ(opened.error(), c.kind) << opened.failure().describe();
    EXPECT_FALSE(opened.failure().detail.empty());
    EXPECT_LT(elapsed, std::chrono::seconds(2));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadFiles,
    ::testing::Values(BadCase{"missing", BadFile::missing, OpenError::fileNotFound},
                      BadCase{"empty", BadFile::empty, OpenError::notAudio},
                      BadCase{"directory", BadFile::directory, OpenError::notARegularFile},
                      BadCase{"fifo", BadFile::fifo, OpenError::notARegularFile},
                      BadCase{"text", BadFile::text, OpenError::notAudio},
                      BadCase{"m4aWithoutMoov", BadFile::truncatedM4a, OpenError::corrupt},
                      BadCase{"m4aOnlyFtyp", BadFile::m4aOnlyFtyp, OpenError::corrupt},
                      BadCase{"concat", BadFile::concatScript, OpenError::unsupportedFormat},
                      BadCase{"hls", BadFile::hlsPlaylist, OpenError::unsupportedFormat},
                      BadCase{"rateZero", BadFile::wavRateZero, OpenError::corrupt},
                      BadCase{"channels65535", BadFile::wavManyChannels, OpenError::corrupt},
                      BadCase{"drm", BadFile::protectedM4p, OpenError::protectedContent},
                      BadCase{"danglingLink", BadFile::danglingSymlink, OpenError::fileNotFound},
                      BadCase{"linkLoop", BadFile::symlinkLoop, OpenError::notReadable}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(DecoderTest, CharacterDeviceIsRefusedWithoutReading) {
    auto opened = Decoder::open("/dev/zero");
    ASSERT_FALSE(opened.hasValue());
    EXPECT_EQ(opened.error(), OpenError::notARegularFile);
}

TEST_F(DecoderTest, UnreadableFileIsRefused) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root reads every file";
    }
    const std::string file = fixtures().tone("locked.wav", 440, 0.1);
    ::chmod(file.c_str(), 0);
    auto opened = Decoder::open(file);
    ASSERT_FALSE(opened.hasValue());
    EXPECT_EQ(opened.error(), OpenError::notReadable);
}

// ---- odd files that play ------------------------------------------------------------------

struct PlayableCase {
    const char* name;
    BadFile file;
    double minSeconds;
    double maxSeconds;
    const char* container;
};

class OddFiles : public DecoderTest, public ::testing::WithParamInterface<PlayableCase> {};

TEST_P(OddFiles, PlayWhatTheyHold) {
    const PlayableCase& c = GetParam();
    const DecodedSound sound = decodeFile(fixtures().bad(c.file));
    EXPECT_EQ(sound.info.container, c.container);
    const double seconds = double(sound.frames()) / engine::kMixRate;
    EXPECT_GE(seconds, c.minSeconds);
    EXPECT_LE(seconds, c.maxSeconds);
    EXPECT_NEAR(sound.frequency(0, 2400, sound.frames() - 2400), 440, 3);
    EXPECT_TRUE(sound.allFinite());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OddFiles,
    ::testing::Values(PlayableCase{"colonInName", BadFile::colonPath, 0.99, 1.01, "wav"},
                      PlayableCase{"mp3NamedWav", BadFile::mp3NamedWav, 0.95, 1.05, "mp3"},
                      PlayableCase{"symlink", BadFile::symlinkToSound, 0.99, 1.01, "wav"},
                      PlayableCase{"truncatedWav", BadFile::truncatedWav, 0.99, 1.01, "wav"},
                      PlayableCase{"truncatedMp3", BadFile::truncatedMp3, 0.8, 1.2, "mp3"},
                      PlayableCase{"truncatedFragmentedM4a", BadFile::truncatedFragmentedM4a, 0.5,
                                   1.2, "mov,mp4,m4a,3gp,3g2,mj2"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(DecoderTest, OddNamesOpenAsLocalFiles) {
    for (const char* name : {"with space.wav", "ünïcødé.wav", "-leading-dash.wav",
                             "concat:looks-like-a-protocol.wav", "file:already-prefixed.wav"}) {
        const std::string file = fixtures().tone(name, 440, 0.2);
        auto opened = Decoder::open(file);
        EXPECT_TRUE(opened.hasValue())
            << name << ": " << (opened ? "" : opened.failure().describe());
    }
}

} // namespace
} // namespace vantelo_sounds::test
