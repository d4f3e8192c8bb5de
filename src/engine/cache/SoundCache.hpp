#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vantelo_sounds/Expected.hpp>
#include <vector>

namespace vantelo_sounds::engine {

class Decoder;
class SoundData;

/// Decoded sounds by (path, size, modification time) under a byte budget.
///
/// A hit is a table look-up. A miss opens the file (stat, probe, header) on the caller's thread
/// and returns at once with a SoundData that the cache's one worker thread keeps filling ahead
/// (half a second at a time, the sound with the least decoded first). A sound is never evicted
/// while anyone else holds it (a voice, a player); otherwise the least recently used go first when
/// the bytes exceed the budget. A sound that alone would exceed the budget is refused (tooLarge)
/// when its header says so, and is cut off at the budget (a failed sound) when the header
/// under-states.
///
/// A hit checks the file's size and modification time with one stat, unless the same path was
/// checked less than `recheckAfter` ago: a burst of plays of one sound then costs no system call
/// at all, and a file rewritten on disk is still noticed on the first play after that pause.
///
/// load(), waitIdle(), bytes() and entries() are safe to call from any thread.
class SoundCache {
public:
    explicit SoundCache(std::size_t byteBudget = std::size_t{256} << 20,
                        std::chrono::nanoseconds recheckAfter = std::chrono::nanoseconds::zero());
    ~SoundCache(); ///< stops and joins the decode-ahead worker; pending sounds finish as failed
    SoundCache(const SoundCache&) = delete;
    SoundCache& operator=(const SoundCache&) = delete;

    /// The sound for the file at `path`, possibly still filling; or why it cannot be had, with an
    /// OpenError code.
    Expected<std::shared_ptr<const SoundData>> load(const std::string& path);

    /// Blocks until every pending decode has finished (tests, benchmarks), or, while decoding
    /// is paused, until the worker has put down the sound it was decoding.
    void waitIdle();

    /// Holds decode-ahead (true) or lets it go on (false). Loads still open files at once; their
    /// sounds stay empty until decoding resumes. For tests, and for a game loading a level.
    void setDecodingPaused(bool paused);

    /// Sample memory held by the cached sounds, in bytes.
    std::size_t bytes() const;
    std::size_t entries() const;
    std::size_t byteBudget() const noexcept { return mBudget; }

private:
    struct Entry {
        std::string path;
        std::uint64_t size = 0;
        std::int64_t mtimeNs = 0;
        std::chrono::steady_clock::time_point checkedAt;
        std::shared_ptr<SoundData> data;
        std::list<std::string>::iterator lruPosition;
    };
    struct Job {
        std::shared_ptr<SoundData> data;
        std::unique_ptr<Decoder> decoder;
    };

    void workerLoop();
    void evictLocked();
    std::size_t bytesLocked() const;

    const std::chrono::nanoseconds mRecheckAfter;
    const std::size_t mBudget;
    mutable std::mutex mMutex;
    std::condition_variable mWork;
    std::condition_variable mIdle;
    std::unordered_map<std::string, Entry> mEntries;
    std::list<std::string> mLru; // front: most recently used
    std::vector<std::unique_ptr<Job>> mJobs;
    std::size_t mBusyJobs = 0; // jobs taken out by the worker right now
    bool mStopping = false;
    bool mPaused = false;
    std::thread mWorker;
};

} // namespace vantelo_sounds::engine
