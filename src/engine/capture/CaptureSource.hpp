#pragma once

#include <string>
#include <vantelo_sounds/Expected.hpp>

namespace vantelo_sounds::engine {

class FrameRing;

/// The microphone as the engine sees it: once started, it pushes mono 32-bit float frames at
/// rate() into a ring from a thread of its own (a device's capture thread), never waiting: frames
/// that do not fit are counted by the ring as dropped.
class CaptureSource {
public:
    virtual ~CaptureSource() = default;

    /// A short name for messages: "sdl", "signal".
    virtual const char* name() const noexcept = 0;
    /// Frames per second it delivers; fixed for the source's life.
    virtual int rate() const noexcept = 0;
    /// Opens the device (may block for a few milliseconds) and begins pushing into `ring`, which
    /// must outlive the capture. Fails with a CaptureError whose detail says why.
    virtual Expected<void> start(FrameRing& ring) = 0;
    /// Stops pushing; when it returns the ring is no longer touched. Safe to call twice.
    virtual void stop() noexcept = 0;
    /// The device went away while capturing (unplugged, sound server gone).
    virtual bool lost() const noexcept { return false; }
    /// The device it captures from, for messages ("" when there is none).
    virtual std::string deviceName() const { return {}; }
};

} // namespace vantelo_sounds::engine
