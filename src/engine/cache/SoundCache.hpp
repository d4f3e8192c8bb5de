#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vantelo_sounds/Expected.hpp>
#include <vector>

#include "engine/cache/LoadedSound.hpp"
#include "engine/codec/FileCheck.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

class Decoder;
class FrameSource;
class SoundStream;

/// Sound files by (path, size, modification time), with one memory bound for all the sound they
/// decode to.
///
/// A load that misses opens the file on the caller's thread (a stat, a probe and the header,
/// read within a fixed number of bytes) and returns at once. What happens next depends on the
/// length the file states:
/// - a sound that fits in an eighth of the bound (32 MiB of 256: 87 s of stereo) is decoded whole
///   and kept, so the hundredth play costs a look-up. The cache's one worker thread fills it ahead
///   of its play heads, half a second at a time, the least decoded first.
/// - a longer one, or one that does not fit next to the sounds in use, streams: each play gets a
///   SoundStream, a one-second window the worker keeps filled ahead of the voice from the file,
///   read again from its start for the next pass of a loop.
/// A failure is remembered like a success, so a bad file played again costs a look-up too.
///
/// The bound holds kept sounds (counted at the length their header states until they are
/// decoded) and stream windows together; kept sounds may fill all but its last eighth, which stays
/// for streams. Sounds nobody else holds are dropped, the least recently used first, to make room;
/// a sound in use is never dropped. When even that leaves no room, a new sound streams, and a new
/// stream is refused (tooLarge). A kept sound that turns out longer
/// than its header said is cut off where it would pass the bound.
///
/// A hit checks the file's size and modification time with one stat, unless the same path was
/// checked less than `recheckAfter` ago: a burst of plays of one sound then costs no system call
/// at all, and a file rewritten on disk is still noticed on the first play after that pause.
///
/// Every member function is safe to call from any thread.
class SoundCache {
public:
    static constexpr std::size_t kDefaultBudget = std::size_t{256} << 20;
    /// A sound whose decoded length would take more than budget / kResidentShare streams.
    static constexpr std::size_t kResidentShare = 8;
    /// Frames a stream holds ahead of its voice: one second.
    static constexpr std::size_t kStreamWindowFrames = kMixRate;
    /// Files remembered (sounds and failures) beyond those in use.
    static constexpr std::size_t kMaxEntries = 1024;

    explicit SoundCache(std::size_t byteBudget = kDefaultBudget,
                        std::chrono::nanoseconds recheckAfter = std::chrono::nanoseconds::zero());
    ~SoundCache(); ///< stops and joins the worker; what is still filling finishes as failed
    SoundCache(const SoundCache&) = delete;
    SoundCache& operator=(const SoundCache&) = delete;

    /// The sound of the file at `path`, or why it cannot be had (an OpenError code).
    Expected<LoadedSound> load(const std::string& path);
    /// What one play of `sound` reads: the kept sound itself, or a new stream playing `loops` + 1
    /// passes (negative: for ever). Fails (tooLarge) when the bound leaves no room for a stream.
    Expected<std::shared_ptr<const FrameSource>> sourceFor(const LoadedSound& sound,
                                                           std::int64_t loops);
    /// Tells the worker that streams were read, so it tops them up now rather than on its next
    /// round (offline renders, which read far faster than real time).
    void wake();

    /// Blocks until every kept sound is decoded and every stream's window is full or complete,
    /// or, while decoding is paused, until the worker has put down what it was decoding.
    void waitIdle();
    /// Holds decoding (true) or lets it go on (false). Loads still open files at once; their
    /// sounds stay empty until decoding resumes. For tests, and for a game loading a level.
    void setDecodingPaused(bool paused);

    /// Sample memory held by kept sounds and live streams, in bytes (never above byteBudget()).
    std::size_t bytes() const;
    std::size_t entries() const;
    std::size_t liveStreams() const;
    std::size_t byteBudget() const noexcept { return mBudget; }

private:
    struct Entry {
        FileStamp stamp;
        std::chrono::steady_clock::time_point checkedAt;
        std::optional<Failure> failure; // why the file cannot be played
        int channels = 0;
        double seconds = 0.0;
        std::shared_ptr<SoundData> data; // the kept sound (null: it streams), filled by the worker
        std::size_t reservedBytes = 0;   // what the kept sound may take until it is decoded
        std::list<std::string>::iterator lruPosition;
    };
    struct Job;

    /// The remembered answer for `path`, marked as just used.
    Expected<LoadedSound> answer(const std::string& path, Entry& entry);
    void insertLocked(const std::string& path, Entry entry);
    void workerLoop();
    bool decodeStep(Job& job);
    bool isDue(const Job& job) const;
    void dropUnreadStreamsLocked();
    bool isIdleLocked() const;
    /// Drops unused entries, the least recently used first, until `needed` more bytes fit (in
    /// the kept sounds' share too when `forKeptSound`), or nothing more can go, and the entry
    /// count is within bounds.
    void makeRoomLocked(std::size_t needed, bool forKeptSound);
    std::size_t streamBytesLocked() const; // also forgets the streams that are gone
    /// Bytes of kept sounds; `withReservations`: those still decoding count at their reservation.
    std::size_t keptBytesLocked(bool withReservations) const;
    std::size_t bytesLocked() const;
    std::size_t usedLocked() const; // bytes, with kept sounds still decoding at their reservation

    const std::chrono::nanoseconds mRecheckAfter;
    const std::size_t mBudget;
    mutable std::mutex mMutex;
    std::condition_variable mWork;
    std::condition_variable mIdle;
    std::unordered_map<std::string, Entry> mEntries;
    std::list<std::string> mLru; // front: most recently used
    mutable std::vector<std::weak_ptr<const SoundStream>> mStreams;
    std::vector<std::unique_ptr<Job>> mJobs;
    std::size_t mBusyJobs = 0; // jobs taken out by the worker right now
    bool mStopping = false;
    bool mPaused = false;
    bool mWoken = false;
    std::thread mWorker;
};

} // namespace vantelo_sounds::engine
