#include "engine/capture/CapturePump.hpp"

#include <chrono>
#include <vector>

#include "engine/capture/CaptureError.hpp"
#include "engine/capture/CaptureSource.hpp"
#include "engine/capture/RecordingFile.hpp"
#include "engine/rt/FrameRing.hpp"

namespace vantelo_sounds::engine {

namespace {

// The ring holds this much sound: the encoder would have to stall this long before any is lost.
constexpr double kRingSeconds = 4.0;
// The thread looks at the ring this often; a fragment is written every RecordingFile::
// kFragmentSeconds, so this adds little to what a crash can lose.
constexpr auto kPumpInterval = std::chrono::milliseconds(20);
constexpr std::size_t kChunkFrames = 4096;

} // namespace

CapturePump::CapturePump(std::unique_ptr<CaptureSource> source, std::unique_ptr<RecordingFile> file,
                         EndHandler onEnd)
    : mSource(std::move(source))
    , mFile(std::move(file))
    , mRing(
          std::make_unique<FrameRing>(static_cast<std::size_t>(kRingSeconds * mSource->rate()), 1))
    , mOnEnd(std::move(onEnd)) {}

CapturePump::~CapturePump() {
    abandon();
}

void CapturePump::start() {
    if (!mThread.joinable()) {
        mThread = std::thread([this] { run(); });
    }
}

void CapturePump::stop() {
    {
        std::lock_guard lock(mMutex);
        mStopRequested = true;
    }
    mWake.notify_all();
}

void CapturePump::abandon() {
    {
        std::lock_guard lock(mMutex);
        mStopRequested = true;
        mAbandoned = true;
    }
    mWake.notify_all();
    if (mThread.joinable()) {
        mThread.join();
    }
}

void CapturePump::wait() {
    if (mThread.joinable()) {
        mThread.join();
    }
}

std::string CapturePump::deviceName() const {
    std::lock_guard lock(mMutex);
    return mDeviceName;
}

void CapturePump::run() {
    const RecordingOutcome outcome = pump();
    bool abandoned = false;
    {
        std::lock_guard lock(mMutex);
        abandoned = mAbandoned;
    }
    if (!abandoned && mOnEnd) {
        mOnEnd(outcome);
    }
}

RecordingOutcome CapturePump::pump() {
    using Reason = RecordingOutcome::Reason;
    RecordingFile& file = *mFile;
    Expected<void> failure;
    if (auto started = mSource->start(*mRing); !started) {
        failure = started.failure();
        mSource->stop();
        return RecordingOutcome::of(file, Reason::failed, std::move(failure), file.finish(), 0);
    }
    {
        std::lock_guard lock(mMutex);
        mDeviceName = mSource->deviceName();
    }
    std::vector<float> chunk(kChunkFrames);
    std::uint64_t dropped = 0;
    // Writes what the ring holds; frames the ring had to refuse become silence, so that what
    // follows stays in time (and the loss is reported).
    const auto drain = [&]() -> bool {
        for (;;) {
            const std::uint64_t refused = mRing->dropped();
            if (refused > dropped) {
                if (auto gap = file.appendSilence(static_cast<std::size_t>(refused - dropped));
                    !gap) {
                    failure = gap.failure();
                    return false;
                }
                dropped = refused;
            }
            const std::size_t popped = mRing->pop(chunk.data(), chunk.size());
            if (popped == 0 || file.isFull()) {
                return true;
            }
            if (auto appended = file.append(chunk.data(), popped); !appended) {
                failure = appended.failure();
                return false;
            }
        }
    };
    Reason reason = Reason::stopped;
    for (;;) {
        bool stopping = false;
        {
            std::unique_lock lock(mMutex);
            mWake.wait_for(lock, kPumpInterval, [this] { return shouldWake(); });
            stopping = mStopRequested;
        }
        const bool lost = mSource->lost();
        if (stopping || lost) {
            mSource->stop(); // nothing is pushed after this: the ring's rest is the last sound
        }
        if (!drain()) {
            reason = Reason::failed;
            break;
        }
        if (file.isFull()) {
            reason = Reason::full;
            break;
        }
        if (stopping || lost) {
            reason = lost && !stopping ? Reason::deviceLost : Reason::stopped;
            break;
        }
    }
    mSource->stop();
    const Expected<void> finished = file.finish();
    return RecordingOutcome::of(file, reason, std::move(failure), finished, dropped);
}

} // namespace vantelo_sounds::engine
