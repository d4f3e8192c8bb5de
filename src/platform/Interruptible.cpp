#include "platform/Interruptible.hpp"

#include <algorithm>
#include <mutex>
#include <vector>

namespace vantelo_sounds {

namespace {

// A lock, though everything happens on the run loop's thread: a player made on another thread
// by mistake must not corrupt the list.
std::mutex gMutex;
std::vector<Interruptible*> gRegistered;

} // namespace

Interruptible::Interruptible() {
    std::lock_guard lock(gMutex);
    gRegistered.push_back(this);
}

Interruptible::~Interruptible() {
    std::lock_guard lock(gMutex);
    std::erase(gRegistered, this);
}

void Interruptible::interruptAll() {
    std::vector<Interruptible*> told;
    {
        std::lock_guard lock(gMutex);
        told = gRegistered;
    }
    for (Interruptible* each : told) {
        // One told earlier may have let go of another (a player dropped by a callback).
        {
            std::lock_guard lock(gMutex);
            if (std::find(gRegistered.begin(), gRegistered.end(), each) == gRegistered.end()) {
                continue;
            }
        }
        each->interruptionBegan();
    }
}

} // namespace vantelo_sounds
