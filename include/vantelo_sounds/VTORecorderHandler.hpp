#pragma once

#include <functional>
#include <vantelo_sounds/platform/AudioRecorder.hpp>

namespace vantelo_sounds {

/// The platform recorder's delegate for one recording: hands its end to `completion`, once.
class VTORecorderHandler final : public AudioRecorderDelegate {
public:
    VTORecorderHandler() = default;

    /// Runs at most once with whether the recording succeeded, then is cleared.
    std::function<void(bool successfully)> completion;

    void audioRecorderDidFinishRecording(AudioRecorder& recorder, bool successfully) override;
    /// Prints the error's description (or "audio recorder encode error did occur" without one),
    /// then completes unsuccessfully.
    void audioRecorderEncodeErrorDidOccur(AudioRecorder& recorder,
                                          const std::optional<Failure>& error) override;
};

} // namespace vantelo_sounds
