#pragma once

#include <optional>
#include <vantelo_sounds/Completions.hpp>

namespace vantelo_sounds {

/// Records short microphone clips into one fixed file.
class SoundRecorder {
public:
    virtual ~SoundRecorder() = default;

    /// Asks for microphone permission when it has not been decided yet.
    virtual void requestPermissions(PermissionCompletion completion) = 0;
    /// Records for at most `maxDuration` seconds (the last duration given when absent).
    virtual void startRecording(std::optional<double> maxDuration,
                                RecordingCompletion completion) = 0;
    /// Ends a recording under way.
    virtual void stopRecording() = 0;
};

} // namespace vantelo_sounds
