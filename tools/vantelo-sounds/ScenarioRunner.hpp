#pragma once

#include <optional>
#include <string>

#include "MicrophoneSignal.hpp"
#include "Scenario.hpp"

namespace vantelo_sounds::cli {

inline constexpr int kExitOk = 0;
/// The run could not happen or its outputs could not be written (not the scenario's fault).
inline constexpr int kExitFailed = 1;
/// The scenario or the command line is invalid.
inline constexpr int kExitInvalid = 2;

struct RunOptions {
    /// Where to write the mix (48 kHz stereo 32-bit float WAV).
    std::optional<std::string> renderPath;
    /// Where to write the events (JSON lines).
    std::optional<std::string> eventsPath;
    /// Through the sound device on the steady clock, instead of offline on the manual clock.
    bool realtime = false;
};

/// Runs a checked scenario on the library: sets up the bundle, voices and permission, schedules
/// every step as a run-loop timer at its time, runs the loop up to the scenario's duration, and
/// writes the render and the events. Standard output carries only the library's console lines.
/// Returns the process's exit status.
int runScenario(const Scenario& scenario, const RunOptions& options);

} // namespace vantelo_sounds::cli
