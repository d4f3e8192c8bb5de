#include "engine/codec/M4aRemux.hpp"

#include <cstdio>

#include "engine/codec/FfmpegLog.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "engine/codec/WriteError.hpp"

namespace vantelo_sounds::engine {

namespace {

Failure remuxFailure(const char* what, int code) {
    if (code < 0 && -code < 4096) {
        return Failure{std::error_code(-code, std::generic_category()), what};
    }
    return Failure{WriteError::encodingFailed,
                   std::string(what) + ": " + FfmpegLog::describe(code)};
}

} // namespace

Expected<void> remuxToPlainM4a(const std::string& path, int primingSamples) {
    AVFormatContext* rawIn = nullptr;
    const std::string inUrl = "file:" + path;
    int rc = avformat_open_input(&rawIn, inUrl.c_str(), av_find_input_format("mov"), nullptr);
    if (rc < 0) {
        return remuxFailure("cannot reopen the recording", rc);
    }
    ffmpeg::InputContextPtr in(rawIn);
    rc = avformat_find_stream_info(in.get(), nullptr);
    if (rc < 0 || in->nb_streams != 1) {
        return remuxFailure("cannot read the recording", rc < 0 ? rc : AVERROR_INVALIDDATA);
    }

    const std::string temporary = path + ".part";
    AVFormatContext* rawOut = nullptr;
    rc = avformat_alloc_output_context2(&rawOut, nullptr, "ipod", temporary.c_str());
    if (rc < 0 || rawOut == nullptr) {
        return remuxFailure("cannot create the plain file", rc);
    }
    ffmpeg::OutputContextPtr out(rawOut);
    AVStream* stream = avformat_new_stream(out.get(), nullptr);
    if (stream == nullptr) {
        return Failure{WriteError::outOfMemory, {}};
    }
    rc = avcodec_parameters_copy(stream->codecpar, in->streams[0]->codecpar);
    if (rc < 0) {
        return remuxFailure("cannot copy the stream", rc);
    }
    stream->codecpar->codec_tag = 0;
    stream->codecpar->initial_padding = primingSamples; // becomes the edit list's start
    stream->time_base = in->streams[0]->time_base;
    const std::string outUrl = "file:" + temporary;
    rc = avio_open(&out->pb, outUrl.c_str(), AVIO_FLAG_WRITE);
    if (rc >= 0) {
        rc = avformat_write_header(out.get(), nullptr);
    }
    ffmpeg::PacketPtr packet(av_packet_alloc());
    while (rc >= 0 && packet) {
        rc = av_read_frame(in.get(), packet.get());
        if (rc == AVERROR_EOF) {
            rc = av_write_trailer(out.get());
            break;
        }
        if (rc >= 0) {
            // The priming samples come first: starting the timeline before 0 by as much is what
            // makes the muxer write the edit list that hides them.
            const std::int64_t shift =
                av_rescale_q(primingSamples, AVRational{1, in->streams[0]->codecpar->sample_rate},
                             in->streams[0]->time_base);
            packet->pts = packet->pts == AV_NOPTS_VALUE ? packet->pts : packet->pts - shift;
            packet->dts = packet->dts == AV_NOPTS_VALUE ? packet->dts : packet->dts - shift;
            av_packet_rescale_ts(packet.get(), in->streams[0]->time_base, stream->time_base);
            packet->stream_index = 0;
            packet->pos = -1;
            rc = av_interleaved_write_frame(out.get(), packet.get());
        }
    }
    out.reset(); // closes the file
    if (rc < 0 || !packet) {
        std::remove(temporary.c_str());
        return remuxFailure("cannot write the plain file", rc < 0 ? rc : AVERROR(ENOMEM));
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(temporary.c_str());
        return Failure{std::error_code(error, std::generic_category()), "cannot replace " + path};
    }
    return {};
}

} // namespace vantelo_sounds::engine
