#pragma once

#include <cstddef>
#include <string>
#include <vantelo_sounds/Expected.hpp>

namespace vantelo_sounds::engine {

class Mixer;
class MixTap;

/// Where the mix goes. A real-time output pulls frames from the mixer on its own thread (the
/// audio thread); the manual output renders only when asked. Only one output renders a mixer at a
/// time. start(), stop() and lost() are called on the control thread.
class Output {
public:
    virtual ~Output() = default;

    /// A short name for messages: "sdl", "null", "wav", "manual".
    virtual const char* name() const noexcept = 0;
    /// Begins rendering `mixer`, or says why it cannot (an OutputError, or the errno of a file).
    virtual Expected<void> start(Mixer& mixer) = 0;
    /// Stops rendering; when it returns, the mixer is no longer called. Safe to call twice.
    virtual void stop() noexcept = 0;
    /// True when the output renders only on request (no thread, no device).
    virtual bool isManual() const noexcept { return false; }
    /// True when lost() must be watched: a device that can be unplugged or whose server can go.
    virtual bool canBeLost() const noexcept { return false; }
    /// True once the device behind the output has gone away; the engine then falls back.
    virtual bool lost() const noexcept { return false; }

    /// A real-time output hands every block it renders to `tap` (may be null) from its next
    /// start() on; the tap must outlive the output's rendering. The manual output ignores it.
    void setTap(MixTap* tap) noexcept { mTap = tap; }

protected:
    MixTap* mTap = nullptr;
};

} // namespace vantelo_sounds::engine
