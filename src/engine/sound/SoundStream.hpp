#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "engine/sound/FrameSink.hpp"
#include "engine/sound/FrameSource.hpp"

namespace vantelo_sounds::engine {

/// One play of a sound too long to keep decoded: a ring of a fixed number of frames that the
/// cache's worker fills from the file just ahead of the one voice that reads it. For a sound that
/// repeats, the worker reads the file again from its start when a pass ends and goes on writing,
/// so the voice sees every pass as one run of frames, with no gap at the loop point.
///
/// One writer (the worker) and one reader (the voice, on the audio thread) meet in two atomic
/// counters: frames written and frames released, both counted from the start of the play.
class SoundStream final : public FrameSource, public FrameSink {
public:
    SoundStream(int channels, std::size_t capacityFrames);
    SoundStream(const SoundStream&) = delete;
    SoundStream& operator=(const SoundStream&) = delete;

    std::size_t capacityFrames() const noexcept { return mCapacity; }
    /// Sample memory held, in bytes (the whole ring, from the start).
    std::size_t bytes() const noexcept;

    // ---- reader (the audio thread) ----------------------------------------------------------
    int channels() const noexcept override { return mChannels; }
    std::size_t availableFrames() const noexcept override {
        return mWritten.load(std::memory_order_acquire);
    }
    bool isComplete() const noexcept override { return mComplete.load(std::memory_order_acquire); }
    bool failed() const noexcept override { return mFailed.load(std::memory_order_acquire); }
    const float* framesAt(std::size_t frame, std::size_t& contiguous) const noexcept override;
    void releaseBefore(std::size_t frame) const noexcept override;
    /// No more than the ring holds ahead of what the reader released can ever be waited for.
    std::size_t readyTarget(std::size_t position, std::size_t frames) const noexcept override;
    bool repeatsItself() const noexcept override { return true; }

    // ---- writer (the cache's worker) --------------------------------------------------------
    /// Frames that can be appended now without overwriting what the reader has not released.
    std::size_t room() const noexcept;
    /// Frames written and not yet released.
    std::size_t framesAhead() const noexcept;
    std::size_t append(const float* interleaved, std::size_t frames) override;
    void finish(bool ok) noexcept;

private:
    const int mChannels;
    const std::size_t mCapacity;
    const std::unique_ptr<float[]> mRing;
    std::atomic<std::size_t> mWritten{0};
    mutable std::atomic<std::size_t> mReleased{0};
    std::atomic<bool> mComplete{false};
    std::atomic<bool> mFailed{false};
};

} // namespace vantelo_sounds::engine
