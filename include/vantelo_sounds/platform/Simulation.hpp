#pragma once

// The platform's test and simulation controls: what a test or a tool (the scenario runner) uses to
// make the platform refuse, count and pretend, so that the library's reactions to a busy audio
// device, a missing voice or a denied microphone can be shown without the device, the voice or the
// user. A game has no use for them. Every function is safe to call from any thread, and each
// setting stays until it is changed again or reset.
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Notification.hpp>
#include <vector>

namespace vantelo_sounds::simulation {

/// The audio-session calls that can be refused and counted.
enum class AudioSessionOperation { setCategory, setActive };

// ---- the shared audio session ----------------------------------------------------------------

/// Puts the shared session back as a new process finds it: soloAmbient, default mode, no options,
/// inactive, no refusals, call counts at 0, and the microphone permission undetermined and kept in
/// memory only (nothing is stored until AudioSession::reloadRecordPermission()), with the default
/// prompt.
void resetAudioSession();
/// Makes every later call of `operation` fail with `error` and change nothing. No value: accept
/// again.
void refuseAudioSession(AudioSessionOperation operation, std::optional<std::error_code> error);
/// How many calls of `operation` the session has taken since the last reset, refused ones
/// included.
int audioSessionCallCount(AudioSessionOperation operation);
/// Sets the microphone permission without asking anyone and without storing it.
void setRecordPermission(RecordPermission permission);
/// Posts `notification` the way the session posts its interruptions (through the main run loop
/// to the default center), for values the session itself never sends: a missing key, a text where
/// a number belongs.
void postAudioSessionNotification(Notification notification);

// ---- the microphone --------------------------------------------------------------------------

/// What the microphone hears in place of the capture device.
struct Microphone {
    enum class Kind {
        silence, ///< digital silence (a recording of it is reported as only silence)
        tone,    ///< a sine of `frequency` Hz with peak `amplitude`
        file,    ///< the sound file at `path` (absolute), once, then silence
        device,  ///< the capture device itself (real time only; a manual clock hears silence)
    };
    Kind kind = Kind::silence;
    double frequency = 0.0;
    double amplitude = 0.0;
    std::string path;

    friend bool operator==(const Microphone&, const Microphone&) = default;
};
/// Makes recordings started from now on hear `microphone`. No value: the default, the capture
/// device in real time and silence on a manual clock.
void setMicrophone(std::optional<Microphone> microphone);

// ---- everything else -------------------------------------------------------------------------

/// Pretends that only these language codes (compared without regard to case) have speech voices;
/// an empty list means none, and a listed code that espeak-ng lacks still gets a voice, by name
/// only. No value: the installed voices again.
void setAvailableLanguages(std::optional<std::vector<std::string>> codes);
/// Drops every observer of the default notification center; none of them is called again.
void resetDefaultNotificationCenter();
/// Makes every wall-clock reading (Date) return `secondsSince1970`. No value: the real clock.
void setNow(std::optional<double> secondsSince1970);

} // namespace vantelo_sounds::simulation
