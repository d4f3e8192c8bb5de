#pragma once

#include <system_error>

namespace vantelo_sounds::engine {

/// Why the microphone could not be captured or recorded, under the category
/// "vantelo_sounds.CaptureError". The values start at 1 so that an error never reads as success.
enum class CaptureError {
    deviceUnavailable = 1, ///< no capture device could be opened (the detail says why)
    deviceLost,            ///< the capture device went away before anything was captured
    signalUnavailable,     ///< the signal standing in for the microphone cannot be read
    fellBehind,            ///< the encoder could not keep up and captured sound was lost
    onlySilence,           ///< every captured sample was zero: a muted or blocked microphone
};
const std::error_category& captureErrorCategory() noexcept;
std::error_code make_error_code(CaptureError error) noexcept;

} // namespace vantelo_sounds::engine

template <>
struct std::is_error_code_enum<vantelo_sounds::engine::CaptureError> : std::true_type {};
