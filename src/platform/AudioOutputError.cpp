#include <string>
#include <vantelo_sounds/ErrorCategory.hpp>
#include <vantelo_sounds/platform/AudioOutputError.hpp>

namespace vantelo_sounds {

namespace {

const char* describe(AudioOutputError error) noexcept {
    switch (error) {
    case AudioOutputError::deviceUnavailable:
        return "No sound device could be opened";
    case AudioOutputError::needsManualClock:
        return "Rendering offline needs the main run loop on the manual clock";
    case AudioOutputError::needsRealTimeClock:
        return "A real-time output needs the main run loop on a real-time clock";
    case AudioOutputError::offlineWritesItsOwnFile:
        return "The offline output writes its own file; its mix cannot be recorded as well";
    case AudioOutputError::notRecording:
        return "The mix is not being recorded";
    case AudioOutputError::notOffline:
        return "The output is not the offline one";
    }
    return nullptr;
}

} // namespace

const std::error_category& audioOutputErrorCategory() noexcept {
    static const EnumErrorCategory<AudioOutputError> category("vantelo_sounds.AudioOutputError",
                                                              describe);
    return category;
}

std::error_code make_error_code(AudioOutputError e) noexcept {
    return {static_cast<int>(e), audioOutputErrorCategory()};
}

} // namespace vantelo_sounds
