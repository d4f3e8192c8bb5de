#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vantelo_sounds/Expected.hpp>
#include <vantelo_sounds/platform/AudioOutputError.hpp>
#include <vantelo_sounds/platform/Clock.hpp>

namespace vantelo_sounds {

/// Where the process's sound goes, for games, tools and tests that choose it themselves: the
/// sound device, nowhere, a WAV file, or an offline render driven by the manual clock (like
/// OpenAL Soft's loopback device or SoLoud's null driver with its mix call). It also records the
/// mix that plays into a WAV file, and says which output is in use and why a chosen one could not
/// start.
///
/// The mix is 48 kHz stereo 32-bit float, and so is every WAV file written here. Without a choice,
/// the output is the one VANTELO_SOUNDS_OUTPUT names ("sdl", "null", "wav:PATH", "manual"), else
/// the sound device when one opens, else the null output.
///
/// Threads: call it on the run loop's thread (RunLoop::main()).
class AudioOutput {
public:
    enum class Kind {
        automatic, ///< the sound device when one opens, else the null output
        device,    ///< the sound device (the null output stands in while it cannot open)
        null,      ///< real time, the sound goes nowhere (sounds still end and complete)
        wavFile,   ///< real time, into a WAV file
        offline,   ///< no thread: each advance of the manual clock renders that much of the mix,
                   ///< into a WAV file when a path is given
    };

    /// What a recording of the played mix holds, in frames of the mix.
    struct Recording {
        std::uint64_t frames = 0;        ///< in the file, padding included
        std::uint64_t droppedFrames = 0; ///< played while the writer was behind: not in the file
    };

    static constexpr int kSampleRate = 48000;

    AudioOutput() = delete;

    /// Plays everything from now on through `kind` (players made before keep the output they
    /// had). `wavPath` is the file of `wavFile` (required) and `offline` (optional). `offline`
    /// needs RunLoop::main() on the manual clock (RunLoop::resetMainManual()), the others a
    /// real-time one; on a mismatch nothing changes. When the chosen output cannot start (no
    /// device, a file that cannot be created), the null output plays instead and the failure
    /// says why.
    static Expected<void> select(Kind kind, const std::string& wavPath = {});
    /// Plays through the output VANTELO_SOUNDS_OUTPUT names (automatic when unset). An offline
    /// main run loop always renders offline.
    static Expected<void> selectFromEnvironment();

    /// The output rendering now: "sdl", "null", "wav" or "manual" (offline).
    static std::string name();
    /// What it plays to: the sound device ("pulseaudio: Built-in Audio"), the file's path, or ""
    /// for none.
    static std::string device();
    /// Whether the output chosen last started: a failure says why it could not.
    static Expected<void> status();

    /// Real time: records the mix that plays, from the next block on, into a new WAV file at
    /// `path`, keeping at most `maxDuration` of it. The file's header is kept true as it grows,
    /// so a process killed while recording leaves a readable file.
    static Expected<void> startRecordingMix(const std::string& path,
                                            std::optional<Duration> maxDuration = std::nullopt);
    /// Completes the recording, padded with silence up to `padTo` (never beyond the maximum).
    static Expected<Recording> stopRecordingMix(Duration padTo = Duration::zero());
    static bool isRecordingMix();

    /// Offline: completes the render's WAV file (the mix from time 0 up to the clock's time);
    /// later advances of the clock still render but write no more. Fails with the errno of a
    /// write that failed, or notOffline.
    static Expected<void> finishRender();
};

} // namespace vantelo_sounds
