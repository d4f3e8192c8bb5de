#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {
namespace {

std::mutex gMainMutex;
RunLoop* gMain = nullptr;

// Loops replaced by resetMain stay alive to the very end of the process: objects made on them
// (players, the audio system) may still refer to them, even from their own static destructors.
// Tests replace the loop once per test, so the cost is a few hundred bytes each.
std::vector<std::unique_ptr<RunLoop>>& allLoops() {
    static auto* const loops = new std::vector<std::unique_ptr<RunLoop>>();
    return *loops;
}

constexpr Duration kForever = Duration::max();

} // namespace

RunLoop::RunLoop(std::shared_ptr<Clock> clock)
    : mClock(std::move(clock))
    , mOwner(std::this_thread::get_id())
    , mWakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

RunLoop::~RunLoop() {
    if (mWakeFd >= 0) {
        close(mWakeFd);
    }
}

RunLoop& RunLoop::main() {
    std::lock_guard lock(gMainMutex);
    if (gMain == nullptr) {
        allLoops().push_back(std::make_unique<RunLoop>(std::make_shared<SteadyClock>()));
        gMain = allLoops().back().get();
    }
    return *gMain;
}

RunLoop& RunLoop::resetMain(std::shared_ptr<Clock> clock) {
    std::lock_guard lock(gMainMutex);
    allLoops().push_back(std::make_unique<RunLoop>(std::move(clock)));
    gMain = allLoops().back().get();
    return *gMain;
}

RunLoop& RunLoop::resetMainManual() {
    return resetMain(std::make_shared<ManualClock>());
}

bool RunLoop::isLoopThread() const noexcept {
    return mOwner.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void RunLoop::claimThread() noexcept {
    mOwner.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

void RunLoop::post(Callback callback) {
    {
        std::lock_guard lock(mMutex);
        mPosted.push_back(std::move(callback));
    }
    wake();
}

RunLoop::TimerId RunLoop::scheduleTimer(Duration delay, Callback callback) {
    return scheduleTimerAt(now() + std::max(delay, Duration::zero()), std::move(callback));
}

RunLoop::TimerId RunLoop::scheduleTimerAt(Duration deadline, Callback callback) {
    TimerId id = 0;
    {
        std::lock_guard lock(mMutex);
        id = mNextTimerId++;
        mTimers.emplace(std::make_pair(deadline.count(), id), std::move(callback));
    }
    wake();
    return id;
}

void RunLoop::cancelTimer(TimerId id) {
    std::lock_guard lock(mMutex);
    for (auto it = mTimers.begin(); it != mTimers.end(); ++it) {
        if (it->first.second == id) {
            mTimers.erase(it);
            return;
        }
    }
}

std::size_t RunLoop::pendingTimers() const {
    std::lock_guard lock(mMutex);
    return mTimers.size();
}

void RunLoop::addSource(RunLoopSource* source) {
    std::lock_guard lock(mMutex);
    if (std::find(mSources.begin(), mSources.end(), source) == mSources.end()) {
        mSources.push_back(source);
    }
}

void RunLoop::removeSource(RunLoopSource* source) {
    std::lock_guard lock(mMutex);
    std::erase(mSources, source);
}

std::vector<RunLoopSource*> RunLoop::sourcesSnapshot() const {
    std::lock_guard lock(mMutex);
    return mSources;
}

void RunLoop::wake() noexcept {
    if (mWakeFd >= 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(mWakeFd, &one, sizeof one);
    }
}

std::size_t RunLoop::runPosted() {
    std::vector<Callback> batch;
    {
        std::lock_guard lock(mMutex);
        batch.swap(mPosted);
    }
    for (auto& callback : batch) {
        callback();
    }
    return batch.size();
}

void RunLoop::dispatchSources() {
    for (RunLoopSource* source : sourcesSnapshot()) {
        source->dispatch();
    }
}

// Delivers everything that has happened up to now: sources first (ends of sounds, in the order they
// happened), then what they and earlier callbacks posted, until nothing more comes.
std::size_t RunLoop::drainPosted() {
    std::size_t total = 0;
    for (;;) {
        dispatchSources();
        const std::size_t ran = runPosted();
        total += ran;
        if (ran == 0) {
            return total;
        }
    }
}

bool RunLoop::runOneDueTimer(Duration dueBy, TimerId scheduledBefore) {
    Callback callback;
    {
        std::lock_guard lock(mMutex);
        auto it = mTimers.begin();
        while (it != mTimers.end() && it->first.first <= dueBy.count() &&
               it->first.second >= scheduledBefore) {
            ++it;
        }
        if (it == mTimers.end() || it->first.first > dueBy.count()) {
            return false;
        }
        callback = std::move(it->second);
        mTimers.erase(it);
    }
    callback();
    return true;
}

std::size_t RunLoop::runDueTimers() {
    std::size_t ran = 0;
    while (runOneDueTimer(now(), std::numeric_limits<TimerId>::max())) {
        ++ran;
        ran += drainPosted();
    }
    return ran;
}

std::optional<Duration> RunLoop::nextDeadline() const {
    std::lock_guard lock(mMutex);
    if (mTimers.empty()) {
        return std::nullopt;
    }
    return Duration(mTimers.begin()->first.first);
}

std::size_t RunLoop::runOnce() {
    claimThread();
    // Whatever woke the loop is handled by this pass: a game that polls fileDescriptor() must not
    // see it readable again for work that is already done.
    clearWake();
    // One pass runs what was due when it began: callbacks posted and timers scheduled while it
    // runs wait for the next pass, so threads that post faster than the loop runs cannot keep it
    // from returning to the game.
    const Duration began = now();
    TimerId scheduledBefore = 0;
    {
        std::lock_guard lock(mMutex);
        scheduledBefore = mNextTimerId;
    }
    dispatchSources();
    std::size_t ran = runPosted();
    while (runOneDueTimer(began, scheduledBefore)) {
        ++ran;
    }
    return ran;
}

void RunLoop::clearWake() noexcept {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(mWakeFd, &count, sizeof count);
}

void RunLoop::waitFor(Duration timeout) {
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(timeout).count();
    pollfd fd{mWakeFd, POLLIN, 0};
    const int timeoutMs = static_cast<int>(std::clamp<std::int64_t>(ms, 0, 600000));
    poll(&fd, 1, timeoutMs); // the next runOnce() clears the wake-up
}

void RunLoop::runUntil(Duration deadline) {
    if (isManual()) {
        advanceTo(deadline);
        return;
    }
    claimThread();
    mStopRequested.store(false, std::memory_order_relaxed);
    while (!mStopRequested.load(std::memory_order_relaxed)) {
        runOnce();
        const Duration current = now();
        if (current >= deadline) {
            break;
        }
        Duration wakeAt = deadline;
        if (auto next = nextDeadline()) {
            wakeAt = std::min(wakeAt, *next);
        }
        Duration timeout = wakeAt - current;
        for (RunLoopSource* source : sourcesSnapshot()) {
            if (auto interval = source->pollInterval()) {
                timeout = std::min(timeout, *interval);
            }
        }
        waitFor(timeout);
    }
}

void RunLoop::run() {
    if (isManual()) {
        settle(kForever);
        return;
    }
    runUntil(kForever);
}

void RunLoop::stop() noexcept {
    mStopRequested.store(true, std::memory_order_relaxed);
    wake();
}

void RunLoop::advance(Duration by) {
    advanceTo(now() + by);
}

void RunLoop::advanceTo(Duration target) {
    auto* clock = dynamic_cast<ManualClock*>(mClock.get());
    if (clock == nullptr) {
        runUntil(target);
        return;
    }
    claimThread();
    int stalls = 0;
    for (;;) {
        drainPosted();
        runDueTimers();
        const Duration current = now();
        if (current >= target) {
            break;
        }
        Duration stepTarget = target;
        if (auto next = nextDeadline()) {
            stepTarget = std::min(stepTarget, std::max(*next, current));
        }
        Duration reached = stepTarget;
        for (RunLoopSource* source : sourcesSnapshot()) {
            reached = std::min(reached, source->advanceTo(reached));
        }
        if (reached > current) {
            clock->set(reached);
            stalls = 0;
        } else if (++stalls > 2) {
            // Something happened right now (delivered by the next pass); a source that keeps
            // reporting the present without progress must not stall the loop.
            clock->set(stepTarget);
            stalls = 0;
        }
    }
}

Duration RunLoop::settle(Duration limit) {
    constexpr Duration kBusyStep = std::chrono::milliseconds(10);
    for (;;) {
        const Duration current = now();
        if (current >= limit) {
            break;
        }
        const auto next = nextDeadline();
        const auto sources = sourcesSnapshot();
        const bool busy =
            std::any_of(sources.begin(), sources.end(), [](auto* s) { return s->isBusy(); });
        if (next) {
            advanceTo(std::min(*next, limit));
        } else if (busy) {
            advanceTo(std::min(current + kBusyStep, limit));
        } else {
            drainPosted();
            runDueTimers();
            break;
        }
    }
    return now();
}

} // namespace vantelo_sounds
