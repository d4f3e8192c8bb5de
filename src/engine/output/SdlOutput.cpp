#include "engine/output/SdlOutput.hpp"

#include <SDL2/SDL.h>

#include "engine/mix/Mixer.hpp"
#include "engine/output/MixTap.hpp"
#include "engine/output/OutputError.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

namespace {

// SDL's audio subsystem, counted by SDL itself: each owner inits once and quits once.
struct AudioSubsystem {
    bool ok = false;
    AudioSubsystem() {
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
        ok = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    }
    ~AudioSubsystem() {
        if (ok) {
            SDL_QuitSubSystem(SDL_INIT_AUDIO);
        }
    }
    AudioSubsystem(const AudioSubsystem&) = delete;
    AudioSubsystem& operator=(const AudioSubsystem&) = delete;
};

// What SDL's audio thread renders, and where the rendered block also goes.
struct RenderTarget {
    Mixer* mixer = nullptr;
    MixTap* tap = nullptr;
};

// Called on SDL's audio thread.
void audioCallback(void* userdata, Uint8* stream, int length) noexcept {
    const auto* target = static_cast<const RenderTarget*>(userdata);
    const auto frames = static_cast<std::size_t>(length) / (2 * sizeof(float));
    auto* samples = reinterpret_cast<float*>(stream);
    target->mixer->render(samples, frames);
    if (target->tap != nullptr) {
        target->tap->push(samples, frames);
    }
}

} // namespace

struct SdlOutput::Device {
    AudioSubsystem subsystem;
    RenderTarget target;
    SDL_AudioDeviceID id = 0;

    ~Device() {
        if (id != 0) {
            SDL_CloseAudioDevice(id); // waits for a callback in progress
        }
    }
};

SdlOutput::SdlOutput() = default;

SdlOutput::~SdlOutput() {
    stop();
}

Expected<void> SdlOutput::start(Mixer& mixer) {
    stop();
    auto device = std::make_unique<Device>();
    if (!device->subsystem.ok) {
        return Expected<void>(OutputError::deviceUnavailable, SDL_GetError());
    }
    SDL_AudioSpec want{};
    want.freq = kMixRate;
    want.format = AUDIO_F32SYS;
    want.channels = 2;
    want.samples = 1024;
    want.callback = audioCallback;
    device->target = RenderTarget{&mixer, mTap};
    want.userdata = &device->target;
    SDL_AudioSpec have{};
    device->id = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
    if (device->id == 0) {
        return Expected<void>(OutputError::deviceUnavailable, SDL_GetError());
    }
    SDL_PauseAudioDevice(device->id, 0);
    mDevice = std::move(device);
    return {};
}

void SdlOutput::stop() noexcept {
    mDevice.reset();
}

bool SdlOutput::lost() const noexcept {
    return mDevice && SDL_GetAudioDeviceStatus(mDevice->id) == SDL_AUDIO_STOPPED;
}

std::string SdlOutput::driver() const {
    const char* name = mDevice ? SDL_GetCurrentAudioDriver() : nullptr;
    return name != nullptr ? name : "";
}

} // namespace vantelo_sounds::engine
