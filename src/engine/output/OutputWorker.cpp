#include "engine/output/OutputWorker.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace vantelo_sounds::engine {

struct OutputWorker::State {
    struct Job {
        std::unique_ptr<Output> output;
        Mixer* mixer = nullptr; // null: close
    };

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Job> jobs;
    bool working = false;
    bool shuttingDown = false;
    std::optional<Opened> opened;

    // The worker's loop. It owns its State through a shared pointer, so that a job the owner
    // gave up waiting for still finishes safely.
    static void run(const std::shared_ptr<State>& state) {
        std::unique_lock lock(state->mutex);
        for (;;) {
            state->changed.wait(lock, [&] { return !state->jobs.empty() || state->shuttingDown; });
            if (state->jobs.empty()) {
                return;
            }
            Job job = std::move(state->jobs.front());
            state->jobs.pop_front();
            state->working = true;
            lock.unlock();
            std::optional<Opened> opened;
            if (job.mixer == nullptr) {
                job.output->stop();
                job.output.reset();
            } else {
                auto result = job.output->open(*job.mixer);
                opened = Opened{std::move(job.output), std::move(result)};
            }
            lock.lock();
            if (opened && !state->shuttingDown) {
                state->opened = std::move(opened);
            }
            state->working = false;
            state->changed.notify_all();
            if (opened && state->shuttingDown) {
                lock.unlock();
                opened.reset(); // an output opened for an owner that is gone is closed here
                lock.lock();
            }
        }
    }
};

OutputWorker::~OutputWorker() {
    if (!mState) {
        return;
    }
    {
        std::unique_lock lock(mState->mutex);
        mState->shuttingDown = true;
        // Opens nobody will take are dropped; closes still run, so devices are released.
        std::erase_if(mState->jobs, [](const State::Job& job) { return job.mixer != nullptr; });
        mState->changed.notify_all();
        const bool done = mState->changed.wait_for(
            lock, kShutdownWait, [&] { return mState->jobs.empty() && !mState->working; });
        if (!done) {
            lock.unlock();
            mThread.detach();
            return;
        }
    }
    mThread.join();
    std::lock_guard lock(mState->mutex);
    mState->opened.reset();
}

void OutputWorker::ensureThread() {
    if (!mState) {
        mState = std::make_shared<State>();
        mThread = std::thread([state = mState] { State::run(state); });
    }
}

void OutputWorker::close(std::unique_ptr<Output> output) {
    if (!output) {
        return;
    }
    ensureThread();
    std::lock_guard lock(mState->mutex);
    mState->jobs.push_back(State::Job{std::move(output), nullptr});
    mState->changed.notify_all();
}

void OutputWorker::open(std::unique_ptr<Output> output, Mixer& mixer) {
    ensureThread();
    std::lock_guard lock(mState->mutex);
    mState->jobs.push_back(State::Job{std::move(output), &mixer});
    mState->changed.notify_all();
}

std::optional<OutputWorker::Opened> OutputWorker::takeOpened() {
    if (!mState) {
        return std::nullopt;
    }
    std::lock_guard lock(mState->mutex);
    return std::exchange(mState->opened, std::nullopt);
}

bool OutputWorker::busy() const {
    if (!mState) {
        return false;
    }
    std::lock_guard lock(mState->mutex);
    return mState->working || !mState->jobs.empty();
}

bool OutputWorker::waitIdle(std::chrono::milliseconds limit) {
    if (!mState) {
        return true;
    }
    std::unique_lock lock(mState->mutex);
    return mState->changed.wait_for(lock, limit,
                                    [&] { return mState->jobs.empty() && !mState->working; });
}

} // namespace vantelo_sounds::engine
