#pragma once

#include <string>
#include <vantelo_sounds/Completions.hpp>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vector>

namespace vantelo_sounds {

/// The library's service: sounds, speech, instruction sequences and recording. Every operation
/// returns at once and throws nothing; failures are reported as console lines and, where there is
/// one, through the completion. Call it on the run loop's thread (RunLoop::main()); completions
/// run there too.
class SoundsManager {
public:
    virtual ~SoundsManager() = default;

    /// Plays the sound at once on a channel, or queues it when `settings.queuedPlay` is true;
    /// `completion` runs when the sound ends or is stopped.
    virtual void play(const PlaySoundSettings& settings, Completion completion) = 0;
    virtual void play(const PlaySoundSettings& settings) = 0;
    /// Appends instructions (a text, then its clip) and starts them when none is playing.
    virtual void play(const std::vector<SoundInstruction>& instruction) = 0;
    /// Stops every channel that plays the settings' file.
    virtual void stop(const PlaySoundSettings& settings) = 0;

    /// Queues a text to be spoken in the application's voice.
    virtual void speak(const std::string& text) = 0;
    /// As speak(text), and calls `completion` when it has been spoken or has failed.
    virtual void speak(const std::string& text, SpeechCompletion completion) = 0;
    /// Speaks a text at once in British English, outside the queue.
    virtual void speakInBritishEnglish(const std::string& text) = 0;
    /// Stops speech at once and empties the speech queue.
    virtual void shutup() = 0;

    /// Records from the microphone for at most `maxDuration` seconds.
    virtual void startRecording(double maxDuration, RecordingCompletion completion) = 0;
    virtual void stopRecording() = 0;
    /// Asks for microphone permission and reports the answer.
    virtual void requestPermissions(PermissionCompletion completion) = 0;
};

} // namespace vantelo_sounds
