#include "PlaybackEvents.hpp"

#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds::cli {

PlaybackEvents::PlaybackEvents(EventLog& log)
    : mLog(log) {
    setPlaybackObserver(this);
}

PlaybackEvents::~PlaybackEvents() {
    *mAlive = false;
    if (playbackObserver() == this) {
        setPlaybackObserver(nullptr);
    }
}

void PlaybackEvents::playerStarted(const AudioPlayer& player, Duration at) {
    auto [it, added] = mPlaying.try_emplace(&player);
    Playing& playing = it->second;
    if (!added && playing.startWritten) {
        // Sounding again (resumed after an interruption): the channel is already known.
        mLog.soundStart(at, playing.channel, playing.file);
        return;
    }
    playing.file = player.url().path();
    playing.startedAt = at;
    const AudioPlayer* key = &player;
    std::weak_ptr<bool> alive = mAlive;
    RunLoop::main().post([this, key, alive] {
        if (alive.expired()) {
            return;
        }
        // Still in the map means the player has not ended, so it still exists.
        if (const auto found = mPlaying.find(key); found != mPlaying.end()) {
            resolveStart(*key, found->second);
        }
    });
}

void PlaybackEvents::playerEnded(const AudioPlayer& player, EndReason reason, Duration at) {
    const auto found = mPlaying.find(&player);
    std::optional<std::int64_t> channel;
    std::string file = player.url().path();
    if (found != mPlaying.end()) {
        resolveStart(player, found->second);
        channel = found->second.channel;
        mPlaying.erase(found);
    } else {
        channel = VTOSoundsManager::shared().channelOf(player);
    }
    mLog.soundEnd(at, channel, file, reason == EndReason::finished ? "finished" : "stopped");
}

void PlaybackEvents::resolveStart(const AudioPlayer& player, Playing& playing) {
    if (playing.startWritten) {
        return;
    }
    playing.channel = VTOSoundsManager::shared().channelOf(player);
    playing.startWritten = true;
    mLog.soundStart(playing.startedAt, playing.channel, playing.file);
}

} // namespace vantelo_sounds::cli
