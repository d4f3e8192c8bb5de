// Decoding: every format at its stated length, looping without a seam, at its pitch and level;
// bad files refused with their reason; odd and damaged files played as far as they go.

#include <filesystem>
#include <memory>
#include <numbers>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "engine/codec/DecodedSound.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "support/NamedCase.hpp"
#include "support/SoundFixtures.hpp"

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

// The case's tone through an FFmpeg encoder and muxer of the test's choosing, for what the
// library never writes (AIFF, CAF, Ogg Opus); "" when this FFmpeg cannot.
std::string viaFfmpeg(SoundFixtures& f, const DecodeCase& c, const char* muxer,
                      const char* encoder) {
    const std::string path = f.path(std::string(c.name) + "." + muxer);
    AVFormatContext* raw = nullptr;
    avformat_alloc_output_context2(&raw, nullptr, muxer, path.c_str());
    const std::unique_ptr<AVFormatContext, decltype([](AVFormatContext* file) {
                              avio_closep(&file->pb);
                              avformat_free_context(file);
                          })>
        out(raw);
    const AVCodec* codec = avcodec_find_encoder_by_name(encoder);
    engine::ffmpeg::CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!out || !context) {
        return "";
    }
    context->sample_fmt = AV_SAMPLE_FMT_S16;
    context->sample_rate = c.rate;
    context->time_base = {1, c.rate};
    av_channel_layout_default(&context->ch_layout, c.channels);
    AVStream* stream = avformat_new_stream(out.get(), nullptr);
    if (avcodec_open2(context.get(), codec, nullptr) < 0 ||
        avcodec_parameters_from_context(stream->codecpar, context.get()) < 0 ||
        avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) < 0 ||
        avformat_write_header(out.get(), nullptr) < 0) {
        return "";
    }
    engine::ffmpeg::FramePtr frame(av_frame_alloc());
    engine::ffmpeg::PacketPtr packet(av_packet_alloc());
    const auto send = [&](const AVFrame* input) {
        avcodec_send_frame(context.get(), input);
        while (avcodec_receive_packet(context.get(), packet.get()) == 0) {
            av_packet_rescale_ts(packet.get(), context->time_base, stream->time_base);
            av_interleaved_write_frame(out.get(), packet.get());
        }
    };
    const int total = int(kSeconds * c.rate);
    for (int done = 0, step = context->frame_size > 0 ? context->frame_size : 1024; done < total;
         done += step) {
        frame->nb_samples = std::min(step, total - done);
        frame->format = AV_SAMPLE_FMT_S16;
        frame->pts = done;
        av_channel_layout_copy(&frame->ch_layout, &context->ch_layout);
        av_frame_get_buffer(frame.get(), 0);
        for (int i = 0; i < frame->nb_samples * c.channels; ++i) {
            const double t = double(done + i / c.channels) / c.rate;
            reinterpret_cast<std::int16_t*>(frame->data[0])[i] = std::int16_t(
                std::lround(32767 * kAmplitude * std::sin(2 * std::numbers::pi * c.hz * t)));
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
std::string opus(SoundFixtures& f, const DecodeCase& c) {
    return viaFfmpeg(f, c, "opus", "libopus");
}
std::string aiff(SoundFixtures& f, const DecodeCase& c) {
    return viaFfmpeg(f, c, "aiff", "pcm_s16be");
}
std::string caf(SoundFixtures& f, const DecodeCase& c) {
    return viaFfmpeg(f, c, "caf", "pcm_s16be");
}

class DecodeMatrix : public DecoderTest, public ::testing::WithParamInterface<DecodeCase> {};

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
    EXPECT_EQ(sound.frames(), std::size_t(kSeconds * engine::kMixRate));
    const OfflineAudio audio = sound.audio();
    EXPECT_TRUE(audio.allFiniteAndInRange());

    // Across the seam the steps are the sine's own, give or take what a lossy codec gets wrong at
    // the edges, or a resampler whose filter sees silence before the first frame.
    const double sineStep = 2 * std::numbers::pi * c.hz / engine::kMixRate * kAmplitude;
    const double edgeError = c.lossy                      ? 0.05 * kAmplitude
                             : c.rate != engine::kMixRate ? 0.03 * kAmplitude
                                                          : 0.01 * sineStep;
    EXPECT_LE(sound.seamStep(), sineStep + edgeError);

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
        DecodeCase{"flac_44k_mono", written<AudioFileFormat::flac>, 44100, 1, 440, false},
        DecodeCase{"flac_96k_stereo", written<AudioFileFormat::flac>, 96000, 2, 1000, false},
        DecodeCase{"aiff_44k_mono", aiff, 44100, 1, 440, false},
        DecodeCase{"caf_48k_stereo", caf, 48000, 2, 440, false},
        DecodeCase{"mp3_44k_stereo", written<AudioFileFormat::mp3>, 44100, 2, 440, true},
        DecodeCase{"mp3_22k_mono", written<AudioFileFormat::mp3>, 22050, 1, 440, true},
        DecodeCase{"m4a_48k_stereo", written<AudioFileFormat::m4a>, 48000, 2, 440, true},
        DecodeCase{"m4a_16k_mono", written<AudioFileFormat::m4a>, 16000, 1, 440, true},
        DecodeCase{"vorbis_48k_mono", written<AudioFileFormat::ogg>, 48000, 1, 440, true},
        DecodeCase{"vorbis_44k_stereo", written<AudioFileFormat::ogg>, 44100, 2, 440, true},
        DecodeCase{"vorbis_22k_mono", written<AudioFileFormat::ogg>, 22050, 1, 440, true},
        DecodeCase{"opus_48k_stereo", opus, 48000, 2, 440, true}),
    CaseName());

TEST_F(DecoderTest, DecodeIntoHandsOutWhatIsAskedAndStopsAtAFullSound) {
    auto opened = Decoder::open(fixtures().tone("count.wav", 440, 0.5));
    ASSERT_TRUE(opened) << opened.failure().describe();
    Decoder& decoder = *opened.value();
    engine::SoundData data(1, 20000);
    EXPECT_EQ(decoder.decodeInto(data, 1000), 1000u);
    EXPECT_EQ(decoder.decodeInto(data, 3), 3u);
    while (!decoder.atEnd()) {
        decoder.decodeInto(data, 777);
    }
    EXPECT_EQ(data.frames(), 20000u) << "the sound's own bound";
    EXPECT_EQ(decoder.decodeInto(data, 100), 0u) << "nothing after the end";
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
            engine::SoundData data(decoder.info().channels, std::size_t{10} * engine::kMixRate);
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
    const auto assets = std::filesystem::path(VANTELO_ASSETS_DIR);
    const std::pair<const char*, double> expected[] = {{"click.wav", 0.02}, {"beep.wav", 0.25},
                                                       {"chime.m4a", 1.0},  {"whoosh.mp3", 0.8},
                                                       {"pad.ogg", 2.0},    {"blip.flac", 0.15}};
    for (const auto& [name, seconds] : expected) {
        const DecodedSound sound = decodeFile((assets / name).string());
        EXPECT_NEAR(double(sound.frames()) / engine::kMixRate, seconds, 0.05) << name;
        EXPECT_FALSE(sound.failed) << name;
        EXPECT_GT(sound.audio().rms(0), 0.005) << name;
    }
}

// ---- unusual files: refused with their reason (a FIFO read would hang), or played ---------

struct UnusualCase : NamedCase {
    BadFile file;
    std::optional<OpenError> refusal; // none: it plays for [minSeconds, maxSeconds]
    double minSeconds = 0;
    double maxSeconds = 0;
};

class UnusualFiles : public DecoderTest, public ::testing::WithParamInterface<UnusualCase> {};

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
        UnusualCase{"hls", BadFile::hlsPlaylist, OpenError::unsupportedFormat},
        UnusualCase{"rateZero", BadFile::wavRateZero, OpenError::corrupt},
        UnusualCase{"rateOneHertz", BadFile::wavRateOneHertz, OpenError::corrupt},
        UnusualCase{"channels65535", BadFile::wavManyChannels, OpenError::corrupt},
        UnusualCase{"drm", BadFile::protectedM4p, OpenError::protectedContent},
        UnusualCase{"danglingLink", BadFile::danglingSymlink, OpenError::fileNotFound},
        UnusualCase{"linkLoop", BadFile::symlinkLoop, OpenError::notReadable},
        UnusualCase{"colonInName", BadFile::colonPath, {}, 0.99, 1.01},
        UnusualCase{"mp3NamedWav", BadFile::mp3NamedWav, {}, 0.95, 1.05},
        UnusualCase{"symlink", BadFile::symlinkToSound, {}, 0.99, 1.01},
        UnusualCase{"truncatedWav", BadFile::truncatedWav, {}, 0.99, 1.01},
        UnusualCase{"truncatedMp3", BadFile::truncatedMp3, {}, 0.8, 1.2},
        UnusualCase{"truncatedFragmentedM4a", BadFile::truncatedFragmentedM4a, {}, 0.5, 1.2}),
    CaseName());

TEST_F(DecoderTest, OddNamesOpenAsLocalFilesAndDevicesOrUnreadableFilesAreRefused) {
    for (const char* name : {"with space.wav", "ünïcødé.wav", "-leading-dash.wav",
                             "concat:looks-like-a-protocol.wav", "file:already-prefixed.wav"}) {
        auto opened = Decoder::open(fixtures().tone(name, 440, 0.2));
        EXPECT_TRUE(opened) << name << ": " << (opened ? "" : opened.failure().describe());
    }
    EXPECT_EQ(Decoder::open("/dev/zero").error(), OpenError::notARegularFile);
    if (::geteuid() != 0) { // root reads every file
        const std::string file = fixtures().tone("locked.wav", 440, 0.1);
        ::chmod(file.c_str(), 0);
        EXPECT_EQ(Decoder::open(file).error(), OpenError::notReadable);
    }
}

} // namespace
} // namespace vantelo_sounds::test
