#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/output/Output.hpp"

namespace vantelo_sounds::engine {

/// The sound device, through SDL2 (PulseAudio, PipeWire or ALSA underneath): float32 stereo at
/// kMixRate, converted by SDL to whatever the device takes; SDL's audio thread calls
/// Mixer::render with blocks of the size the device asks for. SDL is told not to install signal
/// handlers, so that SIGINT and SIGTERM keep their usual meaning. The default device is opened, so
/// a sound server moves the stream when the user picks another default.
class SdlOutput final : public Output {
public:
    SdlOutput();
    ~SdlOutput() override;

    const char* name() const noexcept override { return "sdl"; }
    Expected<void> start(Mixer& mixer) override { return openThenResume(mixer); }
    void stop() noexcept override;
    bool canBeLost() const noexcept override { return true; }
    /// The device was removed (unplugged, server gone): SDL stopped it.
    bool lost() const noexcept override;
    Expected<void> open(Mixer& mixer) override;
    void resume() noexcept override;
    void detach() noexcept override;
    std::uint64_t framesConsumed() const noexcept override;
    std::unique_ptr<Output> makeAnother() const override { return std::make_unique<SdlOutput>(); }
    /// "driver: device", for instance "pulseaudio: Built-in Audio Analog Stereo".
    std::string deviceName() const override;

private:
    struct Device;
    std::unique_ptr<Device> mDevice;
};

} // namespace vantelo_sounds::engine
