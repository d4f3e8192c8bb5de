#include <initializer_list>
#include <vantelo_sounds/SoundsPanType.hpp>

namespace vantelo_sounds {

SoundsPanType SoundsPanType::fromRawValue(float raw) noexcept {
    // Float equality: -0.0 is center, NaN matches nothing.
    for (const SoundsPanType named : {left(), center(), right()}) {
        if (raw == named.rawValue()) {
            return named;
        }
    }
    return custom(raw);
}

} // namespace vantelo_sounds
