#pragma once

#include <system_error>

namespace vantelo_sounds::engine {

/// Why a sound file could not be opened, or stopped decoding part-way (then corrupt, notReadable
/// or tooLarge), under the category "vantelo_sounds.OpenError". The failure's detail says more,
/// often in FFmpeg's own words ("moov atom not found").
enum class OpenError {
    fileNotFound = 1,  ///< nothing at the path, or a dangling symlink
    notARegularFile,   ///< a directory, FIFO, device or socket: refused without reading it
    notReadable,       ///< no permission, a symlink loop, or an I/O error
    notAudio,          ///< empty, not a media file, or a media file without an audio stream
    unsupportedFormat, ///< a container outside the allow-list (playlists, scripts) or no decoder
    protectedContent,  ///< DRM-protected audio (e.g. an iTunes .m4p)
    corrupt,           ///< a known container whose header, parameters or packets are broken
    tooLarge,          ///< the decoded sound would exceed the cache's memory budget
};

const std::error_category& openErrorCategory() noexcept;
std::error_code make_error_code(OpenError e) noexcept;

} // namespace vantelo_sounds::engine

template <>
struct std::is_error_code_enum<vantelo_sounds::engine::OpenError> : std::true_type {};
