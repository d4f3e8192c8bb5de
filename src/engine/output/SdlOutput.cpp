#include "engine/output/SdlOutput.hpp"

#include <atomic>
#include <cstring>
#include <thread>

#include <SDL2/SDL.h>

#include "engine/mix/Mixer.hpp"
#include "engine/output/AlsaErrorsSilenced.hpp"
#include "engine/output/MixTap.hpp"
#include "engine/output/OutputError.hpp"
#include "engine/output/SdlAudioSubsystem.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

namespace {

// What SDL's audio thread renders, and where the rendered block also goes. The callback and
// detach() meet through one atomic: the callback renders only when it moves `state` from idle to
// rendering, and detach() waits for it to be idle before marking it detached, after which the
// callback writes silence.
struct RenderTarget {
    enum : int { idle, rendering, detached };
    Mixer* mixer = nullptr;
    MixTap* tap = nullptr;
    std::atomic<int> state{idle};
    std::atomic<std::uint64_t> consumed{0};
};

// Called on SDL's audio thread.
void audioCallback(void* userdata, Uint8* stream, int length) noexcept {
    auto* target = static_cast<RenderTarget*>(userdata);
    const auto frames = static_cast<std::size_t>(length) / (2 * sizeof(float));
    int expected = RenderTarget::idle;
    if (!target->state.compare_exchange_strong(expected, RenderTarget::rendering,
                                               std::memory_order_acquire)) {
        std::memset(stream, 0, static_cast<std::size_t>(length));
        return;
    }
    auto* samples = reinterpret_cast<float*>(stream);
    target->mixer->render(samples, frames);
    if (target->tap != nullptr) {
        target->tap->push(samples, frames);
    }
    target->consumed.fetch_add(frames, std::memory_order_relaxed);
    target->state.store(RenderTarget::idle, std::memory_order_release);
}

} // namespace

struct SdlOutput::Device {
    SdlAudioSubsystem subsystem;
    RenderTarget target;
    SDL_AudioDeviceID id = 0;
    std::string description;

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

Expected<void> SdlOutput::open(Mixer& mixer) {
    stop();
    // ALSA, SDL's last resort, writes a dozen lines to standard error for each device it cannot
    // find; the failure is reported once, in the library's own words.
    const AlsaErrorsSilenced quiet;
    auto device = std::make_unique<Device>();
    if (!device->subsystem.ok()) {
        return Expected<void>(OutputError::deviceUnavailable, SDL_GetError());
    }
    SDL_AudioSpec want{};
    want.freq = kMixRate;
    want.format = AUDIO_F32SYS;
    want.channels = 2;
    want.samples = 1024;
    want.callback = audioCallback;
    device->target.mixer = &mixer;
    device->target.tap = mTap;
    want.userdata = &device->target;
    SDL_AudioSpec have{};
    // The block size may be the device's own; rate, format and channels are converted by SDL.
    device->id = SDL_OpenAudioDevice(nullptr, 0, &want, &have, SDL_AUDIO_ALLOW_SAMPLES_CHANGE);
    if (device->id == 0) {
        return Expected<void>(OutputError::deviceUnavailable, SDL_GetError());
    }
    device->description = SdlAudioSubsystem::defaultDeviceDescription(false);
    mDevice = std::move(device);
    return {};
}

void SdlOutput::resume() noexcept {
    if (mDevice) {
        SDL_PauseAudioDevice(mDevice->id, 0);
    }
}

void SdlOutput::detach() noexcept {
    if (!mDevice) {
        return;
    }
    std::atomic<int>& state = mDevice->target.state;
    for (;;) {
        int expected = RenderTarget::idle;
        if (state.compare_exchange_weak(expected, RenderTarget::detached,
                                        std::memory_order_acq_rel) ||
            expected == RenderTarget::detached) {
            return;
        }
        std::this_thread::yield(); // a render is in progress: it takes well under a millisecond
    }
}

void SdlOutput::stop() noexcept {
    detach();
    mDevice.reset();
}

bool SdlOutput::lost() const noexcept {
    return mDevice && SDL_GetAudioDeviceStatus(mDevice->id) == SDL_AUDIO_STOPPED;
}

std::uint64_t SdlOutput::framesConsumed() const noexcept {
    return mDevice ? mDevice->target.consumed.load(std::memory_order_relaxed) : 0;
}

std::string SdlOutput::deviceName() const {
    if (!mDevice) {
        return {};
    }
    return mDevice->description;
}

} // namespace vantelo_sounds::engine
