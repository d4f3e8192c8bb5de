#include "SoundRecorderError.hpp"

#include <vantelo_sounds/ErrorCategory.hpp>

namespace vantelo_sounds {

namespace {

const char* describe(SoundRecorderError error) noexcept {
    switch (error) {
    case SoundRecorderError::failedToGetAudioSession:
        return "The audio session could not be obtained.";
    case SoundRecorderError::failedToGetAudioRecorder:
        return "The audio recorder could not be created.";
    case SoundRecorderError::permissionDenied:
        return "Microphone permission is denied.";
    case SoundRecorderError::permissionUndetermined:
        return "Microphone permission has not been decided yet.";
    case SoundRecorderError::recordindFailed:
        return "The recording failed.";
    }
    return nullptr;
}

} // namespace

const std::error_category& soundRecorderErrorCategory() noexcept {
    static const EnumErrorCategory<SoundRecorderError> category("vantelo_sounds.SoundRecorderError",
                                                                describe);
    return category;
}

std::error_code make_error_code(SoundRecorderError e) noexcept {
    return {static_cast<int>(e), soundRecorderErrorCategory()};
}

} // namespace vantelo_sounds
