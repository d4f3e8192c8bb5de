#pragma once

// What platform/Simulation.hpp pretends, read by the services it concerns. Internal to the
// platform layer.
#include <optional>
#include <string>
#include <vantelo_sounds/platform/Simulation.hpp>
#include <vector>

namespace vantelo_sounds::simulation {

/// The pretend list of languages with voices, when one is set.
std::optional<std::vector<std::string>> simulatedLanguages();
/// What the microphone hears, when set.
std::optional<Microphone> simulatedMicrophone();
/// The pretend wall-clock reading, when one is set.
std::optional<double> simulatedNow();

} // namespace vantelo_sounds::simulation
