#include <vantelo_sounds/Version.hpp>

namespace vantelo_sounds {

// The version the library exports: the number as a 64-bit float and the text.
extern const double vantelo_soundsVersionNumberValue = vantelo_soundsVersionNumber;
extern const char* const vantelo_soundsVersionStringValue = vantelo_soundsVersionString;

} // namespace vantelo_sounds
