#include <algorithm>
#include <vantelo_sounds/platform/SerialQueue.hpp>
#include <vector>

namespace vantelo_sounds {

namespace {

// The queues whose blocks the calling thread is inside, innermost last.
thread_local std::vector<const SerialQueue*> tEnteredQueues;

class EnteredQueue {
public:
    explicit EnteredQueue(const SerialQueue* queue) { tEnteredQueues.push_back(queue); }
    ~EnteredQueue() { tEnteredQueues.pop_back(); }
    EnteredQueue(const EnteredQueue&) = delete;
    EnteredQueue& operator=(const EnteredQueue&) = delete;
};

} // namespace

SerialQueue::SerialQueue(std::string label)
    : mLabel(std::move(label)) {}

void SerialQueue::sync(const std::function<void()>& block) {
    if (!block) {
        return;
    }
    if (isCurrent()) {
        block();
        return;
    }
    std::lock_guard lock(mMutex);
    EnteredQueue entered(this);
    block();
}

bool SerialQueue::isCurrent() const {
    return std::find(tEnteredQueues.begin(), tEnteredQueues.end(), this) != tEnteredQueues.end();
}

} // namespace vantelo_sounds
