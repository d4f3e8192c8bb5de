#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vantelo_sounds/platform/Notification.hpp>
#include <vector>

namespace vantelo_sounds {

namespace simulation {
struct Access;
}

/// Delivers notifications to the observers registered for their name. Thread-safe.
class NotificationCenter {
public:
    using ObserverId = std::uint64_t;
    using Observer = std::function<void(const Notification&)>;

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    static NotificationCenter& defaultCenter();

    /// Registers `observer` for notifications named `name` (empty: every notification). The id
    /// is never 0 and never reused.
    ObserverId addObserver(std::string name, Observer observer);
    /// Unregisters; unknown ids are ignored. Once it returns, the observer is not called again
    /// (unless it is running on another thread at that moment).
    void removeObserver(ObserverId id);

    /// Delivers `notification` synchronously, on the calling thread, to the observers registered
    /// when the call starts, in the order they were added. Observers may add or remove observers
    /// meanwhile; one removed before its turn is skipped.
    void post(const Notification& notification);

private:
    friend struct simulation::Access; // drops the default center's observers between tests
    struct Entry;

    void removeAllObservers();

    std::mutex mMutex;
    std::vector<std::shared_ptr<Entry>> mEntries;
    ObserverId mNextId = 1;
};

} // namespace vantelo_sounds
