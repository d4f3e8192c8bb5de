#pragma once

#include <cstdint>

namespace vantelo_sounds::engine {

/// Names one voice of the mixer: a slot of the fixed pool and the generation of its use. A slot is
/// reused for later voices with a higher generation, so a stale handle never reaches a new voice.
struct VoiceHandle {
    std::uint32_t slot = 0;
    std::uint32_t generation = 0; ///< 0 never names a voice

    bool valid() const noexcept { return generation != 0; }
    friend bool operator==(const VoiceHandle&, const VoiceHandle&) = default;
};

} // namespace vantelo_sounds::engine
