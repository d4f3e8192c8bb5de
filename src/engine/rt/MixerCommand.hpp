#pragma once

#include <cstdint>
#include <limits>

#include "engine/mix/VoiceHandle.hpp"
#include "engine/mix/VoiceParams.hpp"

namespace vantelo_sounds::engine {

class FrameSource;

/// A change sent from the control thread to the audio thread. Plain data: the audio thread copies
/// it out of the queue and never owns anything through it (the sender keeps `data` alive until the
/// voice's end has been reported back).
struct MixerCommand {
    enum class Kind : std::uint8_t { start, stop, pause, resume, setParams };

    /// Apply as soon as possible: at the start of the next rendered block.
    static constexpr std::uint64_t kNow = 0;

    Kind kind = Kind::start;
    VoiceHandle voice;
    /// The mix frame at which the change takes effect (frames since the mixer started). A frame
    /// already rendered means "at once".
    std::uint64_t frame = kNow;
    VoiceParams params;                ///< start, setParams
    const FrameSource* data = nullptr; ///< start
};

} // namespace vantelo_sounds::engine
