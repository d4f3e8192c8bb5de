#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vantelo_sounds/Expected.hpp>

#include "engine/WavWriter.hpp"
#include "engine/output/OutputError.hpp"
#include "engine/rt/FrameRing.hpp"

namespace vantelo_sounds::engine {

/// Records the mix a real-time output plays into a WAV file. The audio thread hands every block
/// it rendered to push(), which only copies into a preallocated ring (never blocking: a full ring
/// drops the block's excess and counts it); a thread of the tap's own drains the ring into the
/// file. open() and close() are called on the control thread.
class MixTap {
public:
    /// What a completed recording holds.
    struct Summary {
        std::uint64_t framesWritten = 0; ///< in the file, padding included
        std::uint64_t droppedFrames = 0; ///< rendered while the ring was full: not in the file
    };

    static constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();
    /// Two seconds of mix: far more than the writer thread ever falls behind.
    static constexpr std::size_t kDefaultRingFrames = 96000;

    explicit MixTap(std::size_t ringFrames = kDefaultRingFrames);
    ~MixTap() { (void)close(); }
    MixTap(const MixTap&) = delete;
    MixTap& operator=(const MixTap&) = delete;

    /// Creates `path` and records from the next push() on. At most `maxFrames` frames are kept;
    /// later ones are discarded. Closes a recording in progress first. Fails with the errno of
    /// the file that could not be created.
    Expected<void> open(const std::string& path, std::uint64_t maxFrames = kNoLimit);
    /// Stops recording, writes what is left in the ring, pads the file with silence up to
    /// `padToFrames` frames and completes its header. Fails with OutputError::notRecording when
    /// not recording, or with the errno of a write that failed.
    Expected<Summary> close(std::uint64_t padToFrames = 0);
    bool isOpen() const noexcept { return mWriterThread.joinable(); }

    /// Audio thread: copies `frames` interleaved stereo frames in when recording. Never blocks,
    /// allocates or does I/O.
    void push(const float* interleaved, std::size_t frames) noexcept;
    /// Frames dropped so far in this recording.
    std::uint64_t droppedFrames() const noexcept { return mRing ? mRing->dropped() : 0; }

private:
    void drain() noexcept;
    void writeOut(const float* interleaved, std::size_t frames) noexcept;

    std::size_t mRingFrames;
    std::unique_ptr<FrameRing> mRing;
    WavWriter mWriter;
    std::thread mWriterThread;
    std::uint64_t mMaxFrames = kNoLimit;
    std::atomic<bool> mRecording{false}; // push() copies only while set
    std::atomic<bool> mInPush{false};    // the audio thread is inside push()
    std::atomic<bool> mStopWriter{false};
};

} // namespace vantelo_sounds::engine
