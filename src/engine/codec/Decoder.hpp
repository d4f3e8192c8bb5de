#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "engine/codec/OpenResult.hpp"
#include "engine/codec/SoundInfo.hpp"

namespace vantelo_sounds::engine {

class SoundData;

/// Decodes one local sound file to 32-bit float interleaved PCM at kMixRate. A mono source stays
/// mono at full level; anything with two or more channels comes out as stereo.
///
/// Only regular files are opened, through a demuxer allow-list (wav, mp3, mp4/m4a, ogg, flac,
/// aac, aiff, caf, w64), never as a playlist, script or protocol. A Decoder is used by one
/// thread at a time (the cache's worker, or a test).
class Decoder {
public:
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// Opens and probes `path`; decodes nothing yet. Cheap (a stat, a probe, the header): the
    /// codec is opened by the first decodeInto(), where a failure to open it shows as failed().
    static OpenResult<std::unique_ptr<Decoder>> open(const std::string& path);

    const SoundInfo& info() const noexcept;

    /// Decodes and appends up to `maxFrames` frames to `out` (whose channel count must be
    /// info().channels). Returns the frames appended; 0 with atEnd() true at the end. When `out`
    /// is full (its maxFrames reached) decoding ends there with failed() true. A decode error
    /// part-way skips the bad packet and sets failed(); a read error ends the stream.
    /// Does not call out.finish(): the caller does, with !failed().
    std::size_t decodeInto(SoundData& out, std::size_t maxFrames);

    /// No more frames will come.
    bool atEnd() const noexcept;
    /// Something went wrong part-way (bad packets, read error, output full): what was decoded
    /// is still good.
    bool failed() const noexcept;
    /// The last part-way problem in words (empty when none).
    const std::string& failure() const noexcept;

private:
    struct Impl;
    explicit Decoder(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> mImpl;
};

} // namespace vantelo_sounds::engine
