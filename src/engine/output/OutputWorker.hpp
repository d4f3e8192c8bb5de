#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vantelo_sounds/Expected.hpp>

#include "engine/output/Output.hpp"

namespace vantelo_sounds::engine {

class Mixer;

/// The thread that opens and closes sound devices, so that the control thread never waits for a
/// sound server: closing a lost device took 70 to 147 ms here, and one whose server hangs may
/// never return. Jobs run one at a time, in order (SDL's device calls are not made from two
/// threads at once). The thread is made by the first job and lives as long as the worker. Used
/// from the control thread.
class OutputWorker {
public:
    /// An output whose open() has finished, with what it returned.
    struct Opened {
        std::unique_ptr<Output> output;
        Expected<void> result;
    };

    OutputWorker() = default;
    /// Waits up to kShutdownWait for the job in hand (closes queued behind it run too); a job
    /// that takes longer is left to finish on its own, owning what it works on.
    ~OutputWorker();
    OutputWorker(const OutputWorker&) = delete;
    OutputWorker& operator=(const OutputWorker&) = delete;

    static constexpr std::chrono::milliseconds kShutdownWait{500};

    /// Stops (already detached) `output` and lets it go.
    void close(std::unique_ptr<Output> output);
    /// Opens `output` for `mixer`; takeOpened() hands it back.
    void open(std::unique_ptr<Output> output, Mixer& mixer);
    /// The output whose open finished, once.
    std::optional<Opened> takeOpened();
    /// True while a job is queued or running.
    bool busy() const;
    /// Waits until no job is queued or running, or `limit` has passed; true when idle.
    bool waitIdle(std::chrono::milliseconds limit);

private:
    struct State;
    void ensureThread();

    std::shared_ptr<State> mState;
    std::thread mThread;
};

} // namespace vantelo_sounds::engine
