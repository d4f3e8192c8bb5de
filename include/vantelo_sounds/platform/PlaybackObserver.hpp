#pragma once

#include <string>
#include <vantelo_sounds/platform/Clock.hpp>

namespace vantelo_sounds {

class AudioPlayer;
class AudioRecorder;
class SpeechUtterance;

/// Watches every player and every spoken utterance of the process start, pause and end, and the
/// output change (the command-line program's event log, tests). Called on the run loop's thread;
/// must not destroy the player it is told about.
class PlaybackObserver {
public:
    enum class EndReason {
        finished, ///< the sound ended by itself (its source failing part-way included)
        stopped,  ///< stop(), or the player went away while playing
        stolen,   ///< its voice was given to a newer sound when every voice was in use
    };

    virtual ~PlaybackObserver() = default;
    /// `player` started sounding at `at`, the loop time of its first frame.
    virtual void playerStarted(const AudioPlayer& player, Duration at) = 0;
    /// `player` was paused at `at` (an interruption began, or pause()); it keeps its position.
    virtual void playerPaused(const AudioPlayer& player, Duration at) { (void)player, (void)at; }
    /// `player`, paused, sounds again from where it was, from `at` on.
    virtual void playerResumed(const AudioPlayer& player, Duration at) { (void)player, (void)at; }
    /// `player` ended. `at` is the loop time just after its last sounding frame for a natural end,
    /// and the time of the stop() call for a stop (the few-millisecond fade follows it).
    virtual void playerEnded(const AudioPlayer& player, EndReason reason, Duration at) = 0;
    /// `utterance` began to sound at `at` (its voice's first frame).
    virtual void utteranceStarted(const SpeechUtterance& utterance, Duration at) {
        (void)utterance, (void)at;
    }
    /// `utterance`, which had begun to sound, ended: `finished` (spoken to its end, or as far as
    /// it could be synthesized) or `stopped`; the times are those of playerEnded.
    virtual void utteranceEnded(const SpeechUtterance& utterance, EndReason reason, Duration at) {
        (void)utterance, (void)reason, (void)at;
    }
    /// `recorder` began writing its file at `at`.
    virtual void recorderStarted(const AudioRecorder& recorder, Duration at) {
        (void)recorder, (void)at;
    }
    /// `recorder` ended its recording at `at`, when its end was delivered.
    virtual void recorderEnded(const AudioRecorder& recorder, Duration at) {
        (void)recorder, (void)at;
    }
    /// The sound goes to another output from `at` on: `name` is "sdl", "null", "wav" or "manual",
    /// `device` the device or file it plays to ("" for none). Not told for the output a process
    /// starts with (AudioOutput::name() says which).
    virtual void outputChanged(const std::string& name, const std::string& device, Duration at) {
        (void)name, (void)device, (void)at;
    }
};

/// Sets the process's observer (nullptr: none). Not owned. Set it on the run loop's thread.
void setPlaybackObserver(PlaybackObserver* observer) noexcept;
/// The observer set last, or nullptr.
PlaybackObserver* playbackObserver() noexcept;

} // namespace vantelo_sounds
