#pragma once

namespace vantelo_sounds {

/// The library exports its version both as the 64-bit float 1.0 and as a version text.
inline constexpr double vantelo_soundsVersionNumber = 1.0;
inline constexpr const char* vantelo_soundsVersionString = "1.0.0";

} // namespace vantelo_sounds
