#pragma once

#include <system_error>

namespace vantelo_sounds {

/// Errors of AudioRecorder, under the category "vantelo_sounds.AudioRecorderError". The values
/// start at 1 so that an error never reads as success; a failure's detail says more (the device's
/// own words, the errno of a file that could not be written).
enum class AudioRecorderError {
    unsupportedSettings = 1, ///< a format, rate, channel count or quality it cannot record
    cannotWriteFile,         ///< the file could not be created or written (full disk, no folder)
    noMicrophone,            ///< no capture device could be opened
    microphoneLost,          ///< the capture device went away before anything was captured
    onlySilence,             ///< every captured sample was zero: a muted or blocked microphone
    fellBehind,              ///< the encoder could not keep up and sound was lost
    permissionNotGranted,    ///< the microphone permission is not granted
};
const std::error_category& audioRecorderErrorCategory() noexcept;
std::error_code make_error_code(AudioRecorderError e) noexcept;

} // namespace vantelo_sounds

template <>
struct std::is_error_code_enum<vantelo_sounds::AudioRecorderError> : std::true_type {};
