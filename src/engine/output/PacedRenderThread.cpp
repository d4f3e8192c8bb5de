#include "engine/output/PacedRenderThread.hpp"

#include <chrono>

#include "engine/WavWriter.hpp"
#include "engine/mix/Mixer.hpp"
#include "engine/output/MixTap.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

void PacedRenderThread::start(Mixer& mixer, bool realTime, WavWriter* sink, MixTap* tap) {
    stop();
    mStop.store(false, std::memory_order_relaxed);
    mThread = std::thread([this, &mixer, realTime, sink, tap] { run(mixer, realTime, sink, tap); });
}

void PacedRenderThread::stop() noexcept {
    mStop.store(true, std::memory_order_relaxed);
    if (mThread.joinable()) {
        mThread.join();
    }
}

void PacedRenderThread::run(Mixer& mixer, bool realTime, WavWriter* sink, MixTap* tap) noexcept {
    using Clock = std::chrono::steady_clock;
    std::vector<float> block(kBlockFrames * 2);
    const auto startTime = Clock::now();
    std::uint64_t rendered = 0;
    while (!mStop.load(std::memory_order_relaxed)) {
        if (!realTime && !mixer.busy()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        mixer.render(block.data(), kBlockFrames);
        if (tap != nullptr) {
            tap->push(block.data(), kBlockFrames);
        }
        if (sink != nullptr) {
            sink->write(block.data(), kBlockFrames);
        }
        rendered += kBlockFrames;
        if (realTime) {
            // The next block is rendered when its time begins, as a device with one block of
            // buffer would ask for it.
            const auto due =
                startTime +
                std::chrono::duration_cast<Clock::duration>(
                    std::chrono::duration<double>(static_cast<double>(rendered) / kMixRate));
            std::this_thread::sleep_until(due);
        }
    }
}

} // namespace vantelo_sounds::engine
