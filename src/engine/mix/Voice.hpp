#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/mix/VoiceParams.hpp"
#include "engine/rt/VoiceEnded.hpp"

namespace vantelo_sounds::engine {

class FrameSource;

/// One playing sound inside the mixer. Lives in the mixer's fixed pool and is touched only by the
/// audio thread. Its loudness is two ramps multiplied: the parameter gains (pan and volume, ramped
/// on change) and an envelope (fade in on start and resume, fade out on pause and stop).
struct Voice {
    enum class State : std::uint8_t { free, playing, pausing, paused, stopping };

    /// Frames of the fade-in on start and resume (1.5 ms).
    static constexpr std::uint32_t kStartRampFrames = 72;
    /// Frames of the fade-out on stop and pause, and of a pan or volume change (5 ms).
    static constexpr std::uint32_t kStopRampFrames = 240;
    static constexpr std::uint32_t kParamRampFrames = 240;

    State state = State::free;
    std::uint32_t generation = 0;
    const FrameSource* data = nullptr;
    std::size_t position = 0;    ///< next frame of `data` to play
    std::int64_t passesLeft = 1; ///< passes still to play, the current one included; < 0: forever

    float gain[2] = {0.0f, 0.0f};
    float gainTarget[2] = {0.0f, 0.0f};
    float gainStep[2] = {0.0f, 0.0f};
    std::uint32_t gainLeft = 0;

    float envelope = 0.0f;
    float envelopeTarget = 0.0f;
    float envelopeStep = 0.0f;
    std::uint32_t envelopeLeft = 0;

    /// Left and right gains of `params` for a mono (constant-power pan) or stereo (balance) source.
    static void gainsFor(const VoiceParams& params, bool stereo, float out[2]) noexcept;

    void start(const FrameSource* source, std::uint32_t gen, const VoiceParams& params) noexcept;
    void setParams(const VoiceParams& params) noexcept;
    void fadeTo(float target, std::uint32_t frames) noexcept;

    /// Frames until this voice ends by itself if nothing else changes, capped at `limit` + 1
    /// (meaning "not within `limit`"). A source still filling never ends early.
    std::size_t framesUntilEnd(std::size_t limit) const noexcept;

    /// Adds up to `frames` frames of this voice into `out` (interleaved stereo). Returns true when
    /// the voice ended; then `endOffset` is the frame offset in `out` just after its last
    /// sounding frame and `reason` why it ended.
    bool mix(float* out, std::size_t frames, std::size_t& endOffset,
             VoiceEnded::Reason& reason) noexcept;

private:
    bool endOfPass(VoiceEnded::Reason& reason) noexcept;
    /// The end checks of mix() for a zero-frame call: a voice at the end of its source.
    bool endsNow(std::size_t& endOffset, VoiceEnded::Reason& reason) noexcept;
};

} // namespace vantelo_sounds::engine
