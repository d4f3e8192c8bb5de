#pragma once

#include <optional>

namespace vantelo_sounds {

/// The wall clock.
class Date {
public:
    /// Seconds since 1970-01-01 00:00:00 UTC, with their fraction. Safe to call from any thread.
    static double timeIntervalSince1970Now();

    /// Tests only: makes every reading return `now` until called again with no value.
    static void setNowForTesting(std::optional<double> now);
};

} // namespace vantelo_sounds
