#include <initializer_list>
#include <vantelo_sounds/SoundsVolumeType.hpp>

namespace vantelo_sounds {

SoundsVolumeType SoundsVolumeType::fromRawValue(float raw) noexcept {
    // Float equality: -0.0 is silent, NaN matches nothing, 0.050001 is not extraLow.
    for (const SoundsVolumeType named : {silent(), extraLow(), low(), medium(), high(), max()}) {
        if (raw == named.rawValue()) {
            return named;
        }
    }
    return custom(raw);
}

} // namespace vantelo_sounds
