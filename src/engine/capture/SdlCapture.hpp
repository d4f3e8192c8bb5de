#pragma once

#include <memory>
#include <string>

#include "engine/capture/CaptureSource.hpp"

namespace vantelo_sounds::engine {

/// The default capture device through SDL2 (PulseAudio, PipeWire or ALSA underneath), asked for
/// mono float at the rate given, which SDL converts to from whatever the device delivers. The
/// default device is opened, so a sound server's choice of microphone is followed.
class SdlCapture final : public CaptureSource {
public:
    explicit SdlCapture(int rate);
    ~SdlCapture() override;

    const char* name() const noexcept override { return "sdl"; }
    int rate() const noexcept override { return mRate; }
    Expected<void> start(FrameRing& ring) override;
    void stop() noexcept override;
    bool lost() const noexcept override;
    /// "driver: device", for instance "pulseaudio: Built-in Audio Analog Stereo".
    std::string deviceName() const override;

private:
    struct Device;
    int mRate;
    std::unique_ptr<Device> mDevice;
};

} // namespace vantelo_sounds::engine
