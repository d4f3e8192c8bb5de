// Queued playback and completion: requests that wait in the play queue, and the handling of
// finished players that moves the queue on and runs completions.
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {
namespace {

// A completion can be copied into more than one place (a queue item keeps its copy while the
// sound it started plays); every copy shares one flag, so the caller's code runs at most once.
Completion runningAtMostOnce(Completion completion) {
    if (!completion) {
        return completion;
    }
    auto done = std::make_shared<bool>(false);
    return [completion = std::move(completion), done] {
        if (!*done) {
            *done = true;
            completion();
        }
    };
}

} // namespace

void VTOSoundsManager::play(const PlaySoundSettings& settings) {
    play(settings, Completion{});
}

void VTOSoundsManager::play(const PlaySoundSettings& settings, Completion completion) {
    if (offLoopThread()) {
        RunLoop::main().post([this, settings, completion] { play(settings, completion); });
        return;
    }
    completion = runningAtMostOnce(std::move(completion));
    if (!settings.queuedPlay) {
        playSound(settings, std::move(completion));
        return;
    }
    accessQueue.sync([&] {
        playQueue.push_back(PlaySoundSettingsItem{settings, std::move(completion)});
        queueStep();
    });
}

void VTOSoundsManager::queueStep() {
    if (playQueue.empty()) {
        return;
    }
    // The last item is tried, not the first: waiting items start in the reverse order of their
    // arrival. The item stays in the queue while it plays. It is copied because starting it can
    // change the queue (the per-file limit runs a finished handling inside this step).
    const PlaySoundSettingsItem item = playQueue.back();
    playSound(item.settings, item.completion);
}

void VTOSoundsManager::audioPlayerDidFinishPlaying(const std::shared_ptr<AudioPlayer>& player,
                                                   bool /*successfully*/) {
    Completion completion;
    for (const auto& [channel, entry] : dictChannelAudioplayer) {
        if (entry.first == player) {
            completion = entry.second;
            break;
        }
    }

    // Every channel whose player has stopped goes, not only this one; only this sound's
    // completion runs.
    std::vector<std::int64_t> channels;
    channels.reserve(dictChannelAudioplayer.size());
    for (const auto& [channel, entry] : dictChannelAudioplayer) {
        channels.push_back(channel);
    }
    for (const std::int64_t channel : channels) {
        const auto it = dictChannelAudioplayer.find(channel);
        if (it != dictChannelAudioplayer.end() && !it->second.first->isPlaying()) {
            dictChannelAudioplayer.erase(it);
        }
    }

    // Inline when this handling runs inside the queue step already (the per-file limit fired
    // while a queued sound was being started): the serial queue lets its own thread back in.
    accessQueue.sync([&] {
        for (std::size_t i = 0; i < playQueue.size(); ++i) {
            const PlaySoundSettings& settings = playQueue[i].settings;
            if (settings.queuedPlay && settings.filePathURL() == player->url()) {
                playQueue.erase(playQueue.begin() + static_cast<std::ptrdiff_t>(i));
                queueStep();
                break;
            }
        }
    });

    if (completion) {
        completion();
    }
}

} // namespace vantelo_sounds
