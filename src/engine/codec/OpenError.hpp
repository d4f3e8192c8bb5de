#pragma once

#include <ostream>
#include <string>

namespace vantelo_sounds::engine {

/// Why a sound file could not be opened.
enum class OpenErrorKind {
    fileNotFound,      ///< nothing at the path, or a dangling symlink
    notARegularFile,   ///< a directory, FIFO, device or socket: refused without reading it
    notReadable,       ///< no permission, a symlink loop, or an I/O error on open
    notAudio,          ///< empty, not a media file, or a media file without an audio stream
    unsupportedFormat, ///< a container outside the allow-list (playlists, scripts) or no decoder
    protectedContent,  ///< DRM-protected audio (e.g. an iTunes .m4p)
    corrupt,           ///< a known container whose header or parameters are broken
    tooLarge,          ///< the decoded sound alone would exceed the cache's memory budget
};

/// An open failure: its kind and a human-readable detail, often FFmpeg's own words
/// ("Invalid data found when processing input", "moov atom not found").
struct OpenError {
    OpenErrorKind kind;
    std::string detail;
};

/// The kind's name as written in code ("notAudio").
const char* toString(OpenErrorKind kind) noexcept;
/// "notAudio: Invalid data found when processing input".
std::string toString(const OpenError& error);

inline std::ostream& operator<<(std::ostream& os, OpenErrorKind kind) {
    return os << toString(kind);
}
inline std::ostream& operator<<(std::ostream& os, const OpenError& error) {
    return os << toString(error);
}

} // namespace vantelo_sounds::engine
