#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace vantelo_sounds::engine {

class Output;

/// A sound device that a test controls, to see what the engine does when devices misbehave: it
/// can be unplugged and plugged back, refuse to open, stall (ask for nothing), ask for audio in
/// blocks of any size (a burst of callbacks), come back in another format, and take its time to
/// close. It keeps what it played. Its outputs play in manual time: the engine renders them as the
/// manual clock advances, as it renders the offline output.
///
/// Used on the control thread, except that its outputs are closed on the output worker.
class FaultInjectingDevice : public std::enable_shared_from_this<FaultInjectingDevice> {
public:
    /// How the device takes audio: blocks of `blockFrames` frames, `channels` channels (a mono
    /// device hears the average of left and right).
    struct Format {
        std::size_t blockFrames = 1024;
        int channels = 2;
    };

    static std::shared_ptr<FaultInjectingDevice> make();

    /// A new, unopened output on this device.
    std::unique_ptr<Output> makeOutput();

    // ---- faults -----------------------------------------------------------------------------

    /// The device goes away: open outputs are lost, opens fail until plugIn().
    void unplug();
    void plugIn();
    /// The next `count` opens fail even while the device is present.
    void failOpens(int count) { mFailingOpens = count; }
    /// A stalled device asks for nothing: what is rendered for it is not played.
    void setStalled(bool stalled) { mStalled = stalled; }
    /// The format of the next open.
    void setFormat(Format format) { mFormat = format; }
    /// While held, closing an output on this device blocks (a dead server that takes its time).
    void holdCloses(bool hold);
    /// Keeps what the device plays (on by default), or only counts it.
    void keepWhatIsHeard(bool keep) { mKeepHeard = keep; }

    // ---- what happened ----------------------------------------------------------------------

    bool present() const noexcept { return mPresent; }
    int opens() const noexcept { return mOpens; }
    int failedOpens() const noexcept { return mFailedOpens; }
    int closes() const noexcept { return mCloses.load(); }
    /// What the device played, always interleaved stereo (a mono device's frames twice).
    const std::vector<float>& heard() const noexcept { return mHeard; }
    std::uint64_t framesHeard() const noexcept { return mFramesHeard; }

private:
    friend class FaultInjectingOutput;

    FaultInjectingDevice() = default;
    /// Counts an open and says whether it succeeds.
    bool tryOpen();
    void close();
    void play(const float* stereo, std::size_t frames, int channels);
    std::uint64_t unplugs() const noexcept { return mUnplugs; }

    bool mPresent = true;
    std::uint64_t mUnplugs = 0;
    int mFailingOpens = 0;
    int mOpens = 0;
    int mFailedOpens = 0;
    std::atomic<int> mCloses{0};
    bool mStalled = false;
    bool mKeepHeard = true;
    Format mFormat;
    std::vector<float> mHeard;
    std::uint64_t mFramesHeard = 0;

    std::mutex mCloseMutex;
    std::condition_variable mCloseReleased;
    bool mHoldCloses = false;
};

} // namespace vantelo_sounds::engine
