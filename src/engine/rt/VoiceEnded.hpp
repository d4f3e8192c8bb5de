#pragma once

#include <chrono>
#include <cstdint>

#include "engine/mix/VoiceHandle.hpp"

namespace vantelo_sounds::engine {

/// Reported by the audio thread when a voice has gone silent for good.
struct VoiceEnded {
    enum class Reason : std::uint8_t {
        finished, ///< played all its passes
        stopped,  ///< a stop command, after its fade
        failed,   ///< its source ended in an error; what there was has played
        stolen,   ///< stopped to give its voice to a newer sound (set by the platform layer)
    };

    VoiceHandle voice;
    /// The first mix frame after the voice's last sounding frame.
    std::uint64_t frame = 0;
    Reason reason = Reason::finished;
    /// When the audio thread rendered the block holding that frame (steady clock since its
    /// epoch): how late the end reaches the game is measured from here.
    std::chrono::steady_clock::duration renderedAt{};
};

} // namespace vantelo_sounds::engine
