#include <vantelo_sounds/ErrorCategory.hpp>
#include <vantelo_sounds/platform/AudioRecorderError.hpp>

namespace vantelo_sounds {

namespace {

const char* describe(AudioRecorderError error) noexcept {
    switch (error) {
    case AudioRecorderError::unsupportedSettings:
        return "The recorder cannot record with these settings";
    case AudioRecorderError::cannotWriteFile:
        return "The recording could not be written";
    case AudioRecorderError::noMicrophone:
        return "No microphone could be opened";
    case AudioRecorderError::microphoneLost:
        return "The microphone went away before anything was recorded";
    case AudioRecorderError::onlySilence:
        return "The microphone gave only silence: it may be muted or blocked";
    case AudioRecorderError::fellBehind:
        return "The recording fell behind the microphone and lost sound";
    case AudioRecorderError::permissionNotGranted:
        return "The microphone may not be used: permission is not granted";
    }
    return nullptr;
}

} // namespace

const std::error_category& audioRecorderErrorCategory() noexcept {
    static const EnumErrorCategory<AudioRecorderError> category("vantelo_sounds.AudioRecorderError",
                                                                describe);
    return category;
}

std::error_code make_error_code(AudioRecorderError e) noexcept {
    return {static_cast<int>(e), audioRecorderErrorCategory()};
}

} // namespace vantelo_sounds
