#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace vantelo_sounds::engine {

/// A bounded ring of interleaved frames (stereo unless told otherwise) between one producer thread
/// (an audio thread: the device's render or capture callback) and one consumer thread. Neither side
/// locks, allocates or waits: a push that does not fit keeps what fits and counts the rest as
/// dropped. The storage is allocated by the constructor.
class FrameRing {
public:
    static constexpr std::size_t kChannels = 2;

    explicit FrameRing(std::size_t capacityFrames, std::size_t channels = kChannels)
        : mChannels(std::max<std::size_t>(channels, 1))
        , mSamples(std::max<std::size_t>(capacityFrames, 1) * mChannels) {}
    FrameRing(const FrameRing&) = delete;
    FrameRing& operator=(const FrameRing&) = delete;

    std::size_t capacity() const noexcept { return mSamples.size() / mChannels; }
    std::size_t channels() const noexcept { return mChannels; }

    /// Producer: appends up to `frames` frames; returns how many were kept.
    std::size_t push(const float* interleaved, std::size_t frames) noexcept {
        const std::uint64_t head = mHead.load(std::memory_order_relaxed);
        const std::uint64_t tail = mTail.load(std::memory_order_acquire);
        const auto space = static_cast<std::size_t>(capacity() - (head - tail));
        const std::size_t kept = std::min(frames, space);
        copyIn(head, interleaved, kept);
        mHead.store(head + kept, std::memory_order_release);
        if (kept < frames) {
            mDropped.fetch_add(frames - kept, std::memory_order_relaxed);
        }
        return kept;
    }

    /// Consumer: takes up to `frames` frames, oldest first; returns how many were taken.
    std::size_t pop(float* interleaved, std::size_t frames) noexcept {
        const std::uint64_t tail = mTail.load(std::memory_order_relaxed);
        const std::uint64_t head = mHead.load(std::memory_order_acquire);
        const std::size_t taken = std::min(frames, static_cast<std::size_t>(head - tail));
        copyOut(tail, interleaved, taken);
        mTail.store(tail + taken, std::memory_order_release);
        return taken;
    }

    /// Frames waiting to be popped (exact on the consumer's thread, a lower bound elsewhere).
    std::size_t available() const noexcept {
        return static_cast<std::size_t>(mHead.load(std::memory_order_acquire) -
                                        mTail.load(std::memory_order_relaxed));
    }
    /// Frames refused because the ring was full, since construction or the last clear().
    std::uint64_t dropped() const noexcept { return mDropped.load(std::memory_order_relaxed); }

    /// Empties the ring and its drop count. Only while neither side is using it.
    void clear() noexcept {
        mHead.store(0, std::memory_order_relaxed);
        mTail.store(0, std::memory_order_relaxed);
        mDropped.store(0, std::memory_order_relaxed);
    }

private:
    // Copies in at most two pieces: up to the end of the storage, then from its start.
    void copyIn(std::uint64_t position, const float* from, std::size_t frames) noexcept {
        if (frames == 0) {
            return;
        }
        const auto start = static_cast<std::size_t>(position % capacity());
        const std::size_t first = std::min(frames, capacity() - start);
        std::memcpy(mSamples.data() + start * mChannels, from, first * mChannels * sizeof(float));
        std::memcpy(mSamples.data(), from + first * mChannels,
                    (frames - first) * mChannels * sizeof(float));
    }
    void copyOut(std::uint64_t position, float* to, std::size_t frames) const noexcept {
        if (frames == 0) {
            return;
        }
        const auto start = static_cast<std::size_t>(position % capacity());
        const std::size_t first = std::min(frames, capacity() - start);
        std::memcpy(to, mSamples.data() + start * mChannels, first * mChannels * sizeof(float));
        std::memcpy(to + first * mChannels, mSamples.data(),
                    (frames - first) * mChannels * sizeof(float));
    }

    std::size_t mChannels;
    std::vector<float> mSamples;
    // Frame counts since the start; they never wrap in practice (64 bits of frames).
    alignas(64) std::atomic<std::uint64_t> mHead{0}; // written by the producer
    alignas(64) std::atomic<std::uint64_t> mTail{0}; // written by the consumer
    std::atomic<std::uint64_t> mDropped{0};
};

} // namespace vantelo_sounds::engine
