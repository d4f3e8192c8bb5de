#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "engine/capture/RecordingOutcome.hpp"

namespace vantelo_sounds::engine {

class CaptureSource;
class FrameRing;
class RecordingFile;

/// A recording in real time. The capture source pushes frames into a lock-free ring from its own
/// thread (so capture never waits for the encoder); the pump's thread opens the source, takes the
/// frames out and writes them to the file until the file is full, stop() is asked, the device goes
/// away or writing fails. Then it finishes the file and calls `onEnd` with the outcome, on its own
/// thread, exactly once (unless abandoned).
class CapturePump {
public:
    using EndHandler = std::function<void(const RecordingOutcome& outcome)>;

    CapturePump(std::unique_ptr<CaptureSource> source, std::unique_ptr<RecordingFile> file,
                EndHandler onEnd);
    /// Abandons a recording still under way.
    ~CapturePump();
    CapturePump(const CapturePump&) = delete;
    CapturePump& operator=(const CapturePump&) = delete;

    /// Begins: the source is opened on the pump's thread.
    void start();
    /// Asks for the end: what the ring holds is written, the file finished, `onEnd` called.
    void stop();
    /// Ends without calling `onEnd` and waits until the file is finished and closed.
    void abandon();
    /// Waits until the pump has ended (after stop(), or once the file is full): the file is
    /// complete and `onEnd` has been called.
    void wait();

    /// The capture device's name once opened ("" before, or for none).
    std::string deviceName() const;

private:
    void run();
    RecordingOutcome pump();
    bool shouldWake() const { return mStopRequested; }

    std::unique_ptr<CaptureSource> mSource;
    std::unique_ptr<RecordingFile> mFile;
    std::unique_ptr<FrameRing> mRing;
    EndHandler mOnEnd;
    mutable std::mutex mMutex;
    std::condition_variable mWake;
    bool mStopRequested = false;
    bool mAbandoned = false;
    std::string mDeviceName;
    std::thread mThread;
};

} // namespace vantelo_sounds::engine
