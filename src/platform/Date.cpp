#include <atomic>
#include <chrono>
#include <vantelo_sounds/platform/Date.hpp>

namespace vantelo_sounds {

namespace {

std::atomic<bool> gHasTestNow{false};
std::atomic<double> gTestNow{0.0};

} // namespace

double Date::timeIntervalSince1970Now() {
    if (gHasTestNow.load(std::memory_order_acquire)) {
        return gTestNow.load(std::memory_order_relaxed);
    }
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

void Date::setNowForTesting(std::optional<double> now) {
    if (now) {
        gTestNow.store(*now, std::memory_order_relaxed);
    }
    gHasTestNow.store(now.has_value(), std::memory_order_release);
}

} // namespace vantelo_sounds
