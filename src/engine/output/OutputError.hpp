#pragma once

#include <system_error>

namespace vantelo_sounds::engine {

/// Why an output or a recording of the mix could not do what was asked, under the category
/// "vantelo_sounds.OutputError". A file that cannot be created or written is reported with its
/// errno instead (std::generic_category), the path as the failure's detail. The values start at 1
/// so that an error never reads as success.
enum class OutputError {
    deviceUnavailable = 1,  ///< no sound device could be opened (the detail says why)
    manualWritesItsOwnFile, ///< the mix of the manual output cannot be recorded by a tap
    notRecording,           ///< no recording of the mix is in progress
};

const std::error_category& outputErrorCategory() noexcept;
std::error_code make_error_code(OutputError error) noexcept;

} // namespace vantelo_sounds::engine

template <>
struct std::is_error_code_enum<vantelo_sounds::engine::OutputError> : std::true_type {};
