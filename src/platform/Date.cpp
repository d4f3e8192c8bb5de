#include <chrono>
#include <vantelo_sounds/platform/Date.hpp>

#include "platform/SimulationState.hpp"

namespace vantelo_sounds {

double Date::timeIntervalSince1970Now() {
    if (const auto pretended = simulation::simulatedNow()) {
        return *pretended;
    }
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

} // namespace vantelo_sounds
