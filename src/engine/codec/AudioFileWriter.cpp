#include "engine/codec/AudioFileWriter.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/codec/FfmpegLog.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "engine/codec/M4aRemux.hpp"

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace vantelo_sounds::engine {
namespace {

using FifoPtr =
    std::unique_ptr<AVAudioFifo, decltype([](AVAudioFifo* f) { av_audio_fifo_free(f); })>;

const AVCodec* findEncoder(AudioFileFormat format) {
    switch (format) {
    case AudioFileFormat::m4a:
        return avcodec_find_encoder_by_name("aac");
    case AudioFileFormat::mp3:
        return avcodec_find_encoder_by_name("libmp3lame");
    case AudioFileFormat::flac:
        return avcodec_find_encoder_by_name("flac");
    case AudioFileFormat::ogg:
        if (const AVCodec* vorbis = avcodec_find_encoder_by_name("libvorbis")) {
            return vorbis;
        }
        return avcodec_find_encoder_by_name("libopus");
    case AudioFileFormat::wav16:
        return avcodec_find_encoder_by_name("pcm_s16le");
    case AudioFileFormat::wavFloat:
        return avcodec_find_encoder_by_name("pcm_f32le");
    }
    return nullptr;
}

// Each format's muxer is named like its file extension, except M4A's ("ipod", brand M4A).
const char* muxerName(AudioFileFormat format) {
    return format == AudioFileFormat::m4a ? "ipod" : extensionFor(format);
}

AVSampleFormat pickSampleFormat(const AVCodec* codec) {
    if (codec->sample_fmts == nullptr) {
        return AV_SAMPLE_FMT_FLTP;
    }
    for (const AVSampleFormat preferred : {AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_FLT}) {
        for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f) {
            if (*f == preferred) {
                return *f;
            }
        }
    }
    return codec->sample_fmts[0];
}

// The rate itself when the encoder takes it, else the closest rate it does take.
int pickSampleRate(const AVCodec* codec, int wanted) {
    if (codec->supported_samplerates == nullptr) {
        return wanted;
    }
    int best = 0;
    for (const int* r = codec->supported_samplerates; *r != 0; ++r) {
        if (*r == wanted) {
            return wanted;
        }
        if (best == 0 || std::abs(*r - wanted) < std::abs(best - wanted)) {
            best = *r;
        }
    }
    return best == 0 ? wanted : best;
}

std::int64_t defaultBitRate(AudioFileFormat format, int rate, int channels) {
    switch (format) {
    case AudioFileFormat::m4a:
        return (rate <= 16000 ? 32000 : 64000) * channels;
    case AudioFileFormat::mp3:
        return (rate <= 16000 ? 32000 : 64000) * channels;
    default:
        return 0; // lossless, PCM, or the encoder's own quality default (vorbis)
    }
}

// FFmpeg's error codes are negated errno values where the system said no (a folder that does not
// exist, a full disk): those keep their errno, the rest are the encoder's or the muxer's refusal.
Failure ffmpegFailure(const char* what, int code) {
    const std::string logged = FfmpegLog::firstError();
    const std::string detail =
        std::string(what) + ": " + (logged.empty() ? FfmpegLog::describe(code) : logged);
    if (code < 0 && -code < 4096) {
        return Failure{std::error_code(-code, std::generic_category()), detail};
    }
    return Failure{WriteError::encodingFailed, detail};
}

} // namespace

struct AudioFileWriter::Impl {
    ffmpeg::OutputContextPtr output;
    ffmpeg::CodecContextPtr encoder;
    ffmpeg::SwrPtr resampler;
    FifoPtr fifo;
    ffmpeg::PacketPtr packet;
    AVStream* stream = nullptr;
    int channels = 0;
    int frameSize = 1024;
    std::int64_t nextPts = 0;
    std::uint64_t framesWritten = 0;
    std::vector<float> clean;
    bool headerWritten = false;
    // Fragmented M4A: the fragment length, in the encoder's ticks (0: not fragmented), and how
    // much the fragment being written holds.
    std::int64_t fragmentTicks = 0;
    std::int64_t fragmentFill = 0;

    Expected<void> drainPackets() {
        for (;;) {
            int rc = avcodec_receive_packet(encoder.get(), packet.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) {
                return {};
            }
            if (rc < 0) {
                return ffmpegFailure("encoding failed", rc);
            }
            const std::int64_t duration = packet->duration; // in samples
            av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            rc = av_interleaved_write_frame(output.get(), packet.get());
            if (rc < 0) {
                return ffmpegFailure("writing failed", rc);
            }
            if (fragmentTicks > 0 && (fragmentFill += duration) >= fragmentTicks) {
                fragmentFill = 0;
                rc = av_write_frame(output.get(), nullptr); // ends the fragment; it is flushed
                if (rc < 0) {
                    return ffmpegFailure("writing failed", rc);
                }
            }
        }
    }

    Expected<void> encodeFromFifo(int frames) {
        ffmpeg::FramePtr frame(av_frame_alloc());
        if (!frame) {
            return Failure{WriteError::outOfMemory, {}};
        }
        // Every field is set anew: av_frame_get_buffer needs format, rate and layout.
        frame->nb_samples = frames;
        frame->format = encoder->sample_fmt;
        frame->sample_rate = encoder->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
        int rc = av_frame_get_buffer(frame.get(), 0);
        if (rc < 0) {
            return ffmpegFailure("cannot allocate a frame", rc);
        }
        if (av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(frame->data), frames) !=
            frames) {
            return Failure{WriteError::encodingFailed, "internal buffer underrun"};
        }
        frame->pts = nextPts;
        nextPts += frames;
        rc = avcodec_send_frame(encoder.get(), frame.get());
        if (rc < 0) {
            return ffmpegFailure("encoding failed", rc);
        }
        return drainPackets();
    }

    Expected<void> convertIntoFifo(const float* interleaved, int frames) {
        const int room = swr_get_out_samples(resampler.get(), frames);
        if (room <= 0) {
            return {};
        }
        std::uint8_t* planes[AV_NUM_DATA_POINTERS] = {};
        int lineSize = 0;
        int rc = av_samples_alloc(planes, &lineSize, channels, room, encoder->sample_fmt, 0);
        if (rc < 0) {
            return ffmpegFailure("cannot allocate samples", rc);
        }
        const auto* in = reinterpret_cast<const std::uint8_t*>(interleaved);
        const int converted =
            swr_convert(resampler.get(), planes, room, interleaved ? &in : nullptr, frames);
        Expected<void> result;
        if (converted < 0) {
            result = ffmpegFailure("conversion failed", converted);
        } else if (converted > 0 &&
                   av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(planes), converted) <
                       converted) {
            result = Failure{WriteError::outOfMemory, {}};
        }
        av_freep(&planes[0]);
        return result;
    }

    Expected<void> encodeFullFrames() {
        while (av_audio_fifo_size(fifo.get()) >= frameSize) {
            if (auto result = encodeFromFifo(frameSize); !result) {
                return result;
            }
        }
        return {};
    }
};

AudioFileWriter::AudioFileWriter() = default;

AudioFileWriter::~AudioFileWriter() {
    (void)close();
}

bool AudioFileWriter::supports(AudioFileFormat format) {
    return findEncoder(format) != nullptr;
}

bool AudioFileWriter::isOpen() const noexcept {
    return mImpl != nullptr;
}

std::uint64_t AudioFileWriter::framesWritten() const noexcept {
    return mImpl ? mImpl->framesWritten : 0;
}

Expected<void> AudioFileWriter::open(const std::string& path, AudioFileFormat format,
                                     int sampleRate, int channels, const Options& options) {
    (void)close();
    FfmpegLog::install();
    FfmpegLog::reset();
    if (channels < 1 || channels > 2) {
        return Failure{WriteError::badParameters,
                       "channels must be 1 or 2, not " + std::to_string(channels)};
    }
    const int fileRate = options.encodedRate > 0 ? options.encodedRate : sampleRate;
    for (const int rate : {sampleRate, fileRate}) {
        if (rate < 1000 || rate > 384000) {
            return Failure{WriteError::badParameters,
                           "unsupported sample rate " + std::to_string(rate)};
        }
    }
    const AVCodec* codec = findEncoder(format);
    if (codec == nullptr) {
        return Failure{WriteError::noEncoder,
                       std::string("no encoder for ") + extensionFor(format)};
    }

    auto impl = std::make_unique<Impl>();
    impl->channels = channels;
    AVFormatContext* raw = nullptr;
    int rc = avformat_alloc_output_context2(&raw, nullptr, muxerName(format), path.c_str());
    if (rc < 0 || raw == nullptr) {
        return ffmpegFailure("cannot create the file", rc);
    }
    impl->output.reset(raw);

    impl->encoder.reset(avcodec_alloc_context3(codec));
    if (!impl->encoder) {
        return Failure{WriteError::outOfMemory, {}};
    }
    AVCodecContext* enc = impl->encoder.get();
    enc->sample_fmt = pickSampleFormat(codec);
    enc->sample_rate = pickSampleRate(codec, fileRate);
    av_channel_layout_default(&enc->ch_layout, channels);
    enc->time_base = AVRational{1, enc->sample_rate};
    const std::int64_t bitRate =
        options.bitRate > 0 ? options.bitRate : defaultBitRate(format, enc->sample_rate, channels);
    if (bitRate > 0) {
        enc->bit_rate = bitRate;
    }
    if (impl->output->oformat->flags & AVFMT_GLOBALHEADER) {
        enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    rc = avcodec_open2(enc, codec, nullptr);
    if (rc < 0) {
        return ffmpegFailure("cannot open the encoder", rc);
    }
    const bool variable = (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
    impl->frameSize = (enc->frame_size > 0 && !variable) ? enc->frame_size : 1024;

    impl->stream = avformat_new_stream(impl->output.get(), nullptr);
    if (impl->stream == nullptr) {
        return Failure{WriteError::outOfMemory, {}};
    }
    impl->stream->time_base = enc->time_base;
    rc = avcodec_parameters_from_context(impl->stream->codecpar, enc);
    if (rc < 0) {
        return ffmpegFailure("cannot set up the stream", rc);
    }

    AVChannelLayout inLayout{};
    av_channel_layout_default(&inLayout, channels);
    SwrContext* swr = nullptr;
    rc = swr_alloc_set_opts2(&swr, &enc->ch_layout, enc->sample_fmt, enc->sample_rate, &inLayout,
                             AV_SAMPLE_FMT_FLT, sampleRate, 0, nullptr);
    impl->resampler.reset(swr);
    if (rc >= 0) {
        rc = swr_init(swr);
    }
    if (rc < 0) {
        return ffmpegFailure("cannot set up conversion", rc);
    }
    impl->fifo.reset(av_audio_fifo_alloc(enc->sample_fmt, channels, impl->frameSize * 2));
    impl->packet.reset(av_packet_alloc());
    if (!impl->fifo || !impl->packet) {
        return Failure{WriteError::outOfMemory, {}};
    }

    const std::string url = "file:" + path;
    rc = avio_open(&impl->output->pb, url.c_str(), AVIO_FLAG_WRITE);
    if (rc < 0) {
        return ffmpegFailure("cannot create the file", rc);
    }
    AVDictionary* muxerOptions = nullptr;
    if (format == AudioFileFormat::m4a && options.fragmented) {
        // Fragments that reach the disk as they are made: a cut-off file loses at most the last.
        // The writer cuts the fragments itself, as soon as one is long enough: the muxer would
        // wait for the next packet to see that.
        av_dict_set(&muxerOptions, "movflags", "frag_custom+empty_moov+default_base_moof", 0);
        impl->fragmentTicks = std::max<std::int64_t>(
            1, static_cast<std::int64_t>(options.fragmentSeconds * enc->sample_rate));
        av_dict_set(&muxerOptions, "flush_packets", "1", 0);
    }
    rc = avformat_write_header(impl->output.get(), &muxerOptions);
    av_dict_free(&muxerOptions);
    if (rc < 0) {
        return ffmpegFailure("cannot write the header", rc);
    }
    impl->headerWritten = true;
    mImpl = std::move(impl);
    mFragmentedPath =
        format == AudioFileFormat::m4a && options.fragmented && options.plainWhenClosed
            ? path
            : std::string();
    return {};
}

Expected<void> AudioFileWriter::write(const float* interleaved, std::size_t frames) {
    if (!mImpl) {
        return Failure{WriteError::notOpen, {}};
    }
    if (frames == 0) {
        return {};
    }
    if (interleaved == nullptr) {
        return Failure{WriteError::badParameters, "no samples"};
    }
    Impl& d = *mImpl;
    constexpr std::size_t kBlock = 8192;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t n = std::min(kBlock, frames - done);
        const std::size_t samples = n * static_cast<std::size_t>(d.channels);
        d.clean.assign(interleaved + done * static_cast<std::size_t>(d.channels),
                       interleaved + done * static_cast<std::size_t>(d.channels) + samples);
        // The encoders reject NaN and infinity and leave a broken file behind.
        for (float& s : d.clean) {
            if (!std::isfinite(s)) {
                s = 0.0f;
            }
        }
        if (auto result = d.convertIntoFifo(d.clean.data(), static_cast<int>(n)); !result) {
            return result;
        }
        if (auto result = d.encodeFullFrames(); !result) {
            return result;
        }
        done += n;
        d.framesWritten += n;
    }
    return {};
}

Expected<void> AudioFileWriter::close() {
    if (!mImpl) {
        return {};
    }
    std::unique_ptr<Impl> impl = std::move(mImpl);
    Expected<void> result = impl->convertIntoFifo(nullptr, 0);
    if (result) {
        result = impl->encodeFullFrames();
    }
    if (result && av_audio_fifo_size(impl->fifo.get()) > 0) {
        result = impl->encodeFromFifo(av_audio_fifo_size(impl->fifo.get()));
    }
    if (result) {
        const int rc = avcodec_send_frame(impl->encoder.get(), nullptr);
        result = rc < 0 ? ffmpegFailure("encoding failed", rc) : impl->drainPackets();
    }
    // The trailer is written even after an error: without it nothing at all is readable.
    const int rc = av_write_trailer(impl->output.get());
    if (result && rc < 0) {
        result = ffmpegFailure("cannot finish the file", rc);
    }
    const int priming = impl->encoder->initial_padding;
    impl.reset(); // the file is closed
    if (result && !mFragmentedPath.empty()) {
        // Fragments keep a file readable while it is written; once it is complete, a plain file
        // is what players expect (exact length, no priming heard). Should that fail, the
        // fragmented file is still complete and good.
        (void)remuxToPlainM4a(mFragmentedPath, priming);
    }
    mFragmentedPath.clear();
    return result;
}

} // namespace vantelo_sounds::engine
