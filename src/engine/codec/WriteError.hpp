#pragma once

#include <system_error>

namespace vantelo_sounds::engine {

/// Why an audio file could not be written, under the category "vantelo_sounds.WriteError". A file
/// that cannot be created or written is reported with its errno instead (std::generic_category);
/// either way the failure's detail says what was being done, in FFmpeg's words when it has some.
enum class WriteError {
    badParameters = 1, ///< a channel count or sample rate the writer does not take
    noEncoder,         ///< this FFmpeg has no encoder for the format
    outOfMemory,
    notOpen,        ///< write() on a writer that is not open
    encodingFailed, ///< the encoder or the muxer refused
};

const std::error_category& writeErrorCategory() noexcept;
std::error_code make_error_code(WriteError error) noexcept;

} // namespace vantelo_sounds::engine

template <>
struct std::is_error_code_enum<vantelo_sounds::engine::WriteError> : std::true_type {};
