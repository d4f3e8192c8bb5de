#include "engine/sound/SoundData.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vantelo_sounds::engine {

SoundData::SoundData(int channels, std::size_t maxFrames)
    : mChannels(std::clamp(channels, 1, 2))
    , mMaxFrames(std::min(maxFrames, kFirstChunkFrames * ((std::size_t{1} << kMaxChunks) - 1))) {}

std::size_t SoundData::chunkOf(std::size_t frame, std::size_t& offset) noexcept {
    // Chunk k starts at kFirstChunkFrames * (2^k - 1).
    const std::size_t chunk = std::bit_width(frame / kFirstChunkFrames + 1) - 1;
    offset = frame - kFirstChunkFrames * ((std::size_t{1} << chunk) - 1);
    return chunk;
}

std::size_t SoundData::storageFramesFor(std::size_t frames) noexcept {
    if (frames == 0) {
        return 0;
    }
    std::size_t offset = 0;
    const std::size_t last = chunkOf(frames - 1, offset);
    return kFirstChunkFrames * ((std::size_t{2} << last) - 1);
}

std::size_t SoundData::append(const float* interleaved, std::size_t frames) {
    const auto channels = static_cast<std::size_t>(mChannels);
    const std::size_t room = mMaxFrames - mAvailable.load(std::memory_order_relaxed);
    const std::size_t total = std::min(frames, room);
    std::size_t done = 0;
    while (done < total) {
        if (mWriteOffset == chunkFrames(mWriteChunk)) {
            ++mWriteChunk;
            mWriteOffset = 0;
        }
        auto& chunk = mChunks[mWriteChunk];
        if (!chunk) {
            chunk = std::make_unique<float[]>(chunkFrames(mWriteChunk) * channels);
            mStorageFrames.fetch_add(chunkFrames(mWriteChunk), std::memory_order_relaxed);
        }
        const std::size_t n = std::min(total - done, chunkFrames(mWriteChunk) - mWriteOffset);
        std::memcpy(chunk.get() + mWriteOffset * channels, interleaved + done * channels,
                    n * channels * sizeof(float));
        mWriteOffset += n;
        done += n;
        mAvailable.fetch_add(n, std::memory_order_release);
    }
    if (done > 0) {
        std::lock_guard lock(mWaitMutex);
        mWaitCondition.notify_all();
    }
    return done;
}

void SoundData::finish(bool ok) noexcept {
    if (!ok) {
        mFailed.store(true, std::memory_order_release);
    }
    mComplete.store(true, std::memory_order_release);
    std::lock_guard lock(mWaitMutex);
    mWaitCondition.notify_all();
}

const float* SoundData::framesAt(std::size_t frame, std::size_t& contiguous) const noexcept {
    const std::size_t available = availableFrames();
    if (frame >= available) {
        contiguous = 0;
        return nullptr;
    }
    std::size_t offset = 0;
    const std::size_t chunk = chunkOf(frame, offset);
    contiguous = std::min(chunkFrames(chunk) - offset, available - frame);
    return mChunks[chunk].get() + offset * static_cast<std::size_t>(mChannels);
}

std::size_t SoundData::readyTarget(std::size_t position, std::size_t frames) const noexcept {
    return std::min(position + frames, mMaxFrames);
}

std::size_t SoundData::read(std::size_t frame, float* out, std::size_t count) const noexcept {
    std::size_t done = 0;
    while (done < count) {
        std::size_t contiguous = 0;
        const float* src = framesAt(frame + done, contiguous);
        if (src == nullptr) {
            break;
        }
        const std::size_t n = std::min(contiguous, count - done);
        std::memcpy(out + done * static_cast<std::size_t>(mChannels), src,
                    n * static_cast<std::size_t>(mChannels) * sizeof(float));
        done += n;
    }
    return done;
}

std::size_t SoundData::bytes() const noexcept {
    return mStorageFrames.load(std::memory_order_relaxed) * static_cast<std::size_t>(mChannels) *
           sizeof(float);
}

void SoundData::waitForFrames(std::size_t frames) const {
    std::unique_lock lock(mWaitMutex);
    mWaitCondition.wait(lock, [&] { return isComplete() || availableFrames() >= frames; });
}

} // namespace vantelo_sounds::engine
