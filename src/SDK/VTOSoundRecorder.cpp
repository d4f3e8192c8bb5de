#include <vantelo_sounds/VTOSoundRecorder.hpp>

namespace vantelo_sounds {

VTOSoundRecorder::VTOSoundRecorder(double maxRecordDuration)
    : mMaxRecordDuration(maxRecordDuration) {}

void VTOSoundRecorder::requestPermissions(PermissionCompletion) {}

void VTOSoundRecorder::startRecording(std::optional<double> maxDuration, RecordingCompletion) {
    if (maxDuration) {
        mMaxRecordDuration = *maxDuration;
    }
}

void VTOSoundRecorder::stopRecording() {}

} // namespace vantelo_sounds
