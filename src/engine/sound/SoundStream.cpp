#include "engine/sound/SoundStream.hpp"

#include <algorithm>
#include <cstring>

namespace vantelo_sounds::engine {

SoundStream::SoundStream(int channels, std::size_t capacityFrames)
    : mChannels(std::clamp(channels, 1, 2))
    , mCapacity(std::max<std::size_t>(capacityFrames, 1))
    , mRing(std::make_unique_for_overwrite<float[]>(mCapacity *
                                                    static_cast<std::size_t>(mChannels))) {}

std::size_t SoundStream::bytes() const noexcept {
    return mCapacity * static_cast<std::size_t>(mChannels) * sizeof(float);
}

const float* SoundStream::framesAt(std::size_t frame, std::size_t& contiguous) const noexcept {
    const std::size_t written = availableFrames();
    if (frame >= written || frame < mReleased.load(std::memory_order_relaxed)) {
        contiguous = 0;
        return nullptr;
    }
    const std::size_t offset = frame % mCapacity;
    contiguous = std::min(written - frame, mCapacity - offset);
    return mRing.get() + offset * static_cast<std::size_t>(mChannels);
}

void SoundStream::releaseBefore(std::size_t frame) const noexcept {
    // Only the reader moves it, and only forward; the writer may reuse the room from then on.
    if (frame > mReleased.load(std::memory_order_relaxed)) {
        mReleased.store(std::min(frame, availableFrames()), std::memory_order_release);
    }
}

std::size_t SoundStream::readyTarget(std::size_t position, std::size_t frames) const noexcept {
    return std::min(position + frames, mReleased.load(std::memory_order_acquire) + mCapacity);
}

std::size_t SoundStream::framesAhead() const noexcept {
    return mWritten.load(std::memory_order_relaxed) - mReleased.load(std::memory_order_acquire);
}

std::size_t SoundStream::room() const noexcept {
    return mCapacity - framesAhead();
}

std::size_t SoundStream::append(const float* interleaved, std::size_t frames) {
    const auto channels = static_cast<std::size_t>(mChannels);
    const std::size_t total = std::min(frames, room());
    std::size_t written = mWritten.load(std::memory_order_relaxed);
    std::size_t done = 0;
    while (done < total) {
        const std::size_t offset = written % mCapacity;
        const std::size_t n = std::min(total - done, mCapacity - offset);
        std::memcpy(mRing.get() + offset * channels, interleaved + done * channels,
                    n * channels * sizeof(float));
        done += n;
        written += n;
    }
    mWritten.store(written, std::memory_order_release);
    return done;
}

void SoundStream::finish(bool ok) noexcept {
    if (!ok) {
        mFailed.store(true, std::memory_order_release);
    }
    mComplete.store(true, std::memory_order_release);
}

} // namespace vantelo_sounds::engine
