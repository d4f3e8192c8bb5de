#pragma once

#include <vantelo_sounds/SoundRecorder.hpp>

namespace vantelo_sounds {

/// The recorder the manager uses: microphone to "tmpRecording.m4a" in the caches folder.
class VTOSoundRecorder final : public SoundRecorder {
public:
    explicit VTOSoundRecorder(double maxRecordDuration);

    double maxRecordDuration() const noexcept { return mMaxRecordDuration; }

    // Capture and encoding arrive with the recorder's own work; until then these do nothing and
    // call no completion.
    void requestPermissions(PermissionCompletion completion) override;
    void startRecording(std::optional<double> maxDuration, RecordingCompletion completion) override;
    void stopRecording() override;

private:
    double mMaxRecordDuration;
};

} // namespace vantelo_sounds
