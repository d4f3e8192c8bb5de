#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vantelo_sounds/Expected.hpp>

#include "engine/output/Output.hpp"
#include "engine/output/OutputWorker.hpp"

namespace vantelo_sounds::engine {

class ManualOutput;
class Mixer;
class MixTap;

/// Keeps exactly one output rendering the mixer: the one chosen, or a stand-in while it cannot
/// play. The stand-in is the null output in real time and a manual output without a file in
/// manual time, so the mix goes on in step with its clock and every sound ends when it would have.
///
/// A device is taken as lost when it says so (unplugged, its server gone) or when it has asked
/// for nothing for kStallLimit while the caller kept polling (a sound server that hangs). It is
/// detached at once and the stand-in takes over in the same poll; the dead device is closed on the
/// output worker, never on the control thread. While the stand-in plays, a new output on the same
/// device is opened on the worker, first kFirstReopenDelay after the loss, then at doubling
/// intervals up to kMaxReopenDelay, until one opens. The stand-in stops only when the new device is
/// ready to render.
///
/// Times are the caller's clock (the run loop's), so that manual time drives all of it. In manual
/// time the switch waits (bounded) for the worker's open, so that a test sees the same result
/// every time. Used on the control thread.
class OutputSwitch {
public:
    enum class Change { none, lost, restored };
    using Time = std::chrono::nanoseconds;

    static constexpr Time kStallLimit = std::chrono::seconds(2);
    static constexpr Time kFirstReopenDelay = std::chrono::milliseconds(250);
    static constexpr Time kMaxReopenDelay = std::chrono::seconds(2);

    /// Starts `chosen` (the null output when none). When it cannot start, startResult() says why
    /// and the stand-in plays; a device that can be lost is then tried again as after a loss.
    OutputSwitch(Mixer& mixer, MixTap& tap, std::unique_ptr<Output> chosen);
    ~OutputSwitch();
    OutputSwitch(const OutputSwitch&) = delete;
    OutputSwitch& operator=(const OutputSwitch&) = delete;

    /// Notices a lost or stalled device, takes back a device opened again, and starts the next
    /// reopening when it is due. `now` is the caller's clock.
    Change poll(Time now);

    /// The output that renders now.
    Output& rendering() noexcept { return mStandIn ? *mStandIn : *mChosen; }
    /// The chosen output when it is the offline one (its file and capture), else nullptr.
    ManualOutput* manualOutput() noexcept;
    bool isManual() const noexcept { return mManual; }
    /// True while the stand-in plays for a device that failed or was lost.
    bool isFallingBack() const noexcept { return mStandIn != nullptr; }
    /// True when the device in use, or the one being waited for, can be lost: the caller polls.
    bool needsPolling() const noexcept { return mStandIn ? mSpare || mOpening : mWatched; }
    /// "null" while the stand-in plays, else the chosen output's name.
    const char* name() const noexcept;
    /// The device or file played to now ("" for none).
    std::string deviceName() const;
    /// Whether the output given to the constructor, or the last reopening, started.
    const Expected<void>& startResult() const noexcept { return mStartResult; }

private:
    void fallBack(Time now);
    void startStandIn();
    void stopStandIn();

    Mixer& mMixer;
    MixTap& mTap;
    bool mManual = false;
    bool mWatched = false;            // the chosen output renders and can be lost
    std::unique_ptr<Output> mChosen;  // renders unless the stand-in does; empty while lost
    std::unique_ptr<Output> mStandIn; // while falling back
    std::unique_ptr<Output> mSpare;   // the next output to open, while falling back
    OutputWorker mWorker;
    Expected<void> mStartResult;
    std::optional<Time> mNextReopen; // set at the first poll after a loss or a failed start
    Time mReopenDelay = kFirstReopenDelay;
    bool mOpening = false; // an open is in the worker's hands, or done and not taken back yet
    std::uint64_t mLastConsumed = 0;
    std::optional<Time> mLastProgress; // when the device last asked for more
    std::optional<Time> mLastPoll;
};

} // namespace vantelo_sounds::engine
