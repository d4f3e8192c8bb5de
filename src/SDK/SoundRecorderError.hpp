#pragma once

#include <cstddef>
#include <functional>
#include <system_error>

namespace vantelo_sounds {

/// Why a recording request failed, under the category "vantelo_sounds.SoundRecorderError"; the
/// value is the case index. Internal: callers see its values only through the recording
/// completions, so failedToGetAudioSession (0) travels in a std::optional<std::error_code>.
enum class SoundRecorderError {
    failedToGetAudioSession = 0,
    failedToGetAudioRecorder,
    permissionDenied,
    permissionUndetermined,
    recordindFailed,
};
const std::error_category& soundRecorderErrorCategory() noexcept;
std::error_code make_error_code(SoundRecorderError e) noexcept;

} // namespace vantelo_sounds

template <>
struct std::is_error_code_enum<vantelo_sounds::SoundRecorderError> : std::true_type {};

/// Cases are compared and hashed by case alone.
template <>
struct std::hash<vantelo_sounds::SoundRecorderError> {
    std::size_t operator()(vantelo_sounds::SoundRecorderError e) const noexcept {
        return std::hash<std::size_t>{}(static_cast<std::size_t>(e));
    }
};
