#include <vantelo_sounds/SoundsFileType.hpp>

namespace vantelo_sounds {

std::optional<SoundsFileType> SoundsFileType::fromRawValue(std::string raw) {
    // Never a named case: "wav" gives custom("wav"), whose raw value is again "wav".
    return custom(std::move(raw));
}

} // namespace vantelo_sounds
