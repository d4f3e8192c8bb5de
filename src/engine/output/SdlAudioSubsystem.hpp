#pragma once

#include <string>

namespace vantelo_sounds::engine {

/// SDL's audio subsystem, counted by SDL itself: each owner (an open playback or capture device)
/// inits once and quits once. SDL is told not to install signal handlers, so that SIGINT and
/// SIGTERM keep their usual meaning.
///
/// Once it runs on a sound server, one more count is kept for the life of the process. SDL 2.26's
/// PulseAudio driver crashes when it starts while the server has no sink at all (it copies the
/// server's absent default sink name), which is exactly when a device is being reopened after the
/// last one went away; kept running, it reconnects by itself when the server comes back, even
/// after the server was killed and restarted.
class SdlAudioSubsystem {
public:
    SdlAudioSubsystem() noexcept;
    ~SdlAudioSubsystem();
    SdlAudioSubsystem(const SdlAudioSubsystem&) = delete;
    SdlAudioSubsystem& operator=(const SdlAudioSubsystem&) = delete;

    /// False when SDL could not start its audio (SDL_GetError() says why).
    bool ok() const noexcept { return mOk; }
    /// The driver and the default playback or capture device, for messages: "driver: device",
    /// for instance "pulseaudio: Built-in Audio Analog Stereo" (the driver alone when the device
    /// has no name).
    static std::string defaultDeviceDescription(bool capture);

private:
    bool mOk = false;
};

} // namespace vantelo_sounds::engine
