// Decoding: every format at its stated length, looping without a seam, at its pitch and level;
// bad files refused with their reason; odd and damaged files played as far as they go.

#include <filesystem>
#include <memory>
#include <numbers>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "engine/codec/DecodedSound.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::AudioFileFormat;
using engine::Decoder;
using engine::OpenError;
using engine::SoundData;
using BadFile = SoundFixtures::BadFile;
using WavEncoding = SoundFixtures::WavEncoding;

constexpr double kSeconds = 0.5; // whole periods of every test tone
constexpr float kAmplitude = 0.5f;

// A tone through an FFmpeg encoder and muxer of the test's choosing, for what the library never
// writes (AIFF, CAF, Ogg Opus). "" when this FFmpeg cannot make it.
std::string encodeWithFfmpeg(const std::string& path, const char* muxer, const char* encoder,
                             int rate, int channels, double hz) {
    const AVCodec* codec = avcodec_find_encoder_by_name(encoder);
    AVFormatContext* raw = nullptr;
    if (codec == nullptr ||
        avformat_alloc_output_context2(&raw, nullptr, muxer, path.c_str()) < 0) {
        return "";
    }
    const std::unique_ptr<AVFormatContext, decltype([](AVFormatContext* c) {
                              avio_closep(&c->pb);
                              avformat_free_context(c);
                          })>
        out(raw);
    engine::ffmpeg::CodecContextPtr context(avcodec_alloc_context3(codec));
    context->sample_fmt = AV_SAMPLE_FMT_S16;
    context->sample_rate = rate;
    context->time_base = {1, rate};
    av_channel_layout_default(&context->ch_layout, channels);
    AVStream* stream = avformat_new_stream(out.get(), nullptr);
    if (avcodec_open2(context.get(), codec, nullptr) < 0 ||
        avcodec_parameters_from_context(stream->codecpar, context.get()) < 0 ||
        avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) < 0 ||
        avformat_write_header(out.get(), nullptr) < 0) {
        return "";
    }
    engine::ffmpeg::FramePtr frame(av_frame_alloc());
    engine::ffmpeg::PacketPtr packet(av_packet_alloc());
    const auto send = [&](const AVFrame* f) {
        avcodec_send_frame(context.get(), f);
        while (avcodec_receive_packet(context.get(), packet.get()) == 0) {
            av_packet_rescale_ts(packet.get(), context->time_base, stream->time_base);
            av_interleaved_write_frame(out.get(), packet.get());
        }
    };
    const int total = static_cast<int>(kSeconds * rate);
    const int step = context->frame_size > 0 ? context->frame_size : 1024;
    for (int done = 0; done < total; done += step) {
        frame->nb_samples = std::min(step, total - done);
        frame->format = AV_SAMPLE_FMT_S16;
        frame->sample_rate = rate;
        frame->pts = done;
        av_channel_layout_copy(&frame->ch_layout, &context->ch_layout);
        av_frame_get_buffer(frame.get(), 0);
        auto* samples = reinterpret_cast<std::int16_t*>(frame->data[0]);
        for (int i = 0; i < frame->nb_samples * channels; ++i) {
            const double t = double(done + i / channels) / rate;
            samples[i] = std::int16_t(
                std::lround(32767 * kAmplitude * std::sin(2 * std::numbers::pi * hz * t)));
        }
        send(frame.get());
        av_frame_unref(frame.get());
    }
    send(nullptr);
    return av_write_trailer(out.get()) == 0 ? path : "";
}

class DecoderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { sFixtures = std::make_unique<SoundFixtures>(); }
    static void TearDownTestSuite() { sFixtures.reset(); }
    static SoundFixtures& fixtures() { return *sFixtures; }

private:
    static inline std::unique_ptr<SoundFixtures> sFixtures;
};

// ---- the format matrix --------------------------------------------------------------------

enum class Source { wav16, wav24, wavFloat, flac, mp3, m4a, vorbis, opus, aiff, caf };

struct DecodeCase {
    const char* name;
    Source source;
    int rate;
    int channels;
    double hz;
    bool lossy;
};

std::string makeSource(SoundFixtures& f, const DecodeCase& c) {
    const std::string name = c.name;
    const auto wav = [&](WavEncoding encoding) {
        return f.tone(name + ".wav", c.hz, kSeconds, c.rate, c.channels, kAmplitude, encoding);
    };
    const auto encoded = [&](AudioFileFormat format) {
        return f.encoded(name + "." + engine::extensionFor(format), format, c.hz, kSeconds, c.rate,
                         c.channels, kAmplitude);
    };
    const auto viaFfmpeg = [&](const char* extension, const char* muxer, const char* encoder) {
        return encodeWithFfmpeg(f.path(name + extension), muxer, encoder, c.rate, c.channels, c.hz);
    };
    switch (c.source) {
    case Source::wav16:
        return wav(WavEncoding::pcm16);
    case Source::wav24:
        return wav(WavEncoding::pcm24);
    case Source::wavFloat:
        return wav(WavEncoding::float32);
    case Source::flac:
        return encoded(AudioFileFormat::flac);
    case Source::mp3:
        return encoded(AudioFileFormat::mp3);
    case Source::m4a:
        return encoded(AudioFileFormat::m4a);
    case Source::vorbis:
        return encoded(AudioFileFormat::ogg);
    case Source::opus:
        return viaFfmpeg(".opus", "opus", "libopus");
    case Source::aiff:
        return viaFfmpeg(".aiff", "aiff", "pcm_s16be");
    case Source::caf:
        return viaFfmpeg(".caf", "caf", "pcm_s16be");
    }
    return "";
}

class DecodeMatrix : public DecoderTest, public ::testing::WithParamInterface<DecodeCase> {};

// Every format states its exact length (a sample count, an edit list, a granule position, the
// LAME tag), so the encoder's delay and padding are cut to the frame.
TEST_P(DecodeMatrix, DecodesToItsStatedLengthAndLoopsWithoutASeam) {
    const DecodeCase& c = GetParam();
    const std::string file = makeSource(fixtures(), c);
    ASSERT_FALSE(file.empty()) << "this FFmpeg cannot write " << c.name;
    const DecodedSound sound = decodeFile(file);
    EXPECT_EQ(sound.info.sourceRate, c.rate);
    EXPECT_EQ(sound.info.sourceChannels, c.channels);
    ASSERT_EQ(sound.channels, c.channels) << "mono stays mono, stereo stays stereo";
    EXPECT_FALSE(sound.failed);
    EXPECT_TRUE(sound.allFinite());
    EXPECT_EQ(sound.frames(), std::size_t(kSeconds * engine::kMixRate));

    // Across the seam the steps are the sine's own, give or take what a lossy codec gets wrong at
    // the edges, or a resampler whose filter sees silence before the first frame.
    const double sineStep = 2 * std::numbers::pi * c.hz / engine::kMixRate * kAmplitude;
    const double edgeError = c.lossy                      ? 0.05 * kAmplitude
                             : c.rate != engine::kMixRate ? 0.03 * kAmplitude
                                                          : 0.01 * sineStep;
    EXPECT_LE(sound.seamStep(), sineStep + edgeError);

    // Away from the ends, where codecs fade in and out: pitch, level (mono at full level), and
    // no click.
    const std::size_t from = engine::kMixRate / 10;
    const std::size_t to = sound.frames() - engine::kMixRate / 10;
    const double rms = kAmplitude / std::sqrt(2.0);
    for (int channel = 0; channel < sound.channels; ++channel) {
        SCOPED_TRACE("channel " + std::to_string(channel));
        EXPECT_NEAR(sound.frequency(channel, from, to), c.hz, c.hz * 0.005);
        EXPECT_NEAR(sound.rms(channel, from, to), rms, rms * (c.lossy ? 0.08 : 0.01));
        EXPECT_LT(sound.maxStep(channel, from, to), sineStep * 1.5);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, DecodeMatrix,
    ::testing::Values(DecodeCase{"wav16_48k_mono", Source::wav16, 48000, 1, 440, false},
                      DecodeCase{"wav16_44k_stereo", Source::wav16, 44100, 2, 440, false},
                      DecodeCase{"wav24_96k_stereo", Source::wav24, 96000, 2, 1000, false},
                      DecodeCase{"wavf32_22k_mono", Source::wavFloat, 22050, 1, 440, false},
                      DecodeCase{"flac_44k_mono", Source::flac, 44100, 1, 440, false},
                      DecodeCase{"flac_96k_stereo", Source::flac, 96000, 2, 1000, false},
                      DecodeCase{"aiff_44k_mono", Source::aiff, 44100, 1, 440, false},
                      DecodeCase{"caf_48k_stereo", Source::caf, 48000, 2, 440, false},
                      DecodeCase{"mp3_44k_stereo", Source::mp3, 44100, 2, 440, true},
                      DecodeCase{"mp3_22k_mono", Source::mp3, 22050, 1, 440, true},
                      DecodeCase{"m4a_48k_stereo", Source::m4a, 48000, 2, 440, true},
                      DecodeCase{"m4a_16k_mono", Source::m4a, 16000, 1, 440, true},
                      DecodeCase{"vorbis_48k_mono", Source::vorbis, 48000, 1, 440, true},
                      DecodeCase{"vorbis_44k_stereo", Source::vorbis, 44100, 2, 440, true},
                      DecodeCase{"vorbis_22k_mono", Source::vorbis, 22050, 1, 440, true},
                      DecodeCase{"opus_48k_stereo", Source::opus, 48000, 2, 440, true}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(DecoderTest, SurroundIsMixedDownToStereo) {
    const DecodedSound sound = decodeFile(fixtures().tone("six.wav", 440, 0.5, 48000, 6));
    EXPECT_EQ(sound.info.sourceChannels, 6);
    ASSERT_EQ(sound.channels, 2);
    EXPECT_NEAR(sound.frequency(0), 440, 3);
    EXPECT_GT(sound.rms(0), 0.1);
    EXPECT_GT(sound.rms(1), 0.1);
}

TEST_F(DecoderTest, DecodeIntoHandsOutWhatIsAskedAndStopsAtAFullSound) {
    auto opened = Decoder::open(fixtures().tone("count.wav", 440, 0.5));
    ASSERT_TRUE(opened) << opened.failure().describe();
    Decoder& decoder = *opened.value();
    SoundData data(1, 20000);
    EXPECT_EQ(decoder.decodeInto(data, 1000), 1000u);
    EXPECT_EQ(decoder.decodeInto(data, 3), 3u);
    while (!decoder.atEnd()) {
        decoder.decodeInto(data, 777);
    }
    EXPECT_EQ(data.frames(), 20000u) << "the sound's own bound";
    EXPECT_EQ(decoder.decodeInto(data, 100), 0u) << "nothing after the end";
    ASSERT_FALSE(decoder.outcome());
    EXPECT_EQ(decoder.outcome().error(), OpenError::tooLarge);
}

// Random damage anywhere in a file: an error or partial audio, never a crash, hang or NaN.
TEST_F(DecoderTest, DamagedFilesNeverCrash) {
    std::mt19937 random(20240601);
    for (const std::string& source :
         {fixtures().tone("dmg.wav", 440, 0.5, 44100, 2),
          fixtures().encoded("dmg.mp3", AudioFileFormat::mp3, 440, 0.5),
          fixtures().encoded("dmg.m4a", AudioFileFormat::m4a, 440, 0.5),
          fixtures().encoded("dmg.flac", AudioFileFormat::flac, 440, 0.5),
          fixtures().encoded("dmg.ogg", AudioFileFormat::ogg, 440, 0.5)}) {
        const std::string original = SoundFixtures::readBytes(source);
        ASSERT_FALSE(original.empty());
        for (int variant = 0; variant < 40; ++variant) {
            SCOPED_TRACE(source + " variant " + std::to_string(variant));
            std::string bytes = original;
            for (int i = 0, damage = 1 + int(random() % 16); i < damage; ++i) {
                bytes[random() % bytes.size()] = static_cast<char>(random() & 0xff);
            }
            if (variant % 4 == 3) {
                bytes.resize(random() % bytes.size());
            }
            auto opened = Decoder::open(fixtures().writeBytes("damaged.bin", bytes));
            if (!opened) {
                EXPECT_FALSE(opened.failure().detail.empty());
                continue;
            }
            Decoder& decoder = *opened.value();
            SoundData data(decoder.info().channels, std::size_t{10} * engine::kMixRate);
            for (int steps = 0; !decoder.atEnd(); ++steps) {
                ASSERT_LT(steps, 10000) << "does not end";
                decoder.decodeInto(data, 4096);
            }
            std::vector<float> samples(data.frames() * std::size_t(data.channels()));
            data.read(0, samples.data(), data.frames());
            ASSERT_TRUE(std::all_of(samples.begin(), samples.end(),
                                    [](float s) { return std::isfinite(s); }));
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

// ---- bad files: refused with their reason (a FIFO that blocked would hang the test) ----------

struct BadCase {
    const char* name;
    BadFile file;
    OpenError reason;
};

class BadFiles : public DecoderTest, public ::testing::WithParamInterface<BadCase> {};

TEST_P(BadFiles, AreRefusedWithTheirReason) {
    const BadCase& c = GetParam();
    auto opened = Decoder::open(fixtures().bad(c.file));
    ASSERT_FALSE(opened) << "opened as " << opened.value()->info().container;
    EXPECT_EQ(opened.error(), c.reason) << opened.failure().describe();
    EXPECT_FALSE(opened.failure().detail.empty());
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

TEST_F(DecoderTest, DevicesAndUnreadableFilesAreRefused) {
    EXPECT_EQ(Decoder::open("/dev/zero").error(), OpenError::notARegularFile);
    if (::geteuid() != 0) { // root reads every file
        const std::string file = fixtures().tone("locked.wav", 440, 0.1);
        ::chmod(file.c_str(), 0);
        EXPECT_EQ(Decoder::open(file).error(), OpenError::notReadable);
    }
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
        auto opened = Decoder::open(fixtures().tone(name, 440, 0.2));
        EXPECT_TRUE(opened) << name << ": " << (opened ? "" : opened.failure().describe());
    }
}

} // namespace
} // namespace vantelo_sounds::test
