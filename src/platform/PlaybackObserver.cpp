#include <atomic>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

namespace vantelo_sounds {

namespace {

std::atomic<PlaybackObserver*> gObserver{nullptr};

} // namespace

void setPlaybackObserver(PlaybackObserver* observer) noexcept {
    gObserver.store(observer, std::memory_order_release);
}

PlaybackObserver* playbackObserver() noexcept {
    return gObserver.load(std::memory_order_acquire);
}

} // namespace vantelo_sounds
