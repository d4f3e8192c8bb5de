#include <atomic>
#include <vantelo_sounds/platform/NotificationCenter.hpp>

namespace vantelo_sounds {

struct NotificationCenter::Entry {
    ObserverId id;
    std::string name;
    Observer observer;
    std::atomic<bool> active{true};
};

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

void NotificationCenter::removeAllObservers() {
    std::lock_guard lock(mMutex);
    for (const auto& entry : mEntries) {
        entry->active = false;
    }
    mEntries.clear();
}

NotificationCenter::ObserverId NotificationCenter::addObserver(std::string name,
                                                               Observer observer) {
    auto entry = std::make_shared<Entry>();
    entry->name = std::move(name);
    entry->observer = std::move(observer);
    std::lock_guard lock(mMutex);
    entry->id = mNextId++;
    mEntries.push_back(entry);
    return entry->id;
}

void NotificationCenter::removeObserver(ObserverId id) {
    std::lock_guard lock(mMutex);
    for (auto it = mEntries.begin(); it != mEntries.end(); ++it) {
        if ((*it)->id == id) {
            (*it)->active = false;
            mEntries.erase(it);
            return;
        }
    }
}

void NotificationCenter::post(const Notification& notification) {
    // Observers run outside the lock on a copy of the list, so they may add or remove observers.
    std::vector<std::shared_ptr<Entry>> recipients;
    {
        std::lock_guard lock(mMutex);
        for (const auto& entry : mEntries) {
            if (entry->name.empty() || entry->name == notification.name) {
                recipients.push_back(entry);
            }
        }
    }
    for (const auto& entry : recipients) {
        if (entry->active && entry->observer) {
            entry->observer(notification);
        }
    }
}

} // namespace vantelo_sounds
