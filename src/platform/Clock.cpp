#include <vantelo_sounds/platform/Clock.hpp>

namespace vantelo_sounds {

SteadyClock::SteadyClock()
    : mStart(std::chrono::steady_clock::now()) {}

Duration SteadyClock::now() const noexcept {
    return std::chrono::duration_cast<Duration>(std::chrono::steady_clock::now() - mStart);
}

void ManualClock::set(Duration t) noexcept {
    Duration::rep current = mNow.load(std::memory_order_relaxed);
    while (t.count() > current &&
           !mNow.compare_exchange_weak(current, t.count(), std::memory_order_acq_rel)) {
    }
}

} // namespace vantelo_sounds
