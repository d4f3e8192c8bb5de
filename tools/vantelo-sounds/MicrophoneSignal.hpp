#pragma once

#include <vantelo_sounds/platform/Simulation.hpp>

namespace vantelo_sounds::cli {

/// What the microphone hears during a scenario: nothing, a steady sine, a sound file, or the
/// capture device itself (real time).
using MicrophoneSignal = simulation::Microphone;

} // namespace vantelo_sounds::cli
