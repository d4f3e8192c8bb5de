// Recording: the manager hands every request to its recorder unchanged.
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {

void VTOSoundsManager::startRecording(double maxDuration, RecordingCompletion completion) {
    if (offLoopThread()) {
        RunLoop::main().post(
            [this, maxDuration, completion] { startRecording(maxDuration, completion); });
        return;
    }
    // Always given here, so every start through the manager also sets the recorder's duration.
    soundRecorder->startRecording(maxDuration, std::move(completion));
}

void VTOSoundsManager::requestPermissions(PermissionCompletion completion) {
    if (offLoopThread()) {
        RunLoop::main().post([this, completion] { requestPermissions(completion); });
        return;
    }
    soundRecorder->requestPermissions([completion](const std::optional<bool>& granted,
                                                   const std::optional<std::error_code>& error) {
        if (completion) {
            completion(granted, error);
        }
    });
}

void VTOSoundsManager::stopRecording() {
    if (offLoopThread()) {
        RunLoop::main().post([this] { stopRecording(); });
        return;
    }
    soundRecorder->stopRecording();
}

} // namespace vantelo_sounds
