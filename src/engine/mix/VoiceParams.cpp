#include "engine/mix/VoiceParams.hpp"

#include <algorithm>
#include <cmath>

namespace vantelo_sounds::engine {

namespace {

float clampOrZero(float value, float low, float high) noexcept {
    return std::isnan(value) ? 0.0f : std::clamp(value, low, high);
}

} // namespace

VoiceParams VoiceParams::sanitized() const noexcept {
    return {clampOrZero(pan, -1.0f, 1.0f), clampOrZero(volume, 0.0f, 1.0f), loops};
}

} // namespace vantelo_sounds::engine
