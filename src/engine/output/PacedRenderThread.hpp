#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace vantelo_sounds::engine {

class Mixer;
class MixTap;
class WavWriter;

/// A thread that renders a mixer block by block, paced by the steady clock (each block when
/// its time begins, as a device would ask) or, when not paced, as fast as it can while the
/// mixer has something to play. Each block may go to a WAV file. The null and WAV outputs use it.
class PacedRenderThread {
public:
    /// 5.3 ms: a sound or a text started between two blocks is heard at most this late, as on a
    /// low-latency device. The cost is the thread waking 188 times a second.
    static constexpr std::size_t kBlockFrames = 256;

    PacedRenderThread() = default;
    ~PacedRenderThread() { stop(); }
    PacedRenderThread(const PacedRenderThread&) = delete;
    PacedRenderThread& operator=(const PacedRenderThread&) = delete;

    /// Starts the thread. `sink` and `tap` (each may be null) receive every block; they must
    /// outlive stop().
    void start(Mixer& mixer, bool realTime, WavWriter* sink, MixTap* tap = nullptr);
    /// Joins the thread; the mixer is not called after it returns.
    void stop() noexcept;
    bool running() const noexcept { return mThread.joinable(); }

private:
    void run(Mixer& mixer, bool realTime, WavWriter* sink, MixTap* tap) noexcept;

    std::thread mThread;
    std::atomic<bool> mStop{false};
};

} // namespace vantelo_sounds::engine
