#include "engine/codec/Decoder.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/codec/FfmpegLog.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "engine/codec/FileCheck.hpp"
#include "engine/codec/GaplessTrim.hpp"
#include "engine/codec/Resampler.hpp"
#include "engine/sound/FrameSink.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {
namespace {

// Demuxers we trust with a sound file. Everything else (concat scripts, HLS, SDP, image
// sequences, raw formats guessed from a few bytes) is refused after probing.
constexpr std::array<std::string_view, 9> kAllowedDemuxers = {
    "wav", "mp3", "mov,mp4,m4a,3gp,3g2,mj2", "ogg", "flac", "aac", "aiff", "caf", "w64"};
constexpr const char* kDemuxerWhitelist =
    "wav,mp3,mov,mp4,m4a,3gp,3g2,mj2,ogg,flac,aac,aiff,caf,w64";

constexpr int kIoBufferSize = 32 * 1024;
// What opening may read (seeks are free). A file whose first bytes name its container reads its
// header, which for a long M4A may be megabytes of tables; anything else (MP3, ADTS, or junk
// with such a name) must show audio frames early, and is refused rather than scanned to its end.
constexpr std::uint64_t kHeaderReadLimit = 16 * 1024 * 1024;
constexpr std::uint64_t kScanReadLimit = 64 * 1024;
// Tags before the audio are allowed for up to this much on top.
constexpr std::uint64_t kMaxTagAllowance = 16 * 1024 * 1024;
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
// protocol, no path parsing and no blocking open happen inside FFmpeg. While the file is being
// opened, reads stop at a limit (they see the end of the file there): a demuxer that scans for a
// frame through megabytes of junk gives up in bounded time on the caller's thread.
struct BoundedFile {
    int fd = -1;
    std::uint64_t readSoFar = 0;
    std::uint64_t readLimit = std::numeric_limits<std::uint64_t>::max();

    BoundedFile() = default;
    BoundedFile(const BoundedFile&) = delete;
    BoundedFile& operator=(const BoundedFile&) = delete;
    ~BoundedFile() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    bool reachedLimit() const noexcept { return readSoFar >= readLimit; }
};

int readPacket(void* opaque, std::uint8_t* buffer, int size) {
    auto& file = *static_cast<BoundedFile*>(opaque);
    if (file.reachedLimit()) {
        return AVERROR_EOF;
    }
    const auto wanted = static_cast<std::size_t>(
        std::min<std::uint64_t>(static_cast<std::uint64_t>(size), file.readLimit - file.readSoFar));
    ssize_t n = 0;
    do {
        n = ::read(file.fd, buffer, wanted);
    } while (n < 0 && errno == EINTR);
    if (n == 0) {
        return AVERROR_EOF;
    }
    if (n < 0) {
        return AVERROR(errno);
    }
    file.readSoFar += static_cast<std::uint64_t>(n);
    return static_cast<int>(n);
}

std::int64_t seekFile(void* opaque, std::int64_t offset, int whence) {
    const int fd = static_cast<BoundedFile*>(opaque)->fd;
    if (whence & AVSEEK_SIZE) {
        struct stat st {};
        return ::fstat(fd, &st) == 0 ? static_cast<std::int64_t>(st.st_size) : AVERROR(errno);
    }
    const off_t position = ::lseek(fd, static_cast<off_t>(offset), whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : static_cast<std::int64_t>(position);
}

// The size of an ID3v2 tag at the start of the file (header included), or 0. FFmpeg reads the
// whole tag (cover art and all) before it looks at the audio, so the open's read limit allows for
// it, up to a point.
std::uint64_t id3v2TagBytes(int fd) {
    unsigned char head[10] = {};
    if (::pread(fd, head, sizeof head, 0) != static_cast<ssize_t>(sizeof head) ||
        std::memcmp(head, "ID3", 3) != 0) {
        return 0;
    }
    const std::uint64_t size =
        (std::uint64_t{head[6]} & 0x7f) << 21 | (std::uint64_t{head[7]} & 0x7f) << 14 |
        (std::uint64_t{head[8]} & 0x7f) << 7 | (std::uint64_t{head[9]} & 0x7f);
    const bool footer = (head[5] & 0x10) != 0;
    return size + 10 + (footer ? 10 : 0);
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
    std::string path;
    // The name FFmpeg sees is only a hint (and the base of any nested open, which the protocol
    // whitelist then limits to plain files).
    std::string url;
    SoundInfo info;
    // Declaration order is destruction order reversed: the format context goes before the I/O
    // context it reads through, and that before the descriptor.
    BoundedFile file;
    ffmpeg::IoContextPtr io;
    const AVInputFormat* container = nullptr;
    ffmpeg::InputContextPtr format;
    AVStream* audio = nullptr;
    const AVCodec* decoder = nullptr;
    ffmpeg::CodecContextPtr codec; // opened by the first step()
    ffmpeg::FramePtr frame;
    ffmpeg::PacketPtr packet;
    std::optional<GaplessTrim> trim;
    std::optional<Resampler> resampler;

    std::uint64_t fileBytes = 0;
    bool inputEnded = false; // the flush packet was sent
    bool decoderDrained = false;
    bool ended = false;
    int consecutiveErrors = 0;
    Expected<void> outcome; // the first part-way problem

    // ---- opening, in this order ------------------------------------------------------------
    Expected<void> openFile();
    Expected<void> makeReader();
    Expected<void> recogniseContainer();
    Expected<void> openDemuxer();
    Expected<void> findAudioStream();
    Expected<void> refuseProtected();
    Expected<void> findCodec();
    Expected<void> checkParameters();
    void describe();

    // ---- decoding ---------------------------------------------------------------------------
    Expected<void> openCodec();
    void step();
    void convert(const AVFrame& decoded);
    void endOfInput();
    void fail(const Failure& failure);
    void onError(std::string detail);
};

Expected<void> Decoder::Impl::openFile() {
    auto opened = openRegularFile(path);
    if (!opened) {
        return opened.failure();
    }
    file.fd = opened.value();
    struct stat st {};
    if (::fstat(file.fd, &st) == 0 && st.st_size == 0) {
        return Failure{OpenError::notAudio, "The file is empty"};
    }
    fileBytes = static_cast<std::uint64_t>(st.st_size);
    file.readLimit = kScanReadLimit + std::min(id3v2TagBytes(file.fd), kMaxTagAllowance);
    return {};
}

Expected<void> Decoder::Impl::makeReader() {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
    if (buffer == nullptr) {
        return Failure{OpenError::notReadable, "Out of memory"};
    }
    AVIOContext* context =
        avio_alloc_context(buffer, kIoBufferSize, 0, &file, readPacket, nullptr, seekFile);
    if (context == nullptr) {
        av_free(buffer);
        return Failure{OpenError::notReadable, "Out of memory"};
    }
    io.reset(context);
    return {};
}

// The content decides the format, never the name.
Expected<void> Decoder::Impl::recogniseContainer() {
    container = bySignature(file.fd);
    int rc = 0;
    if (container != nullptr) {
        file.readLimit = kHeaderReadLimit;
    } else {
        rc = av_probe_input_buffer2(io.get(), &container, url.c_str(), nullptr, 0,
                                    static_cast<unsigned>(file.readLimit));
    }
    if (rc < 0 || container == nullptr) {
        if (rc == AVERROR_INVALIDDATA || container == nullptr) {
            return Failure{OpenError::notAudio, "Invalid data found when processing input"};
        }
        return Failure{OpenError::notReadable, ffmpegDetail(rc)};
    }
    if (!isAllowedDemuxer(container->name)) {
        return Failure{OpenError::unsupportedFormat,
                       std::string("Format not allowed for sounds: ") + container->name};
    }
    return {};
}

Expected<void> Decoder::Impl::openDemuxer() {
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        return Failure{OpenError::notReadable, "Out of memory"};
    }
    context->pb = io.get();
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Nested opens (a playlist's entries, an MP4's external references) are refused too.
    Dictionary options;
    av_dict_set(&options.dict, "protocol_whitelist", "file", 0);
    av_dict_set(&options.dict, "format_whitelist", kDemuxerWhitelist, 0);
    av_dict_set(&options.dict, "enable_drefs", "0", 0);
    const int rc = avformat_open_input(&context, url.c_str(), container, &options.dict);
    if (rc < 0) {
        // avformat_open_input freed the context; a known container that cannot read its own
        // header is broken ("moov atom not found", "Invalid sample rate").
        return Failure{OpenError::corrupt, ffmpegDetail(rc)};
    }
    format.reset(context);
    info.container = container->name;
    return {};
}

Expected<void> Decoder::Impl::findAudioStream() {
    AVFormatContext* context = format.get();
    // av_find_best_stream skips audio streams whose rate or channels are not known yet.
    int stream = -1;
    bool known = false;
    for (unsigned i = 0; i < context->nb_streams && !known; ++i) {
        if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            stream = static_cast<int>(i);
            known = parametersKnown(context->streams[i]);
        }
    }
    if (stream >= 0 && !known) {
        // Only some containers (mp3, adts) leave the parameters to a look at the first frames.
        const int rc = avformat_find_stream_info(context, nullptr);
        if (rc < 0) {
            return Failure{OpenError::corrupt, ffmpegDetail(rc)};
        }
        stream = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    }
    if (stream < 0) {
        return Failure{OpenError::notAudio, "The file has no audio stream"};
    }
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        if (static_cast<int>(i) != stream) {
            context->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    audio = context->streams[stream];
    return {};
}

Expected<void> Decoder::Impl::refuseProtected() {
    if (isProtected(audio)) {
        return Failure{OpenError::protectedContent, "The audio is DRM-protected"};
    }
    if (avcodec_find_decoder(audio->codecpar->codec_id) == nullptr && hasExtension(path, ".m4p")) {
        return Failure{OpenError::protectedContent,
                       "The audio is protected (no decoder for an .m4p)"};
    }
    return {};
}

// The codec itself is opened by the first decodeInto: its state (hundreds of KB for AAC) is
// made on the thread that decodes, not on the one that asked for the sound.
Expected<void> Decoder::Impl::findCodec() {
    decoder = avcodec_find_decoder(audio->codecpar->codec_id);
    if (decoder == nullptr) {
        const char* name = avcodec_get_name(audio->codecpar->codec_id);
        return Failure{OpenError::unsupportedFormat,
                       std::string("No decoder for the codec ") + (name ? name : "?")};
    }
    return {};
}

Expected<void> Decoder::Impl::checkParameters() {
    const AVCodecParameters* params = audio->codecpar;
    if (params->sample_rate < Resampler::kMinSampleRate ||
        params->sample_rate > Resampler::kMaxSampleRate) {
        return Failure{OpenError::corrupt,
                       "Invalid sample rate " + std::to_string(params->sample_rate)};
    }
    const int channels = params->ch_layout.nb_channels;
    if (channels <= 0 || channels > Resampler::kMaxChannels) {
        return Failure{OpenError::corrupt, "Invalid channel count " + std::to_string(channels)};
    }
    return {};
}

void Decoder::Impl::describe() {
    const AVCodecParameters* params = audio->codecpar;
    const int channels = params->ch_layout.nb_channels;
    info.channels = channels == 1 ? 1 : 2;
    info.sourceRate = params->sample_rate;
    info.sourceChannels = channels;
    info.codec = decoder->name;
    if (audio->duration != AV_NOPTS_VALUE && audio->duration > 0) {
        info.durationEstimate = static_cast<double>(audio->duration) * av_q2d(audio->time_base);
    } else if (format->duration != AV_NOPTS_VALUE && format->duration > 0) {
        info.durationEstimate = static_cast<double>(format->duration) / AV_TIME_BASE;
    }
    if (!std::isfinite(info.durationEstimate) || info.durationEstimate < 0) {
        info.durationEstimate = 0;
    }
    // Uncompressed audio cannot hold more than the file's bytes: a header that says more (a
    // size field of 0xFFFFFFFF, a file cut short) or nothing at all is corrected from them.
    if (params->block_align > 0 && av_get_bits_per_sample(params->codec_id) > 0) {
        const std::int64_t start = std::max<std::int64_t>(avio_tell(format->pb), 0);
        const std::uint64_t bytes = fileBytes - std::min<std::uint64_t>(fileBytes, start);
        const double held =
            static_cast<double>(bytes / static_cast<std::uint64_t>(params->block_align)) /
            params->sample_rate;
        if (info.durationEstimate == 0 || held < info.durationEstimate) {
            info.durationEstimate = held;
        }
    }
}

Expected<void> Decoder::Impl::openCodec() {
    codec.reset(avcodec_alloc_context3(decoder));
    frame.reset(av_frame_alloc());
    packet.reset(av_packet_alloc());
    if (!codec || !frame || !packet) {
        return Failure{OpenError::notReadable, "out of memory"};
    }
    FfmpegLog::reset();
    int rc = avcodec_parameters_to_context(codec.get(), audio->codecpar);
    if (rc >= 0) {
        codec->pkt_timebase = audio->time_base;
        // The encoder's delay and padding are cut by GaplessTrim, which knows the stated length.
        codec->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
        rc = avcodec_open2(codec.get(), decoder, nullptr);
    }
    if (rc < 0) {
        codec.reset();
        return Failure{OpenError::corrupt, "cannot open the decoder: " + ffmpegDetail(rc)};
    }
    // FFmpeg guesses an MP3's or ADTS file's duration from its bit rate when nothing states it.
    trim.emplace(*audio, format->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE);
    resampler.emplace(info.channels);
    return {};
}

void Decoder::Impl::fail(const Failure& failure) {
    if (outcome) {
        outcome = failure;
    }
}

void Decoder::Impl::onError(std::string detail) {
    fail(Failure{OpenError::corrupt, std::move(detail)});
    if (++consecutiveErrors >= kMaxConsecutiveErrors) {
        ended = true;
    }
}

void Decoder::Impl::convert(const AVFrame& decoded) {
    const GaplessTrim::Span sound = trim->keep(decoded);
    if (auto converted = resampler->convert(decoded, sound.first, sound.count); !converted) {
        fail(converted.failure());
    }
    if (trim->pastEnd()) {
        endOfInput(); // the rest is the encoder's padding
    }
}

// Nothing more will come from the decoder: what the resampler still holds comes out.
void Decoder::Impl::endOfInput() {
    decoderDrained = true;
    resampler->finish();
}

// Moves the decoder one step on: a frame converted, a packet fed, or the end reached.
void Decoder::Impl::step() {
    if (decoderDrained) {
        ended = true;
        return;
    }
    if (!codec) {
        if (auto opened = openCodec(); !opened) {
            fail(opened.failure());
            ended = true;
            return;
        }
    }
    int rc = avcodec_receive_frame(codec.get(), frame.get());
    if (rc == 0) {
        consecutiveErrors = 0;
        convert(*frame);
        av_frame_unref(frame.get());
        return;
    }
    if (rc == AVERROR_EOF) {
        endOfInput();
        return;
    }
    if (rc != AVERROR(EAGAIN)) {
        onError("decoding failed: " + FfmpegLog::describe(rc));
        return;
    }
    if (inputEnded) {
        // The decoder asks for input after the flush packet: it has nothing more.
        endOfInput();
        return;
    }
    rc = av_read_frame(format.get(), packet.get());
    if (rc < 0) {
        if (rc != AVERROR_EOF) {
            fail(Failure{OpenError::notReadable, "reading failed: " + ffmpegDetail(rc)});
        }
        inputEnded = true;
        avcodec_send_packet(codec.get(), nullptr);
        return;
    }
    if (packet->stream_index == audio->index) {
        trim->packetSent(*packet);
        rc = avcodec_send_packet(codec.get(), packet.get());
        if (rc < 0 && rc != AVERROR(EAGAIN)) {
            onError("a damaged packet was skipped: " + FfmpegLog::describe(rc));
        }
    }
    av_packet_unref(packet.get());
}

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
    auto impl = std::make_unique<Impl>();
    impl->path = path;
    impl->url = "file:" + path;
    using Step = Expected<void> (Impl::*)();
    for (const Step step : {&Impl::openFile, &Impl::makeReader, &Impl::recogniseContainer,
                            &Impl::openDemuxer, &Impl::findAudioStream, &Impl::refuseProtected,
                            &Impl::findCodec, &Impl::checkParameters}) {
        if (auto done = (impl.get()->*step)(); !done) {
            if (impl->file.reachedLimit()) {
                return Failure{OpenError::notAudio,
                               "no audio found in the first " +
                                   std::to_string(impl->file.readLimit / 1024) + " KB (" +
                                   done.failure().detail + ")"};
            }
            return done.failure();
        }
    }
    impl->describe();
    impl->file.readLimit = std::numeric_limits<std::uint64_t>::max(); // decoding reads it all
    return std::unique_ptr<Decoder>(new Decoder(std::move(impl)));
}

std::size_t Decoder::decodeInto(FrameSink& out, std::size_t maxFrames) {
    Impl& d = *mImpl;
    std::size_t done = 0;
    while (done < maxFrames && !d.ended) {
        if (d.resampler && d.resampler->available() > 0) {
            const std::size_t wanted = std::min(maxFrames - done, d.resampler->available());
            const std::size_t taken = out.append(d.resampler->data(), wanted);
            d.resampler->consume(taken);
            done += taken;
            if (taken < wanted) {
                d.fail(Failure{OpenError::tooLarge,
                               "the sound is longer than the memory allowed for it"});
                d.ended = true;
            }
            continue;
        }
        d.step();
    }
    return done;
}

} // namespace vantelo_sounds::engine
