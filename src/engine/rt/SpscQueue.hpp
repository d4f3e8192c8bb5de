#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <readerwriterqueue/readerwriterqueue.h>

namespace vantelo_sounds::engine {

/// A bounded single-producer single-consumer queue that crosses the real-time boundary. All its
/// memory is taken in the constructor; pushing and popping never allocate, lock or block, so
/// either side may be the audio thread. A push into a full queue is refused and counted.
template <typename T>
class SpscQueue {
public:
    explicit SpscQueue(std::size_t capacity)
        : mQueue(capacity) {}
    SpscQueue(const SpscQueue&) = delete;
    SpscQueue& operator=(const SpscQueue&) = delete;

    /// Producer side. False (and the drop counter goes up) when the queue is full.
    bool tryPush(const T& item) noexcept {
        if (mQueue.try_enqueue(item)) {
            return true;
        }
        mDropped.fetch_add(1, std::memory_order_relaxed);
        return false;
    }

    /// Consumer side. False when the queue is empty.
    bool tryPop(T& item) noexcept { return mQueue.try_dequeue(item); }

    /// Consumer side: the next item without removing it, or nullptr.
    T* peek() noexcept { return mQueue.peek(); }
    /// Consumer side: removes the item peek() returned.
    void popFront() noexcept { mQueue.pop(); }

    /// Approximate number of items queued (exact when neither side is running).
    std::size_t size() const noexcept { return mQueue.size_approx(); }
    /// Pushes refused because the queue was full, since construction.
    std::uint64_t dropped() const noexcept { return mDropped.load(std::memory_order_relaxed); }

private:
    moodycamel::ReaderWriterQueue<T> mQueue;
    std::atomic<std::uint64_t> mDropped{0};
};

} // namespace vantelo_sounds::engine
