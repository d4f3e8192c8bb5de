#pragma once

namespace vantelo_sounds {

/// The wall clock.
class Date {
public:
    /// Seconds since 1970-01-01 00:00:00 UTC, with their fraction. Safe to call from any thread.
    static double timeIntervalSince1970Now();
};

} // namespace vantelo_sounds
