#pragma once

#include <cstddef>

namespace vantelo_sounds::engine {

/// What a voice plays: frames at the mixer's rate (32-bit float, interleaved, 1 or 2 channels),
/// read by the audio thread without a lock or an allocation while a producer may still be adding
/// to them. Positions count frames from the start of the play.
///
/// Two kinds exist: a SoundData, decoded once and shared by every voice that plays it, and a
/// SoundStream, one play of a sound too long to keep, decoded just ahead of its voice into a
/// bounded window.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    virtual int channels() const noexcept = 0;
    /// Frames produced so far: positions below it have been written (a stream may have reused
    /// the room of those its reader released).
    virtual std::size_t availableFrames() const noexcept = 0;
    /// No more frames will come: availableFrames() is final.
    virtual bool isComplete() const noexcept = 0;
    /// The producer failed part-way (what was produced still plays).
    virtual bool failed() const noexcept = 0;
    /// Pointer to `frame` and the number of frames readable from it in one run (0 and nullptr
    /// when `frame` is not available).
    virtual const float* framesAt(std::size_t frame, std::size_t& contiguous) const noexcept = 0;
    /// The reader will not look before `frame` again, so a stream may refill that room.
    virtual void releaseBefore(std::size_t /*frame*/) const noexcept {}
    /// The frame count a reader at `position` needs available before it renders `frames` more,
    /// as far as the source can ever hold ahead of its reader.
    virtual std::size_t readyTarget(std::size_t position, std::size_t frames) const noexcept = 0;
    /// True when the source produces its own repeats (a stream decodes pass after pass), so a
    /// voice plays it through once.
    virtual bool repeatsItself() const noexcept { return false; }
};

} // namespace vantelo_sounds::engine
