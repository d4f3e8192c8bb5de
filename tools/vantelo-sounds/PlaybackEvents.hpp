#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>
#include <vector>

#include "EventLog.hpp"

namespace vantelo_sounds::cli {

/// Turns players starting and ending into soundStart / soundEnd events that carry the manager's
/// channel number as it is at that moment, and utterances into speechStart / speechEnd events.
/// Installed as the process's playback observer for as long as it lives. Used on the run loop's
/// thread.
///
/// A new player starts sounding inside the manager's call, before the manager has put it in its
/// channel table, and the manager prints "Sound is playing in channel N" right after storing it.
/// So a start waits for the next thing that happens (that console line, as a rule) and is written
/// just before it, with the channel the table gives then. An end is written at once, with the
/// channel the table gives at that moment: a player the manager no longer holds (dropped when all
/// channels were taken) has none.
///
/// Pauses and resumes become soundPause / soundResume events, output changes output events, and
/// every interruption notification an interruption event, written before the manager handles it
/// (the log observes the notification first).
///
/// Utterances become speechStart / speechEnd events at once: the synthesizer reports an end
/// before it tells the manager, so the end comes before the manager's "speechSynthesizer
/// didFinish" and the completion that follows it.
class PlaybackEvents final : public PlaybackObserver {
public:
    explicit PlaybackEvents(EventLog& log);
    /// Writes a start still waiting and stops observing.
    ~PlaybackEvents() override;
    PlaybackEvents(const PlaybackEvents&) = delete;
    PlaybackEvents& operator=(const PlaybackEvents&) = delete;

    void playerStarted(const AudioPlayer& player, Duration at) override;
    void playerEnded(const AudioPlayer& player, EndReason reason, Duration at) override;
    void playerPaused(const AudioPlayer& player, Duration at) override;
    void playerResumed(const AudioPlayer& player, Duration at) override;
    void outputChanged(const std::string& name, const std::string& device, Duration at) override;
    void recorderStarted(const AudioRecorder& recorder, Duration at) override;
    void recorderEnded(const AudioRecorder& recorder, Duration at) override;
    void utteranceStarted(const SpeechUtterance& utterance, Duration at) override;
    void utteranceEnded(const SpeechUtterance& utterance, EndReason reason, Duration at) override;
    /// Called just before one of the library's console lines is logged.
    void consoleLine(std::string_view line);

private:
    struct PendingStart {
        const AudioPlayer* player;
        std::string file;
        Duration at;
    };

    void writePendingStarts();
    std::optional<std::int64_t> channelOf(const AudioPlayer& player) const;

    EventLog& mLog;
    std::uint64_t mInterruptionObserver = 0;
    std::vector<PendingStart> mPending;
    /// Between the manager's "No more available audio players" and the next start, its table is
    /// being emptied (or is empty): the players that go away then have no channel, and the table
    /// is not asked while it is being torn down.
    bool mTableDropped = false;
};

} // namespace vantelo_sounds::cli
