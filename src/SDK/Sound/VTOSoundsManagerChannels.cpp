// Channel playback: every sound gets its own player on a numbered channel (1 to 32), at most
// eight channels per sound file.
#include <algorithm>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {
namespace {

constexpr std::int64_t kFirstChannel = 1;
constexpr std::int64_t kLastChannel = 32;
// A request for a file that already plays on this many channels first cancels one of them.
constexpr std::size_t kMaxChannelsPerFile = 8;

} // namespace

void VTOSoundsManager::stop(const PlaySoundSettings& settings) {
    if (offLoopThread()) {
        RunLoop::main().post([this, settings] { stop(settings); });
        return;
    }
    stopPlayingSound(settings.filePathURL(), true);
}

void VTOSoundsManager::playSound(const std::optional<PlaySoundSettings>& with,
                                 Completion completion) {
    if (!with) {
        if (completion) {
            completion();
        }
        return;
    }
    const PlaySoundSettings& settings = *with;
    const FileURL& url = settings.filePathURL();

    const auto sameFile =
        std::count_if(dictChannelAudioplayer.begin(), dictChannelAudioplayer.end(),
                      [&](const auto& channel) { return channel.second.first->url() == url; });
    if (static_cast<std::size_t>(sameFile) >= kMaxChannelsPerFile) {
        Console::shared().print(
            "Sound is already playing on more than 8 channels. Cancelling one before starting "
            "new playback of url " +
            url.description());
        stopPlayingSound(url, false);
    }

    if (settings.queuedPlay) {
        // A queued request waits while a playing sound's file still has an item in the queue: the
        // sound that was started from the queue, or one of the same file.
        const auto blocking = std::count_if(
            dictChannelAudioplayer.begin(), dictChannelAudioplayer.end(), [&](const auto& channel) {
                const auto& player = channel.second.first;
                return player->isPlaying() &&
                       std::any_of(playQueue.begin(), playQueue.end(), [&](const auto& item) {
                           return item.settings.filePathURL() == player->url();
                       });
            });
        if (blocking != 0) {
            Console::shared().print("Sound is already playing, waiting... " + url.description());
            return;
        }
    }

    std::int64_t channel = kFirstChannel;
    while (channel <= kLastChannel && dictChannelAudioplayer.contains(channel)) {
        ++channel;
    }
    if (channel > kLastChannel) {
        // Every channel is taken: the table starts over, and this request is dropped. The dropped
        // players are let go without a stop; their completions never run.
        Console::shared().print("No more available audio players");
        dictChannelAudioplayer = {};
        return;
    }

    const auto pan = SoundsPanType::fromRawValue(settings.panTypeValue());
    const auto volume = SoundsVolumeType::fromRawValue(settings.volume);
    if (auto entry = playSoundChannel(url, pan, volume, settings.looped(), std::move(completion))) {
        dictChannelAudioplayer[channel] = std::move(*entry);
    }
    Console::shared().print("Sound is playing in channel " + std::to_string(channel));
}

std::optional<VTOSoundsManager::ChannelEntry>
VTOSoundsManager::playSoundChannel(const FileURL& with, SoundsPanType balanced,
                                   SoundsVolumeType volume, bool looped, Completion completion) {
    auto created = AudioPlayer::create(with);
    if (!created) {
        Console::shared().print("Failed 2 creating audio player for url " + with.description() +
                                ": " + errorDescription(created.error()));
        return std::nullopt;
    }
    std::shared_ptr<AudioPlayer> player = std::move(created).value();
    player->setDelegate(this);
    player->setPan(balanced.rawValue());
    player->setVolume(volume.rawValue());
    if (looped) {
        // A looping sound is recognised later (after an interruption) by this loop count of -1.
        player->setNumberOfLoops(-1);
    }
    player->play();
    return ChannelEntry{std::move(player), std::move(completion)};
}

void VTOSoundsManager::stopPlayingSound(const FileURL& with, bool channels) {
    // The walk goes over a copy: each stop's finished handling removes entries from the table.
    const auto snapshot = dictChannelAudioplayer;
    bool stoppedOne = false;
    for (const auto& [channel, entry] : snapshot) {
        if (stoppedOne && !channels) {
            break;
        }
        if (entry.first->url() == with) {
            entry.first->stop();
            audioPlayerDidFinishPlaying(entry.first, false);
            stoppedOne = true;
        }
    }
}

} // namespace vantelo_sounds
