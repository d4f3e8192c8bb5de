#pragma once

#include <string>

namespace vantelo_sounds::engine {

/// FFmpeg's log, kept off stderr: errors are remembered per thread so that an open failure can
/// say what FFmpeg said ("moov atom not found") instead of a bare error code.
class FfmpegLog {
public:
    /// Installs the quiet log callback once per process (idempotent, thread-safe).
    static void install();
    /// Forgets this thread's remembered error.
    static void reset();
    /// The first error FFmpeg logged on this thread since reset(), or "".
    static std::string firstError();
    /// av_strerror's text for an FFmpeg return code.
    static std::string describe(int errorCode);
};

} // namespace vantelo_sounds::engine
