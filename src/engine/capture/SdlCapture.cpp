#include "engine/capture/SdlCapture.hpp"

#include <SDL2/SDL.h>

#include "engine/capture/CaptureError.hpp"
#include "engine/output/AlsaErrorsSilenced.hpp"
#include "engine/output/SdlAudioSubsystem.hpp"
#include "engine/rt/FrameRing.hpp"

namespace vantelo_sounds::engine {

namespace {

// Called on SDL's capture thread: hands the block to the ring and returns.
void captureCallback(void* userdata, Uint8* stream, int length) noexcept {
    auto* ring = static_cast<FrameRing*>(userdata);
    const auto frames = static_cast<std::size_t>(length) / sizeof(float);
    ring->push(reinterpret_cast<const float*>(stream), frames);
}

} // namespace

struct SdlCapture::Device {
    SdlAudioSubsystem subsystem;
    SDL_AudioDeviceID id = 0;
    std::string description;

    ~Device() {
        if (id != 0) {
            SDL_CloseAudioDevice(id); // waits for a callback in progress
        }
    }
};

SdlCapture::SdlCapture(int rate)
    : mRate(rate) {}

SdlCapture::~SdlCapture() {
    stop();
}

Expected<void> SdlCapture::start(FrameRing& ring) {
    stop();
    const AlsaErrorsSilenced quiet;
    auto device = std::make_unique<Device>();
    if (!device->subsystem.ok()) {
        return Expected<void>(CaptureError::deviceUnavailable, SDL_GetError());
    }
    SDL_AudioSpec want{};
    want.freq = mRate;
    want.format = AUDIO_F32SYS;
    want.channels = 1;
    // About 32 ms at 16 kHz: small enough that a stop loses little, large enough to be cheap.
    want.samples = 512;
    want.callback = captureCallback;
    want.userdata = &ring;
    SDL_AudioSpec have{};
    device->id = SDL_OpenAudioDevice(nullptr, 1, &want, &have, 0);
    if (device->id == 0) {
        return Expected<void>(CaptureError::deviceUnavailable, SDL_GetError());
    }
    device->description = SdlAudioSubsystem::defaultDeviceDescription(true);
    SDL_PauseAudioDevice(device->id, 0);
    mDevice = std::move(device);
    return {};
}

void SdlCapture::stop() noexcept {
    mDevice.reset();
    // SDL keeps per-thread state (its error text) that it frees only when asked; the thread that
    // opened the device is usually the recording's own, which is about to end.
    SDL_TLSCleanup();
}

bool SdlCapture::lost() const noexcept {
    return mDevice && SDL_GetAudioDeviceStatus(mDevice->id) == SDL_AUDIO_STOPPED;
}

std::string SdlCapture::deviceName() const {
    if (!mDevice) {
        return {};
    }
    return mDevice->description;
}

} // namespace vantelo_sounds::engine
