#pragma once

#include <cstdint>
#include <optional>

struct AVFrame;
struct AVPacket;
struct AVStream;

namespace vantelo_sounds::engine {

/// Cuts a decoder's output to the sound its file states: the encoder's delay at the front
/// (FFmpeg's skip samples) and its padding at the end, so that a sound has its stated length and
/// loops without a seam. The decoder must run with AV_CODEC_FLAG2_SKIP_MANUAL: FFmpeg then
/// reports the delay and padding on each frame instead of cutting them itself.
///
/// The end is the earlier of two statements on the stream's timeline: the stream's start plus
/// its duration (an MP4 edit list, an Ogg granule position, a FLAC or WAV sample count), and
/// where a frame's padding says the sound stops (MP3's LAME tag, Opus). Each frame is placed on
/// that timeline by counting the samples the decoder really gave since the first packet, not
/// by the frame's own timestamp. FFmpeg credits the first Vorbis packet with samples the decoder
/// never gives (a first Vorbis packet only primes the overlap: 128 samples at 48 kHz, 256 at
/// 22 kHz), so its timestamps run ahead of the audio; cut by them, a Vorbis sound loses its last
/// 128 samples, or keeps all its padding when that is longer than the last frame.
///
/// Positions are in source samples. Used by one thread at a time.
class GaplessTrim {
public:
    /// The samples of one decoded frame that belong to the sound: `count` from `first` on.
    struct Span {
        int first = 0;
        int count = 0;
    };

    /// `durationIsStated`: the stream's duration comes from the file, not from an estimate
    /// (FFmpeg guesses an MP3's or ADTS file's duration from its bit rate).
    GaplessTrim(const AVStream& stream, bool durationIsStated);

    /// Notes a packet sent to the decoder: the first one places the decoder's first sample.
    void packetSent(const AVPacket& packet) noexcept;
    /// The part of `frame` (just decoded) that is the sound.
    Span keep(const AVFrame& frame) noexcept;
    /// The sound's end has been reached: what the decoder still holds is padding.
    bool pastEnd() const noexcept { return mEnd && mPosition && *mPosition >= *mEnd; }

private:
    std::optional<std::int64_t> toSamples(std::int64_t timestamp) const noexcept;

    int mTimeBaseNum;
    int mTimeBaseDen;
    int mSampleRate;
    std::optional<std::int64_t> mFirstPacket; // where the decoder's first sample lies
    std::optional<std::int64_t> mPosition;    // where the next decoded sample lies
    std::optional<std::int64_t> mEnd;         // the first sample after the sound
    std::int64_t mSkip = 0;                   // delay still to cut at the front
};

} // namespace vantelo_sounds::engine
