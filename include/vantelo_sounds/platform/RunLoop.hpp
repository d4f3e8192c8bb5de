#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vantelo_sounds/platform/Clock.hpp>
#include <vector>

namespace vantelo_sounds {

/// Something that makes things happen as time passes and must be asked to deliver them on the run
/// loop's thread: the audio engine (voices that ended), the speech worker, the recorder.
class RunLoopSource {
public:
    virtual ~RunLoopSource() = default;

    /// Manual clock only: let time run from now up to `target`, doing the work that time brings
    /// (rendering audio, waiting for a worker that must keep up). May stop early, at the exact time
    /// at which something happened that must be delivered before time goes on; returns the time
    /// reached (> now unless nothing can happen, then `target`). Called on the run loop's thread.
    virtual Duration advanceTo(Duration target) = 0;

    /// Delivers what has happened so far (user callbacks included). Called on the run loop's
    /// thread, after advanceTo in manual time and on every pass of a real-time loop.
    virtual void dispatch() = 0;

    /// Real time only: how soon the loop must call dispatch() again even if nothing wakes it
    /// (for example while voices play). Empty when it only needs a call after wake().
    virtual std::optional<Duration> pollInterval() const { return std::nullopt; }

    /// True while time passing can still make this source deliver something (voices that play,
    /// speech being synthesized). settle() runs until no source is busy.
    virtual bool isBusy() const { return false; }
};

/// The control thread's loop: posted callbacks, one-shot timers and sources, all delivered on one
/// thread in time order. The game pumps it from its own loop (runOnce() once a frame), runs it
/// (run(), runUntil()), or waits on fileDescriptor(). Tests and offline renders use a manual clock
/// and advance() it; nothing then sleeps.
class RunLoop {
public:
    using Callback = std::function<void()>;
    using TimerId = std::uint64_t;

    explicit RunLoop(std::shared_ptr<Clock> clock);
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// The main run loop, on the steady clock unless replaced. Created on first use.
    static RunLoop& main();
    /// Replaces the main run loop (tests, the command-line program): a new loop on `clock`, owned
    /// by the thread that calls it from now on. Anything registered with the old one is dropped.
    static RunLoop& resetMain(std::shared_ptr<Clock> clock);
    /// Replaces the main run loop with one on a new manual clock at time 0.
    static RunLoop& resetMainManual();

    Duration now() const noexcept { return mClock->now(); }
    const std::shared_ptr<Clock>& clock() const noexcept { return mClock; }
    bool isManual() const noexcept { return mClock->isManual(); }

    /// The thread that owns the loop: the one that created it, or the last one that pumped it.
    bool isLoopThread() const noexcept;

    /// Runs `callback` on the loop's thread at its next pass, after callbacks posted before it.
    /// Safe to call from any thread except the audio thread (it allocates and locks).
    void post(Callback callback);

    /// Runs `callback` once, `delay` from now (never before). Timers run in deadline order; equal
    /// deadlines in the order they were scheduled. Safe to call from any thread.
    TimerId scheduleTimer(Duration delay, Callback callback);
    /// The same at loop time `deadline` (at the next pass when it has passed): timers given one
    /// deadline run in the order they were scheduled, whenever each was scheduled.
    TimerId scheduleTimerAt(Duration deadline, Callback callback);
    /// Cancels a timer that has not run; unknown or past ids are ignored.
    void cancelTimer(TimerId id);

    /// Sources are asked to advance and dispatch on every pass, in the order they were added. Not
    /// owned. In manual time only one source may stop early (the audio engine, which keeps time
    /// for everything that sounds); the others are then advanced no further than it.
    void addSource(RunLoopSource* source);
    void removeSource(RunLoopSource* source);

    /// Wakes a loop that waits (run, runUntil). Async-signal-safe: only an eventfd write.
    void wake() noexcept;
    /// An eventfd that turns readable when the loop has work; for games that poll descriptors.
    int fileDescriptor() const noexcept { return mWakeFd; }

    // ---- real time ----------------------------------------------------------------------
    /// Delivers what is due now without waiting: what sources have to deliver, the callbacks
    /// posted before the call and the timers due when it began. What is posted or scheduled
    /// while it runs waits for the next pass, so one pass is bounded. Returns the callbacks run.
    std::size_t runOnce();
    /// Runs until the clock reaches `deadline` (real time: waits; manual time: advances to it).
    void runUntil(Duration deadline);
    /// Runs until stop() is called from a callback or another thread.
    void run();
    void stop() noexcept;

    // ---- manual time --------------------------------------------------------------------
    /// Manual clock only: moves time forward by `by`, running posted callbacks, sources and timers
    /// in time order. Everything due at the final time has run when it returns.
    void advance(Duration by);
    void advanceTo(Duration target);
    /// Manual clock only: advances until nothing is pending (no timer, no source reporting work)
    /// or `limit` is reached. Returns the time reached.
    Duration settle(Duration limit);

    /// Number of timers that have not run yet.
    std::size_t pendingTimers() const;

private:
    std::size_t runPosted();
    std::size_t drainPosted();
    bool runOneDueTimer(Duration dueBy, TimerId scheduledBefore);
    std::size_t runDueTimers();
    void dispatchSources();
    std::vector<RunLoopSource*> sourcesSnapshot() const;
    std::optional<Duration> nextDeadline() const;
    void claimThread() noexcept;
    void waitFor(Duration timeout);
    void clearWake() noexcept;

    std::shared_ptr<Clock> mClock;
    mutable std::mutex mMutex;
    std::vector<Callback> mPosted;
    std::map<std::pair<Duration::rep, TimerId>, Callback> mTimers;
    std::vector<RunLoopSource*> mSources;
    TimerId mNextTimerId = 1;
    std::atomic<std::thread::id> mOwner;
    std::atomic<bool> mStopRequested{false};
    int mWakeFd = -1;
};

} // namespace vantelo_sounds
