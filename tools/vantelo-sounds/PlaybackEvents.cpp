#include "PlaybackEvents.hpp"

#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/AudioRecorder.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/SpeechUtterance.hpp>

namespace vantelo_sounds::cli {

namespace {

// The manager prints this line just before it lets go of every player it holds.
constexpr std::string_view kTableDroppedLine = "No more available audio players";

} // namespace

PlaybackEvents::PlaybackEvents(EventLog& log)
    : mLog(log) {
    setPlaybackObserver(this);
    mInterruptionObserver = NotificationCenter::defaultCenter().addObserver(
        kAudioSessionInterruptionNotification, [this](const Notification& notification) {
            writePendingStarts();
            const auto value = [&](const char* key) -> std::optional<std::uint64_t> {
                if (!notification.userInfo) {
                    return std::nullopt;
                }
                const auto it = notification.userInfo->find(key);
                const auto* number = it == notification.userInfo->end()
                                         ? nullptr
                                         : std::any_cast<std::uint64_t>(&it->second);
                return number ? std::optional(*number) : std::nullopt;
            };
            mLog.interruption(RunLoop::main().now(), value(kAudioSessionInterruptionTypeKey),
                              value(kAudioSessionInterruptionOptionKey));
        });
}

PlaybackEvents::~PlaybackEvents() {
    NotificationCenter::defaultCenter().removeObserver(mInterruptionObserver);
    writePendingStarts();
    if (playbackObserver() == this) {
        setPlaybackObserver(nullptr);
    }
}

void PlaybackEvents::playerStarted(const AudioPlayer& player, Duration at) {
    writePendingStarts();
    mTableDropped = false;
    mPending.push_back(PendingStart{&player, player.url().path(), at});
}

void PlaybackEvents::playerEnded(const AudioPlayer& player, EndReason reason, Duration at) {
    writePendingStarts();
    mLog.soundEnd(at, channelOf(player), player.url().path(),
                  reason == EndReason::finished ? "finished" : "stopped");
}

void PlaybackEvents::playerPaused(const AudioPlayer& player, Duration at) {
    writePendingStarts();
    mLog.soundPause(at, channelOf(player), player.url().path(), false);
}

void PlaybackEvents::playerResumed(const AudioPlayer& player, Duration at) {
    writePendingStarts();
    mLog.soundPause(at, channelOf(player), player.url().path(), true);
}

void PlaybackEvents::outputChanged(const std::string& name, const std::string& device,
                                   Duration at) {
    writePendingStarts();
    mLog.output(at, name, device);
}

void PlaybackEvents::recorderStarted(const AudioRecorder& recorder, Duration at) {
    writePendingStarts();
    mLog.recording(at, true, recorder.url().description());
}

void PlaybackEvents::recorderEnded(const AudioRecorder& recorder, Duration at) {
    writePendingStarts();
    mLog.recording(at, false, recorder.url().description());
}

void PlaybackEvents::utteranceStarted(const SpeechUtterance& utterance, Duration at) {
    writePendingStarts();
    std::optional<std::string> language;
    if (utterance.voice()) {
        language = utterance.voice()->language();
    }
    mLog.speechStart(at, utterance.speechString(), language);
}

void PlaybackEvents::utteranceEnded(const SpeechUtterance& utterance, EndReason reason,
                                    Duration at) {
    writePendingStarts();
    // A stolen voice is cut off like a stopped one.
    mLog.speechEnd(at, utterance.speechString(),
                   reason == EndReason::finished ? "finished" : "cancelled");
}

void PlaybackEvents::consoleLine(std::string_view line) {
    writePendingStarts();
    if (line == kTableDroppedLine) {
        mTableDropped = true;
    }
}

void PlaybackEvents::writePendingStarts() {
    for (const PendingStart& start : mPending) {
        mLog.soundStart(start.at, channelOf(*start.player), start.file);
    }
    mPending.clear();
}

std::optional<std::int64_t> PlaybackEvents::channelOf(const AudioPlayer& player) const {
    if (mTableDropped) {
        return std::nullopt;
    }
    return VTOSoundsManager::shared().channelOf(player);
}

} // namespace vantelo_sounds::cli
