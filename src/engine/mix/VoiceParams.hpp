#pragma once

#include <cstdint>

namespace vantelo_sounds::engine {

/// How a voice sounds. Values reach the mixer only through sanitized().
struct VoiceParams {
    float pan = 0.0f;    ///< -1 full left .. 1 full right
    float volume = 1.0f; ///< 0 silent .. 1 full scale
    /// 0 plays once, n plays n + 1 passes, any negative value loops until stopped.
    std::int64_t loops = 0;

    /// A harmless version: NaN pan or volume counts as 0, pan is clamped to [-1, 1], volume to
    /// [0, 1] (infinities included), so no caller value can make the mix non-finite or loud.
    VoiceParams sanitized() const noexcept;
};

} // namespace vantelo_sounds::engine
