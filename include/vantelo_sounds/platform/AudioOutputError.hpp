#pragma once

#include <system_error>

namespace vantelo_sounds {

/// Errors of AudioOutput, under the category "vantelo_sounds.AudioOutputError". A WAV file that
/// cannot be created or written is reported with its errno instead (std::generic_category), its
/// path as the failure's detail. The values start at 1 so that an error never reads as success.
enum class AudioOutputError {
    deviceUnavailable = 1,   ///< no sound device could be opened; the null output plays instead
    needsManualClock,        ///< offline rendering asked for while the main run loop is real-time
    needsRealTimeClock,      ///< a real-time output asked for while the main run loop is manual
    offlineWritesItsOwnFile, ///< recording the mix of the offline output, which has its own file
    notRecording,            ///< stopping a recording of the mix that was never started
    notOffline,              ///< finishing an offline render while the output is not offline
};
const std::error_category& audioOutputErrorCategory() noexcept;
std::error_code make_error_code(AudioOutputError e) noexcept;

} // namespace vantelo_sounds

template <>
struct std::is_error_code_enum<vantelo_sounds::AudioOutputError> : std::true_type {};
