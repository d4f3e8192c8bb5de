#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/output/Output.hpp"

namespace vantelo_sounds::engine {

/// The sound device, through SDL2 (PulseAudio, PipeWire or ALSA underneath): float32 stereo at
/// kMixRate; SDL's audio thread calls Mixer::render. SDL is told not to install signal handlers,
/// so that SIGINT and SIGTERM keep their usual meaning.
class SdlOutput final : public Output {
public:
    SdlOutput();
    ~SdlOutput() override;

    const char* name() const noexcept override { return "sdl"; }
    Expected<void> start(Mixer& mixer) override;
    void stop() noexcept override;
    bool canBeLost() const noexcept override { return true; }
    /// The device was removed (unplugged, server gone): SDL stopped it.
    bool lost() const noexcept override;
    /// SDL's driver in use ("pulseaudio", "alsa", "dummy"), empty when not open.
    std::string driver() const;

private:
    struct Device;
    std::unique_ptr<Device> mDevice;
};

} // namespace vantelo_sounds::engine
