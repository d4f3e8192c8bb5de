#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vantelo_sounds/Completions.hpp>
#include <vantelo_sounds/PlaySoundSettingsItem.hpp>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/SoundRecorder.hpp>
#include <vantelo_sounds/SoundsManager.hpp>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/Notification.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/SerialQueue.hpp>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>
#include <vantelo_sounds/platform/SpeechSynthesizer.hpp>
#include <vector>

namespace vantelo_sounds {

/// The library's one service object. Get it with shared(); it is created on first use and lives
/// until the process ends.
///
/// Threads: call it from the run loop's thread (RunLoop::main()); completions and platform
/// callbacks arrive there. A call from any other thread is posted to the run loop and runs on its
/// next pass (so it returns before the sound has started).
class VTOSoundsManager final : public SoundsManager,
                               public AudioPlayerDelegate,
                               public SpeechSynthesizerDelegate {
public:
    /// A channel's player and the completion to run when its sound ends.
    using ChannelEntry = std::pair<std::shared_ptr<AudioPlayer>, Completion>;

    /// The one manager, created on the first call (thread-safe, exactly once).
    static VTOSoundsManager& shared();

    ~VTOSoundsManager() override;
    VTOSoundsManager(const VTOSoundsManager&) = delete;
    VTOSoundsManager& operator=(const VTOSoundsManager&) = delete;

    // ---- SoundsManager ------------------------------------------------------------------
    void play(const PlaySoundSettings& settings, Completion completion) override;
    void play(const PlaySoundSettings& settings) override;
    void play(const std::vector<SoundInstruction>& instruction) override;
    void stop(const PlaySoundSettings& settings) override;
    void speak(const std::string& text) override;
    void speak(const std::string& text, SpeechCompletion completion) override;
    void speakInBritishEnglish(const std::string& text) override;
    void shutup() override;
    void startRecording(double maxDuration, RecordingCompletion completion) override;
    void stopRecording() override;
    void requestPermissions(PermissionCompletion completion) override;

    // ---- platform callbacks ---------------------------------------------------------------
    /// A player's sound ended (or was stopped by the manager itself): clears finished channels,
    /// moves the play queue on, then runs the sound's completion.
    void audioPlayerDidFinishPlaying(const std::shared_ptr<AudioPlayer>& player,
                                     bool successfully) override;
    void speechSynthesizerDidFinish(SpeechSynthesizer& synthesizer,
                                    const std::shared_ptr<SpeechUtterance>& utterance) override;
    void speechSynthesizerDidCancel(SpeechSynthesizer& synthesizer,
                                    const std::shared_ptr<SpeechUtterance>& utterance) override;
    /// The audio session's interruption notification.
    void handleInterruption(const Notification& notification);

    // ---- tooling --------------------------------------------------------------------------
    /// The channel on which `player` plays, if it has one (the command-line program's events).
    std::optional<std::int64_t> channelOf(const AudioPlayer& player) const;

private:
    friend struct VTOSoundsManagerTestAccess;

    VTOSoundsManager();

    void setupNotifications();
    void resumeLoopedPlayback();
    /// Starts a request on the lowest free channel (1 to 32), at most 8 channels per file.
    void playSound(const std::optional<PlaySoundSettings>& with, Completion completion);
    std::optional<ChannelEntry> playSoundChannel(const FileURL& with, SoundsPanType balanced,
                                                 SoundsVolumeType volume, bool looped,
                                                 Completion completion);
    /// Stops every channel playing `with` (or only the first found when `channels` is false) and
    /// runs the finished-playing handling for each at once.
    void stopPlayingSound(const FileURL& with, bool channels);
    /// Appends `text` (when given) to the speech list, then starts the list's head unless a text
    /// from the list is being spoken.
    void speakingQueue(const std::optional<std::string>& text, SpeechCompletion completion);
    /// Starts one instruction, in the list or not: its text, then its clip, then the list's next.
    /// Not an overload of play(): `play({instruction})` must reach the public list operation.
    void playInstruction(const SoundInstruction& instruction);
    /// Hands `text` to the synthesizer in `in`; the end of that utterance runs `step` once.
    void speakUtterance(const std::string& text,
                        const std::shared_ptr<const SpeechSynthesisVoice>& in,
                        SpeechCompletion step);
    /// Runs the step bound to `utterance` when it was started, if any, and lets go of it.
    void runStepOf(const std::shared_ptr<SpeechUtterance>& utterance);
    /// Tries to start the play queue's last item; runs after every change of the queue, inside
    /// accessQueue.
    void queueStep();
    /// True when called from a thread other than the run loop's: the operation then posts itself
    /// to the loop (checked first, so that calls on the loop's thread copy nothing).
    static bool offLoopThread();

    // Fields, in declaration order. Only playQueue is guarded (by accessQueue); everything else
    // belongs to the run loop's thread.
    std::map<std::int64_t, ChannelEntry> dictChannelAudioplayer;
    bool isSpeaking = false;
    std::vector<std::string> thingsNeedToBeSaid;
    const std::shared_ptr<const SpeechSynthesisVoice> voice;
    const std::shared_ptr<const SpeechSynthesisVoice> britishVoice;
    const std::unique_ptr<SpeechSynthesizer> syntesizer;
    /// The step each utterance runs when it ends, bound to the utterance it was started for.
    std::vector<std::pair<std::shared_ptr<const SpeechUtterance>, SpeechCompletion>>
        speakCompletion;
    std::string textCurrentlySpoken;
    std::unique_ptr<SoundRecorder> soundRecorder;
    std::vector<SoundInstruction> instructionQueue;
    SerialQueue accessQueue;
    std::vector<PlaySoundSettingsItem> playQueue;

    NotificationCenter::ObserverId mInterruptionObserver{};
};

} // namespace vantelo_sounds
