#pragma once

namespace vantelo_sounds {

/// The library's version, exported as a 64-bit float and as a text.
inline constexpr double vantelo_soundsVersionNumber = 1.0;
inline constexpr const char* vantelo_soundsVersionString = "1.0.0";

} // namespace vantelo_sounds
