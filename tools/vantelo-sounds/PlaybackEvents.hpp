#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

#include "EventLog.hpp"

namespace vantelo_sounds::cli {

/// Turns players starting and ending into soundStart / soundEnd events with the manager's channel
/// number. Installed as the process's playback observer for as long as it lives. Used on the run
/// loop's thread.
///
/// A player starts sounding inside the manager's call, before the manager has put it in its
/// channel table, so the channel is looked up a moment later, from a callback posted to the run
/// loop; the event keeps the time at which the sound started.
class PlaybackEvents final : public PlaybackObserver {
public:
    explicit PlaybackEvents(EventLog& log);
    ~PlaybackEvents() override;
    PlaybackEvents(const PlaybackEvents&) = delete;
    PlaybackEvents& operator=(const PlaybackEvents&) = delete;

    void playerStarted(const AudioPlayer& player, Duration at) override;
    void playerEnded(const AudioPlayer& player, EndReason reason, Duration at) override;

private:
    struct Playing {
        std::string file;
        Duration startedAt{};
        std::optional<std::int64_t> channel;
        bool startWritten = false;
    };

    /// Looks the channel up and writes the pending start, once.
    void resolveStart(const AudioPlayer& player, Playing& playing);

    EventLog& mLog;
    std::unordered_map<const AudioPlayer*, Playing> mPlaying;
    /// Lets posted callbacks know whether this object still exists.
    std::shared_ptr<bool> mAlive = std::make_shared<bool>(true);
};

} // namespace vantelo_sounds::cli
