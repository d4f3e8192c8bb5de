#pragma once

#include <string>

namespace vantelo_sounds::cli {

/// What the microphone hears during a scenario: nothing, a steady sine, or a sound file.
struct MicrophoneSignal {
    enum class Kind { silence, tone, file };

    Kind kind = Kind::silence;
    /// Frequency of the tone, in hertz (Kind::tone).
    double frequency = 0.0;
    /// Peak amplitude of the tone, 0 to 1 (Kind::tone).
    double amplitude = 0.0;
    /// Absolute path of the file that plays into the microphone (Kind::file).
    std::string path;

    friend bool operator==(const MicrophoneSignal&, const MicrophoneSignal&) = default;
};

} // namespace vantelo_sounds::cli
