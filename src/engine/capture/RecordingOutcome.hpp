#pragma once

#include <cstdint>
#include <vantelo_sounds/Expected.hpp>

namespace vantelo_sounds::engine {

class RecordingFile;

/// How a recording ended, and whether its file is a good clip.
struct RecordingOutcome {
    enum class Reason {
        full,       ///< it reached its length
        stopped,    ///< stop() was asked for
        deviceLost, ///< the microphone went away; the file keeps what was captured
        failed,     ///< it could not go on (the device did not open, the file could not be written)
    };
    Reason reason = Reason::stopped;
    /// Success, or why the file is not a good clip: the file's errno or a WriteError, or a
    /// CaptureError (no device, sound lost because the encoder fell behind, only silence heard).
    Expected<void> result;
    double seconds = 0.0;              ///< what the file holds
    std::uint64_t droppedFrames = 0;   ///< captured but lost before the encoder
    std::uint64_t repairedSamples = 0; ///< NaN, infinite or clipped samples made safe

    /// The outcome of `file` after it ended for `endedFor` and finish() gave `finished`. `failure`
    /// (when not success) is what stopped it first.
    static RecordingOutcome of(const RecordingFile& file, Reason endedFor, Expected<void> failure,
                               const Expected<void>& finished, std::uint64_t dropped);
};

} // namespace vantelo_sounds::engine
