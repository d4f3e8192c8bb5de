// Interruptions: when the audio session reports that an interruption ended and playback should
// resume, every looping sound starts again.
#include <any>
#include <cstdint>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>

namespace vantelo_sounds {
namespace {

// The session's values are unsigned integers; anything else (a text, a signed number) is not one.
std::optional<std::uint64_t> unsignedValue(const std::map<std::string, std::any>& userInfo,
                                           const char* key) {
    const auto it = userInfo.find(key);
    if (it == userInfo.end()) {
        return std::nullopt;
    }
    if (const auto* value = std::any_cast<std::uint64_t>(&it->second)) {
        return *value;
    }
    if (const auto* value = std::any_cast<std::uint32_t>(&it->second)) {
        return *value;
    }
    return std::nullopt;
}

} // namespace

void VTOSoundsManager::handleInterruption(const Notification& notification) {
    if (!notification.userInfo) {
        return;
    }
    const auto type = unsignedValue(*notification.userInfo, kAudioSessionInterruptionTypeKey);
    // Nothing is done when an interruption begins: the platform pauses the players itself.
    if (!type || *type != kAudioSessionInterruptionTypeEnded) {
        return;
    }
    const auto options = unsignedValue(*notification.userInfo, kAudioSessionInterruptionOptionKey);
    if (options && (*options & kAudioSessionInterruptionOptionShouldResume) != 0) {
        resumeLoopedPlayback();
    }
}

void VTOSoundsManager::resumeLoopedPlayback() {
    // One reading of the table decides which players start, whatever starting them changes.
    std::vector<std::shared_ptr<AudioPlayer>> players;
    players.reserve(dictChannelAudioplayer.size());
    for (const auto& [channel, entry] : dictChannelAudioplayer) {
        players.push_back(entry.first);
    }
    for (const auto& player : players) {
        if (player->numberOfLoops() == -1) {
            player->play();
        }
    }
}

} // namespace vantelo_sounds
