#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>

#include "engine/sound/FrameSink.hpp"
#include "engine/sound/FrameSource.hpp"

namespace vantelo_sounds::engine {

/// The mixer's sample rate: every sound is decoded or synthesized to it.
inline constexpr int kMixRate = 48000;

/// The PCM of one whole sound at the mixer's rate, kept and shared by every voice that plays it:
/// 32-bit float, interleaved, 1 (mono) or 2 (stereo) channels. One producer (the decoder or the
/// speech worker) appends while readers, the audio thread among them, read what is already there.
/// Storage is a short fixed table of chunks that double in size (4096 frames, then 8192, ...), so a
/// click costs 16 KB, a long sound needs few chunks, nothing a reader sees ever moves, and reading
/// needs no lock.
class SoundData final : public FrameSource, public FrameSink {
public:
    /// Frames in the first chunk (about 85 ms at 48 kHz); chunk k holds kFirstChunkFrames << k.
    static constexpr std::size_t kFirstChunkFrames = 4096;
    /// Chunks in the table: room for kFirstChunkFrames * (2^kMaxChunks - 1) frames, far more than
    /// any budget allows.
    static constexpr std::size_t kMaxChunks = 32;

    /// `maxFrames` bounds the memory the sound may take; appends beyond it are refused.
    SoundData(int channels, std::size_t maxFrames);
    SoundData(const SoundData&) = delete;
    SoundData& operator=(const SoundData&) = delete;

    int channels() const noexcept override { return mChannels; }
    std::size_t maxFrames() const noexcept { return mMaxFrames; }

    /// Frames of storage a sound of `frames` frames occupies (whole chunks).
    static std::size_t storageFramesFor(std::size_t frames) noexcept;

    // ---- producer (one thread at a time) --------------------------------------------------
    /// Appends interleaved frames; returns how many were taken (fewer once maxFrames is reached).
    /// Allocates chunks as it goes; never call it on the audio thread.
    std::size_t append(const float* interleaved, std::size_t frames) override;
    /// No more frames will come. `ok` false: the source failed part-way (what is there plays).
    void finish(bool ok) noexcept;

    // ---- readers (any thread, lock-free and allocation-free) ------------------------------
    std::size_t availableFrames() const noexcept override {
        return mAvailable.load(std::memory_order_acquire);
    }
    bool isComplete() const noexcept override { return mComplete.load(std::memory_order_acquire); }
    bool failed() const noexcept override { return mFailed.load(std::memory_order_acquire); }
    /// Frames in the whole sound once complete, else the frames available so far.
    std::size_t frames() const noexcept { return availableFrames(); }
    /// Pointer to `frame` and the number of frames readable from it without crossing a chunk
    /// (0 when `frame` is not available yet).
    const float* framesAt(std::size_t frame, std::size_t& contiguous) const noexcept override;
    /// Everything up to the sound's memory bound can be waited for.
    std::size_t readyTarget(std::size_t position, std::size_t frames) const noexcept override;
    /// Copies up to `count` available frames starting at `frame` into `out`; returns the count.
    std::size_t read(std::size_t frame, float* out, std::size_t count) const noexcept;
    /// Bytes of sample memory held.
    std::size_t bytes() const noexcept;

    // ---- waiting (control thread or workers, never the audio thread) ----------------------
    /// Blocks until `frames` frames are available or the sound is complete.
    void waitForFrames(std::size_t frames) const;

private:
    /// The chunk that holds `frame`, and the frame's offset in it.
    static std::size_t chunkOf(std::size_t frame, std::size_t& offset) noexcept;
    static std::size_t chunkFrames(std::size_t chunk) noexcept {
        return kFirstChunkFrames << chunk;
    }

    const int mChannels;
    const std::size_t mMaxFrames;
    std::array<std::unique_ptr<float[]>, kMaxChunks> mChunks; // filled by the producer
    std::size_t mWriteChunk = 0;
    std::size_t mWriteOffset = 0; // frames in the chunk being written
    std::atomic<std::size_t> mAvailable{0};
    std::atomic<std::size_t> mStorageFrames{0};
    std::atomic<bool> mComplete{false};
    std::atomic<bool> mFailed{false};
    mutable std::mutex mWaitMutex;
    mutable std::condition_variable mWaitCondition;
};

} // namespace vantelo_sounds::engine
