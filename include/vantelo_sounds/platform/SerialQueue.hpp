#pragma once

#include <functional>
#include <mutex>
#include <string>

namespace vantelo_sounds {

/// A serial queue with synchronous dispatch: blocks run one at a time, each on the thread that
/// dispatches it. Safe to use from any thread.
class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const noexcept { return mLabel; }

    /// Runs `block` on the calling thread with the queue held, waiting while another thread is
    /// inside. A call from inside a block of this same queue runs `block` at once, inline, so a
    /// block may dispatch onto its own queue without deadlocking.
    void sync(const std::function<void()>& block);

    /// True when the calling thread is inside a block of this queue.
    bool isCurrent() const;

private:
    std::string mLabel;
    std::mutex mMutex;
};

} // namespace vantelo_sounds
