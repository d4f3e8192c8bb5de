#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vantelo_sounds/Expected.hpp>

#include "engine/codec/OpenError.hpp"
#include "engine/codec/SoundInfo.hpp"

namespace vantelo_sounds::engine {

class FrameSink;

/// Decodes one local sound file to 32-bit float interleaved PCM at kMixRate. A mono source stays
/// mono at full level; anything with two or more channels comes out as stereo. A sound has the
/// length its file states, without the encoder's delay and padding, so it loops without a seam.
///
/// Only regular files are opened, through a demuxer allow-list (wav, mp3, mp4/m4a, ogg, flac,
/// aac, aiff, caf, w64), never as a playlist, script or protocol. A Decoder is used by one
/// thread at a time (the cache's worker, or a test).
class Decoder {
public:
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// Opens and probes `path`; decodes nothing yet. Cheap and bounded whatever the file holds:
    /// a stat, a probe and the header, reading at most 64 KB (plus a leading ID3 tag) unless the
    /// first bytes name the container, whose header may take up to 16 MB. The codec
    /// is opened by the first decodeInto(), where a failure to open it shows in outcome().
    static Expected<std::unique_ptr<Decoder>> open(const std::string& path);

    const SoundInfo& info() const noexcept;

    /// Decodes and appends up to `maxFrames` frames to `out` (whose channel count must be
    /// info().channels). Returns the frames appended; 0 with atEnd() true at the end. When `out`
    /// takes fewer than it was given (it is full) decoding ends there (tooLarge). A decode error
    /// part-way skips the bad packet (corrupt); a read error ends the stream (notReadable). Does
    /// not call out.finish(): the caller does, with outcome().hasValue().
    std::size_t decodeInto(FrameSink& out, std::size_t maxFrames);

    /// No more frames will come.
    bool atEnd() const noexcept;
    /// Success so far, or the first problem met part-way (bad packets, a read error, the output
    /// full). What was decoded before and after it is still good.
    const Expected<void>& outcome() const noexcept;

private:
    struct Impl;
    explicit Decoder(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> mImpl;
};

} // namespace vantelo_sounds::engine
