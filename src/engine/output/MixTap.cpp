#include "engine/output/MixTap.hpp"

#include <chrono>
#include <vector>

namespace vantelo_sounds::engine {

namespace {

// The writer wakes this often; the ring holds far more than this much mix.
constexpr auto kWriterPeriod = std::chrono::milliseconds(5);
constexpr std::size_t kChunkFrames = 4096;

} // namespace

MixTap::MixTap(std::size_t ringFrames)
    : mRingFrames(ringFrames) {}

Expected<void> MixTap::open(const std::string& path, std::uint64_t maxFrames) {
    (void)close();
    if (auto opened = mWriter.open(path); !opened) {
        return opened;
    }
    if (!mRing) {
        mRing = std::make_unique<FrameRing>(mRingFrames);
    }
    // No push() is inside the ring now (close() waited for it), so it can be emptied.
    mRing->clear();
    mMaxFrames = maxFrames;
    mStopWriter.store(false, std::memory_order_relaxed);
    mWriterThread = std::thread([this] { drain(); });
    mRecording.store(true, std::memory_order_seq_cst);
    return {};
}

Expected<MixTap::Summary> MixTap::close(std::uint64_t padToFrames) {
    if (!mWriterThread.joinable()) {
        return make_error_code(OutputError::notRecording);
    }
    // After this, a push() either saw the flag down or is still inside: wait for it to leave, so
    // that the writer's last drain sees everything recorded.
    mRecording.store(false, std::memory_order_seq_cst);
    while (mInPush.load(std::memory_order_seq_cst)) {
        std::this_thread::yield();
    }
    mStopWriter.store(true, std::memory_order_release);
    mWriterThread.join();

    const std::vector<float> silence(kChunkFrames * FrameRing::kChannels, 0.0f);
    const std::uint64_t target = std::min(padToFrames, mMaxFrames);
    while (mWriter.framesWritten() < target) {
        const auto frames = static_cast<std::size_t>(
            std::min<std::uint64_t>(target - mWriter.framesWritten(), kChunkFrames));
        if (!mWriter.write(silence.data(), frames)) {
            break;
        }
    }
    const Summary summary{mWriter.framesWritten(), mRing->dropped()};
    if (auto closed = mWriter.close(); !closed) {
        return closed.failure();
    }
    return summary;
}

void MixTap::push(const float* interleaved, std::size_t frames) noexcept {
    mInPush.store(true, std::memory_order_seq_cst);
    if (mRecording.load(std::memory_order_seq_cst)) {
        mRing->push(interleaved, frames);
    }
    mInPush.store(false, std::memory_order_seq_cst);
}

void MixTap::writeOut(const float* interleaved, std::size_t frames) noexcept {
    const std::uint64_t room = mMaxFrames - mWriter.framesWritten();
    const auto kept = static_cast<std::size_t>(std::min<std::uint64_t>(frames, room));
    if (kept > 0) {
        mWriter.write(interleaved, kept);
    }
}

void MixTap::drain() noexcept {
    std::vector<float> chunk(kChunkFrames * FrameRing::kChannels);
    for (;;) {
        // Read the stop flag before draining, so the last pass runs after the last push().
        const bool last = mStopWriter.load(std::memory_order_acquire);
        std::size_t taken = 0;
        while ((taken = mRing->pop(chunk.data(), kChunkFrames)) > 0) {
            writeOut(chunk.data(), taken);
        }
        if (last) {
            return;
        }
        std::this_thread::sleep_for(kWriterPeriod);
    }
}

} // namespace vantelo_sounds::engine
