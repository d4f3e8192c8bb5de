#include "engine/codec/Decoder.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "engine/codec/FfmpegLog.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "engine/codec/FileCheck.hpp"
#include "engine/sound/SoundData.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace vantelo_sounds::engine {
namespace {

// Demuxers we trust with a sound file. Everything else (concat scripts, HLS, SDP, image
// sequences, raw formats guessed from a few bytes) is refused after probing.
constexpr std::array<std::string_view, 9> kAllowedDemuxers = {
    "wav", "mp3", "mov,mp4,m4a,3gp,3g2,mj2", "ogg", "flac", "aac", "aiff", "caf", "w64"};
constexpr const char* kDemuxerWhitelist =
    "wav,mp3,mov,mp4,m4a,3gp,3g2,mj2,ogg,flac,aac,aiff,caf,w64";

constexpr int kIoBufferSize = 32 * 1024;
constexpr int kMaxChannels = 64;
constexpr int kMaxSampleRate = 1'536'000;
// A stream of nothing but bad packets ends rather than spinning through the whole file.
constexpr int kMaxConsecutiveErrors = 1000;

bool isAllowedDemuxer(const char* name) {
    return std::find(kAllowedDemuxers.begin(), kAllowedDemuxers.end(), std::string_view(name)) !=
           kAllowedDemuxers.end();
}

bool hasExtension(const std::string& path, std::string_view extension) {
    if (path.size() < extension.size()) {
        return false;
    }
    return std::equal(extension.rbegin(), extension.rend(), path.rbegin(), [](char a, char b) {
        return a == std::tolower(static_cast<unsigned char>(b));
    });
}

// The file is read through our own descriptor: it was checked to be a regular file, so no
// protocol, no path parsing and no blocking open happen inside FFmpeg.
struct FileDescriptor {
    int fd = -1;
    FileDescriptor() = default;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

int readPacket(void* opaque, std::uint8_t* buffer, int size) {
    const int fd = *static_cast<int*>(opaque);
    ssize_t n = 0;
    do {
        n = ::read(fd, buffer, static_cast<std::size_t>(size));
    } while (n < 0 && errno == EINTR);
    if (n == 0) {
        return AVERROR_EOF;
    }
    return n < 0 ? AVERROR(errno) : static_cast<int>(n);
}

std::int64_t seekFile(void* opaque, std::int64_t offset, int whence) {
    const int fd = *static_cast<int*>(opaque);
    if (whence & AVSEEK_SIZE) {
        struct stat st {};
        return ::fstat(fd, &st) == 0 ? static_cast<std::int64_t>(st.st_size) : AVERROR(errno);
    }
    const off_t position = ::lseek(fd, static_cast<off_t>(offset), whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : static_cast<std::int64_t>(position);
}

// The allowed containers whose first bytes say exactly what they are. Recognising them here
// skips asking every demuxer FFmpeg has (a third of the cost of opening a file); everything
// else, MP3 and ADTS among them, goes through FFmpeg's probe.
const AVInputFormat* bySignature(int fd) {
    unsigned char head[12] = {};
    const ssize_t n = ::pread(fd, head, sizeof head, 0);
    if (n < static_cast<ssize_t>(sizeof head)) {
        return nullptr;
    }
    const auto is = [&](std::size_t at, const char* tag) {
        return std::memcmp(head + at, tag, 4) == 0;
    };
    const char* name = nullptr;
    if (is(0, "RIFF") && is(8, "WAVE")) {
        name = "wav";
    } else if (is(4, "ftyp")) {
        name = "mov";
    } else if (is(0, "OggS")) {
        name = "ogg";
    } else if (is(0, "fLaC")) {
        name = "flac";
    } else if (is(0, "FORM") && (is(8, "AIFF") || is(8, "AIFC"))) {
        name = "aiff";
    } else if (is(0, "caff")) {
        name = "caf";
    }
    return name == nullptr ? nullptr : av_find_input_format(name);
}

struct Dictionary {
    AVDictionary* dict = nullptr;
    Dictionary() = default;
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;
    ~Dictionary() { av_dict_free(&dict); }
};

std::string ffmpegDetail(int code) {
    std::string logged = FfmpegLog::firstError();
    return logged.empty() ? FfmpegLog::describe(code) : logged;
}

bool isProtected(const AVStream* stream) {
    const std::uint32_t tag = stream->codecpar->codec_tag;
    if (tag == MKTAG('d', 'r', 'm', 's') || tag == MKTAG('d', 'r', 'm', 'i') ||
        tag == MKTAG('e', 'n', 'c', 'a')) {
        return true;
    }
    return av_stream_get_side_data(stream, AV_PKT_DATA_ENCRYPTION_INIT_INFO, nullptr) != nullptr;
}

bool parametersKnown(const AVStream* stream) {
    const AVCodecParameters* p = stream->codecpar;
    return p->codec_id != AV_CODEC_ID_NONE && p->sample_rate > 0 && p->ch_layout.nb_channels > 0;
}

} // namespace

struct Decoder::Impl {
    SoundInfo info;
    // Declaration order is destruction order reversed: the format context goes before the I/O
    // context it reads through, and that before the descriptor.
    FileDescriptor file;
    ffmpeg::IoContextPtr io;
    ffmpeg::InputContextPtr format;
    const AVCodec* decoder = nullptr;
    ffmpeg::CodecContextPtr codec; // opened by the first step()
    ffmpeg::SwrPtr resampler;
    ffmpeg::FramePtr frame;
    ffmpeg::PacketPtr packet;
    int streamIndex = -1;

    int inFormat = -1;
    int inRate = 0;
    std::int64_t resampledIn = 0; // source frames fed to the current resampler
    std::int64_t resampledOut = 0;
    AVChannelLayout inLayout{};

    std::vector<float> pending; // converted frames not yet handed out
    std::size_t pendingBegin = 0;
    std::size_t pendingEnd = 0;

    std::size_t framesOut = 0; // frames handed out so far
    // MP4 states its exact length (edit list) but FFmpeg does not cut the AAC padding at the
    // end; without this a looping M4A would have a gap of up to one AAC frame.
    std::optional<std::size_t> frameLimit;
    bool inputEnded = false; // the flush packet was sent
    bool decoderDrained = false;
    bool ended = false;
    int consecutiveErrors = 0;
    Expected<void> outcome; // the first part-way problem

    ~Impl() { av_channel_layout_uninit(&inLayout); }

    void fail(OpenError reason, std::string detail) {
        if (outcome) {
            outcome = Failure{reason, std::move(detail)};
        }
    }

    std::size_t channels() const { return static_cast<std::size_t>(info.channels); }

    float* reserve(std::size_t frames) {
        if (pendingBegin == pendingEnd) {
            pendingBegin = pendingEnd = 0;
        }
        const std::size_t needed = (pendingEnd + frames) * channels();
        if (pending.size() < needed) {
            pending.resize(needed);
        }
        return pending.data() + pendingEnd * channels();
    }

    void commit(std::size_t frames) {
        float* samples = pending.data() + pendingEnd * channels();
        for (std::size_t i = 0; i < frames * channels(); ++i) {
            if (!std::isfinite(samples[i])) {
                samples[i] = 0.0f;
            }
        }
        pendingEnd += frames;
    }

    void flushResampler() {
        if (!resampler) {
            return;
        }
        // The flush pads the filter's tail with silence; keep only what the input accounts for,
        // so a resampled sound has exactly its length at the mix rate.
        const std::int64_t expected =
            av_rescale_rnd(resampledIn, kMixRate, inRate, AV_ROUND_NEAR_INF);
        for (;;) {
            const std::int64_t left = expected - resampledOut;
            if (left <= 0) {
                break;
            }
            const int room = static_cast<int>(std::min<std::int64_t>(left, 4096));
            auto* out = reinterpret_cast<std::uint8_t*>(reserve(static_cast<std::size_t>(room)));
            const int n = swr_convert(resampler.get(), &out, room, nullptr, 0);
            if (n <= 0) {
                break;
            }
            commit(static_cast<std::size_t>(n));
            resampledOut += n;
        }
    }

    bool setUpResampler(const AVFrame* in) {
        if (in->sample_rate <= 0 || in->sample_rate > kMaxSampleRate ||
            in->ch_layout.nb_channels <= 0 || in->ch_layout.nb_channels > kMaxChannels) {
            fail(OpenError::corrupt, "a decoded frame has an impossible format");
            return false;
        }
        if (resampler && in->format == inFormat && in->sample_rate == inRate &&
            av_channel_layout_compare(&in->ch_layout, &inLayout) == 0) {
            return true;
        }
        flushResampler();
        resampler.reset();
        av_channel_layout_uninit(&inLayout);
        AVChannelLayout layout{};
        if (in->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC ||
            av_channel_layout_check(&in->ch_layout) == 0) {
            av_channel_layout_default(&layout, in->ch_layout.nb_channels);
        } else if (av_channel_layout_copy(&layout, &in->ch_layout) < 0) {
            fail(OpenError::notReadable, "out of memory");
            return false;
        }
        AVChannelLayout outLayout{};
        av_channel_layout_default(&outLayout, info.channels);
        SwrContext* raw = nullptr;
        int rc = swr_alloc_set_opts2(&raw, &outLayout, AV_SAMPLE_FMT_FLT, kMixRate, &layout,
                                     static_cast<AVSampleFormat>(in->format), in->sample_rate, 0,
                                     nullptr);
        ffmpeg::SwrPtr swr(raw);
        if (rc >= 0 && layout.nb_channels == 1 && info.channels == 2) {
            // swresample spreads mono over stereo 3 dB down; keep the source's level.
            const double matrix[2] = {1.0, 1.0};
            rc = swr_set_matrix(swr.get(), matrix, 1);
        }
        if (rc >= 0) {
            rc = swr_init(swr.get());
        }
        if (rc < 0) {
            av_channel_layout_uninit(&layout);
            fail(OpenError::corrupt,
                 "cannot convert the decoded audio: " + FfmpegLog::describe(rc));
            return false;
        }
        resampler = std::move(swr);
        resampledIn = 0;
        resampledOut = 0;
        // Remember the frame's own layout (often "unspecified") to notice real changes.
        av_channel_layout_uninit(&layout);
        if (av_channel_layout_copy(&inLayout, &in->ch_layout) < 0) {
            inLayout = AVChannelLayout{};
        }
        inFormat = in->format;
        inRate = in->sample_rate;
        return true;
    }

    void convert(const AVFrame* in) {
        if (!setUpResampler(in)) {
            return;
        }
        const int room = swr_get_out_samples(resampler.get(), in->nb_samples);
        if (room <= 0) {
            return;
        }
        auto* out = reinterpret_cast<std::uint8_t*>(reserve(static_cast<std::size_t>(room)));
        const int n =
            swr_convert(resampler.get(), &out, room,
                        const_cast<const std::uint8_t**>(in->extended_data), in->nb_samples);
        if (n < 0) {
            fail(OpenError::corrupt, "conversion failed: " + FfmpegLog::describe(n));
            return;
        }
        commit(static_cast<std::size_t>(n));
        resampledIn += in->nb_samples;
        resampledOut += n;
    }

    void onError(std::string detail) {
        fail(OpenError::corrupt, std::move(detail));
        if (++consecutiveErrors >= kMaxConsecutiveErrors) {
            ended = true;
        }
    }

    bool openCodec() {
        const AVStream* audio = format->streams[streamIndex];
        codec.reset(avcodec_alloc_context3(decoder));
        frame.reset(av_frame_alloc());
        packet.reset(av_packet_alloc());
        if (!codec || !frame || !packet) {
            fail(OpenError::notReadable, "out of memory");
            return false;
        }
        FfmpegLog::reset();
        int rc = avcodec_parameters_to_context(codec.get(), audio->codecpar);
        if (rc >= 0) {
            codec->pkt_timebase = audio->time_base;
            rc = avcodec_open2(codec.get(), decoder, nullptr);
        }
        if (rc < 0) {
            fail(OpenError::corrupt, "cannot open the decoder: " + ffmpegDetail(rc));
            codec.reset();
            return false;
        }
        return true;
    }

    // Moves the decoder one step on: a frame converted, a packet fed, or the end reached.
    void step() {
        if (decoderDrained) {
            ended = true;
            return;
        }
        if (!codec && !openCodec()) {
            ended = true;
            return;
        }
        int rc = avcodec_receive_frame(codec.get(), frame.get());
        if (rc == 0) {
            consecutiveErrors = 0;
            convert(frame.get());
            av_frame_unref(frame.get());
            return;
        }
        if (rc == AVERROR_EOF) {
            decoderDrained = true;
            flushResampler();
            return;
        }
        if (rc != AVERROR(EAGAIN)) {
            onError("decoding failed: " + FfmpegLog::describe(rc));
            return;
        }
        if (inputEnded) {
            // The decoder asks for input after the flush packet: it has nothing more.
            decoderDrained = true;
            flushResampler();
            return;
        }
        rc = av_read_frame(format.get(), packet.get());
        if (rc < 0) {
            if (rc != AVERROR_EOF) {
                fail(OpenError::notReadable, "reading failed: " + ffmpegDetail(rc));
            }
            inputEnded = true;
            avcodec_send_packet(codec.get(), nullptr);
            return;
        }
        if (packet->stream_index == streamIndex) {
            rc = avcodec_send_packet(codec.get(), packet.get());
            if (rc < 0 && rc != AVERROR(EAGAIN)) {
                onError("a damaged packet was skipped: " + FfmpegLog::describe(rc));
            }
        }
        av_packet_unref(packet.get());
    }
};

Decoder::Decoder(std::unique_ptr<Impl> impl)
    : mImpl(std::move(impl)) {}

Decoder::~Decoder() = default;

const SoundInfo& Decoder::info() const noexcept {
    return mImpl->info;
}

bool Decoder::atEnd() const noexcept {
    return mImpl->ended;
}

const Expected<void>& Decoder::outcome() const noexcept {
    return mImpl->outcome;
}

Expected<std::unique_ptr<Decoder>> Decoder::open(const std::string& path) {
    FfmpegLog::install();
    FfmpegLog::reset();

    auto opened = openRegularFile(path);
    if (!opened) {
        return opened.failure();
    }
    auto impl = std::make_unique<Impl>();
    impl->file.fd = opened.value();

    struct stat st {};
    if (::fstat(impl->file.fd, &st) == 0 && st.st_size == 0) {
        return Failure{OpenError::notAudio, "The file is empty"};
    }

    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
    if (buffer == nullptr) {
        return Failure{OpenError::notReadable, "Out of memory"};
    }
    AVIOContext* io =
        avio_alloc_context(buffer, kIoBufferSize, 0, &impl->file.fd, readPacket, nullptr, seekFile);
    if (io == nullptr) {
        av_free(buffer);
        return Failure{OpenError::notReadable, "Out of memory"};
    }
    impl->io.reset(io);

    // The name FFmpeg sees is only a hint (and the base of any nested open, which the protocol
    // whitelist then limits to plain files). The content decides the format.
    const std::string url = "file:" + path;
    const AVInputFormat* probed = bySignature(impl->file.fd);
    int rc = 0;
    if (probed == nullptr) {
        rc = av_probe_input_buffer2(io, &probed, url.c_str(), nullptr, 0, 0);
    }
    if (rc < 0 || probed == nullptr) {
        if (rc == AVERROR_INVALIDDATA || probed == nullptr) {
            return Failure{OpenError::notAudio, "Invalid data found when processing input"};
        }
        return Failure{OpenError::notReadable, ffmpegDetail(rc)};
    }
    if (!isAllowedDemuxer(probed->name)) {
        return Failure{OpenError::unsupportedFormat,
                       std::string("Format not allowed for sounds: ") + probed->name};
    }

    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        return Failure{OpenError::notReadable, "Out of memory"};
    }
    context->pb = io;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    Dictionary options;
    av_dict_set(&options.dict, "protocol_whitelist", "file", 0);
    av_dict_set(&options.dict, "format_whitelist", kDemuxerWhitelist, 0);
    av_dict_set(&options.dict, "enable_drefs", "0", 0);
    rc = avformat_open_input(&context, url.c_str(), probed, &options.dict);
    if (rc < 0) {
        // avformat_open_input freed the context; a known container that cannot read its own
        // header is broken ("moov atom not found", "Invalid sample rate").
        return Failure{OpenError::corrupt, ffmpegDetail(rc)};
    }
    impl->format.reset(context);
    impl->info.container = probed->name;

    // av_find_best_stream skips audio streams whose rate or channels are not known yet.
    int stream = -1;
    bool known = false;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            stream = static_cast<int>(i);
            known = parametersKnown(context->streams[i]);
            if (known) {
                break;
            }
        }
    }
    if (stream >= 0 && !known) {
        // Only some containers (mp3, adts) leave the parameters to a look at the first frames.
        rc = avformat_find_stream_info(context, nullptr);
        if (rc < 0) {
            return Failure{OpenError::corrupt, ffmpegDetail(rc)};
        }
        stream = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    }
    if (stream < 0) {
        return Failure{OpenError::notAudio, "The file has no audio stream"};
    }
    impl->streamIndex = stream;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        if (static_cast<int>(i) != stream) {
            context->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    AVStream* audio = context->streams[stream];
    const AVCodecParameters* params = audio->codecpar;

    if (isProtected(audio)) {
        return Failure{OpenError::protectedContent, "The audio is DRM-protected"};
    }
    const AVCodec* decoder = avcodec_find_decoder(params->codec_id);
    if (decoder == nullptr) {
        if (hasExtension(path, ".m4p")) {
            return Failure{OpenError::protectedContent,
                           "The audio is protected (no decoder for an .m4p)"};
        }
        const char* name = avcodec_get_name(params->codec_id);
        return Failure{OpenError::unsupportedFormat,
                       std::string("No decoder for the codec ") + (name ? name : "?")};
    }
    if (params->sample_rate <= 0 || params->sample_rate > kMaxSampleRate) {
        return Failure{OpenError::corrupt,
                       "Invalid sample rate " + std::to_string(params->sample_rate)};
    }
    const int channels = params->ch_layout.nb_channels;
    if (channels <= 0 || channels > kMaxChannels) {
        return Failure{OpenError::corrupt, "Invalid channel count " + std::to_string(channels)};
    }

    // The codec itself is opened by the first decodeInto: its state (hundreds of KB for AAC)
    // is made on the thread that decodes, not on the one that asked for the sound.
    impl->decoder = decoder;

    SoundInfo& info = impl->info;
    info.channels = channels == 1 ? 1 : 2;
    info.sourceRate = params->sample_rate;
    info.sourceChannels = channels;
    info.codec = decoder->name;
    if (audio->duration != AV_NOPTS_VALUE && audio->duration > 0) {
        info.durationEstimate = static_cast<double>(audio->duration) * av_q2d(audio->time_base);
    } else if (context->duration != AV_NOPTS_VALUE && context->duration > 0) {
        info.durationEstimate = static_cast<double>(context->duration) / AV_TIME_BASE;
    }
    if (!std::isfinite(info.durationEstimate) || info.durationEstimate < 0) {
        info.durationEstimate = 0;
    }
    if (info.container == "mov,mp4,m4a,3gp,3g2,mj2" && audio->duration != AV_NOPTS_VALUE &&
        audio->duration > 0) {
        impl->frameLimit = static_cast<std::size_t>(
            av_rescale_q(audio->duration, audio->time_base, AVRational{1, kMixRate}));
    }
    return std::unique_ptr<Decoder>(new Decoder(std::move(impl)));
}

std::size_t Decoder::decodeInto(SoundData& out, std::size_t maxFrames) {
    Impl& d = *mImpl;
    std::size_t done = 0;
    while (done < maxFrames && !d.ended) {
        if (d.frameLimit && d.framesOut >= *d.frameLimit) {
            d.ended = true; // the rest is the encoder's padding
            break;
        }
        if (d.pendingBegin < d.pendingEnd) {
            std::size_t wanted = std::min(maxFrames - done, d.pendingEnd - d.pendingBegin);
            if (d.frameLimit) {
                wanted = std::min(wanted, *d.frameLimit - d.framesOut);
            }
            const std::size_t taken =
                out.append(d.pending.data() + d.pendingBegin * d.channels(), wanted);
            d.pendingBegin += taken;
            d.framesOut += taken;
            done += taken;
            if (taken < wanted) {
                d.fail(OpenError::tooLarge, "the sound is longer than the memory allowed for it");
                d.ended = true;
            }
            continue;
        }
        d.step();
    }
    return done;
}

} // namespace vantelo_sounds::engine
