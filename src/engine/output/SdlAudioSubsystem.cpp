#include "engine/output/SdlAudioSubsystem.hpp"

#include <cstring>

#include <SDL2/SDL.h>

namespace vantelo_sounds::engine {

SdlAudioSubsystem::SdlAudioSubsystem() noexcept {
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    mOk = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    const char* driver = mOk ? SDL_GetCurrentAudioDriver() : nullptr;
    if (driver != nullptr &&
        (std::strcmp(driver, "pulseaudio") == 0 || std::strcmp(driver, "pipewire") == 0)) {
        static const bool kept = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
        (void)kept;
    }
}

std::string SdlAudioSubsystem::defaultDeviceDescription(bool capture) {
    const char* driver = SDL_GetCurrentAudioDriver();
    std::string description = driver != nullptr ? driver : "";
    char* name = nullptr;
    SDL_AudioSpec spec{};
    if (SDL_GetDefaultAudioInfo(&name, &spec, capture ? 1 : 0) == 0 && name != nullptr) {
        description += std::string(": ") + name;
        SDL_free(name);
    }
    return description;
}

SdlAudioSubsystem::~SdlAudioSubsystem() {
    if (mOk) {
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
    }
}

} // namespace vantelo_sounds::engine
