#pragma once

namespace vantelo_sounds::engine {

/// While it lives, ALSA's library reports its errors to nobody instead of standard error (SDL
/// tries ALSA when no sound server answers, and ALSA then prints a dozen lines for each missing
/// card, on every reopening). The handler that was set before, the game's own or ALSA's default,
/// is put back afterwards. Does nothing when ALSA's library is not loaded in the process.
class AlsaErrorsSilenced {
public:
    AlsaErrorsSilenced() noexcept;
    ~AlsaErrorsSilenced();
    AlsaErrorsSilenced(const AlsaErrorsSilenced&) = delete;
    AlsaErrorsSilenced& operator=(const AlsaErrorsSilenced&) = delete;

private:
    void* mPrevious = nullptr;
    bool mActive = false;
};

} // namespace vantelo_sounds::engine
