#pragma once

#include <atomic>
#include <chrono>

namespace vantelo_sounds {

/// Time on the run loop's clock: nanoseconds since the clock started.
using Duration = std::chrono::nanoseconds;

/// Seconds as a Duration, rounded to the nearest nanosecond.
constexpr Duration seconds(double s) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(s));
}

/// The one source of time for everything time-dependent: run-loop timers, the mixer's render
/// position, the recorder's maximum duration. Safe to read from any thread.
class Clock {
public:
    virtual ~Clock() = default;
    virtual Duration now() const noexcept = 0;
    virtual bool isManual() const noexcept = 0;
};

/// The system's steady clock, counted from the moment this object was made.
class SteadyClock final : public Clock {
public:
    SteadyClock();
    Duration now() const noexcept override;
    bool isManual() const noexcept override { return false; }

private:
    std::chrono::steady_clock::time_point mStart;
};

/// A clock that moves only when told to: tests and offline renders. Starts at 0. Only the run loop
/// advances it (RunLoop::advance), so that everything due in between happens in time order.
class ManualClock final : public Clock {
public:
    Duration now() const noexcept override {
        return Duration(mNow.load(std::memory_order_acquire));
    }
    bool isManual() const noexcept override { return true; }
    /// Moves the clock to `t`; never backwards.
    void set(Duration t) noexcept;

private:
    std::atomic<Duration::rep> mNow{0};
};

} // namespace vantelo_sounds
