#pragma once

#include <memory>
#include <vantelo_sounds/SoundRecorder.hpp>
#include <vantelo_sounds/VTORecorderHandler.hpp>
#include <vantelo_sounds/platform/AudioRecorder.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

/// The recorder the manager uses: the microphone into "tmpRecording.m4a" in the caches folder,
/// mono MPEG-4 AAC at 16000 samples per second. Used on the run loop's thread; it must outlive
/// the recordings it starts (the manager keeps it for its whole life).
class VTOSoundRecorder : public SoundRecorder {
public:
    /// `duration`: the first maxRecordDuration.
    explicit VTOSoundRecorder(double duration);

    void requestPermissions(PermissionCompletion completion) override;
    void startRecording(std::optional<double> maxDuration, RecordingCompletion completion) override;
    void stopRecording() override;

    /// Seconds the next recording lasts at most; replaced by every start that gives a duration.
    double maxRecordDuration;
    /// The recording file, the same for every recording.
    FileURL recordFilePath;
    /// The one platform recorder; empty when it could not be created.
    std::shared_ptr<AudioRecorder> recorder;
    /// The process's audio session; empty when none could be had.
    AudioSession* recordingSession = nullptr;
    /// The delegate of the current recording; empty until the first recording starts.
    std::shared_ptr<VTORecorderHandler> recorderHandler;
};

} // namespace vantelo_sounds
