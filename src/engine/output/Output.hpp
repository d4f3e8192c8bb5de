#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vantelo_sounds/Expected.hpp>

namespace vantelo_sounds::engine {

class Mixer;
class MixTap;

/// Where the mix goes. A real-time output pulls frames from the mixer on its own thread (the
/// audio thread); a manual output renders only when asked. Only one output renders a mixer at a
/// time.
///
/// A device that can go away (canBeLost()) is opened in two steps, so that the slow one never
/// runs on the control thread when it is reopened: open() (may block; the output worker calls it)
/// and resume() (begins rendering, fast). start() does both. Everything else is called on the
/// control thread, except the destructor and stop() of a lost device, which the output worker
/// calls after detach().
class Output {
public:
    virtual ~Output() = default;

    /// A short name for messages: "sdl", "null", "wav", "manual".
    virtual const char* name() const noexcept = 0;
    /// Begins rendering `mixer`, or says why it cannot (an OutputError, or the errno of a file).
    virtual Expected<void> start(Mixer& mixer) = 0;
    /// Stops rendering; when it returns, the mixer is no longer called. Safe to call twice.
    virtual void stop() noexcept = 0;
    /// True when the output renders only on request (no thread of its own).
    virtual bool isManual() const noexcept { return false; }
    /// Manual outputs: renders up to `frames` frames (at most one block), returning early just
    /// after a frame on which a voice ended. Returns the frames rendered (more than 0 when asked
    /// for more than 0).
    virtual std::size_t render(std::size_t frames) {
        (void)frames;
        return 0;
    }

    // ---- devices that can go away ---------------------------------------------------------

    /// True when lost() must be watched: a device that can be unplugged or whose server can go.
    virtual bool canBeLost() const noexcept { return false; }
    /// True once the device behind the output has gone away; the engine then falls back.
    virtual bool lost() const noexcept { return false; }
    /// Opens the device for `mixer` without rendering yet. May block (a sound server that is
    /// slow to answer). Outputs that cannot be lost only start().
    virtual Expected<void> open(Mixer& mixer) { return start(mixer); }
    /// Begins rendering an opened output. Never blocks.
    virtual void resume() noexcept {}
    /// From its return on, the output's thread no longer calls the mixer, though the device may
    /// still be open: closing a lost device can take a long while, and is done elsewhere. Never
    /// blocks for longer than one render.
    virtual void detach() noexcept {}
    /// Frames the device has asked for since it opened: a device that stops asking has stalled.
    virtual std::uint64_t framesConsumed() const noexcept { return 0; }
    /// A new, unopened output on the same device, to reopen it after a loss while the lost one
    /// is being closed. nullptr for outputs that cannot be lost.
    virtual std::unique_ptr<Output> makeAnother() const { return nullptr; }
    /// What the output plays to, for messages and event logs: the device's or file's name; empty
    /// for none.
    virtual std::string deviceName() const { return {}; }

    /// A real-time output hands every block it renders to `tap` (may be null) from its next
    /// start() on; the tap must outlive the output's rendering. Manual outputs ignore it.
    void setTap(MixTap* tap) noexcept { mTap = tap; }

protected:
    /// start() of a device opened in two steps.
    Expected<void> openThenResume(Mixer& mixer) {
        auto opened = open(mixer);
        if (opened) {
            resume();
        }
        return opened;
    }

    MixTap* mTap = nullptr;
};

} // namespace vantelo_sounds::engine
