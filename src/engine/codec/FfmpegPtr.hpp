#pragma once

// One owner per FFmpeg object type, so that every early return frees what was made.

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

namespace vantelo_sounds::engine::ffmpeg {

using CodecContextPtr =
    std::unique_ptr<AVCodecContext, decltype([](AVCodecContext* c) { avcodec_free_context(&c); })>;
using InputContextPtr =
    std::unique_ptr<AVFormatContext,
                    decltype([](AVFormatContext* c) { avformat_close_input(&c); })>;
/// An output (muxer) context and the file it opened.
using OutputContextPtr =
    std::unique_ptr<AVFormatContext, decltype([](AVFormatContext* c) {
                        if (c->pb != nullptr && !(c->oformat->flags & AVFMT_NOFILE)) {
                            avio_closep(&c->pb);
                        }
                        avformat_free_context(c);
                    })>;
using FramePtr = std::unique_ptr<AVFrame, decltype([](AVFrame* f) { av_frame_free(&f); })>;
using PacketPtr = std::unique_ptr<AVPacket, decltype([](AVPacket* p) { av_packet_free(&p); })>;
using SwrPtr = std::unique_ptr<SwrContext, decltype([](SwrContext* s) { swr_free(&s); })>;
/// An AVIOContext with a custom buffer: both the buffer and the context are freed.
using IoContextPtr = std::unique_ptr<AVIOContext, decltype([](AVIOContext* io) {
                                         av_freep(&io->buffer);
                                         avio_context_free(&io);
                                     })>;

} // namespace vantelo_sounds::engine::ffmpeg
