// How quickly the end of a sound reaches the game, and what the run loop costs while sounds play,
// in real time on the null output (paced like a device with one 1024-frame block of buffer).
//
// - endToCompletion: from the moment the audio thread renders the block in which a voice ends to
//   the moment its end handler (the player's completion path) runs on the run loop's thread.
// - runOnceUnderFourPosters: how long one pass of the run loop lasts while four threads each post
//   20,000 failing plays (a player for a missing file) as fast as they can.
// - idleWakeups: how often the run loop's thread wakes while one long sound plays and nothing
//   else happens (voluntary context switches of that thread, per second).
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <fstream>
#include <memory>
#include <numbers>
#include <string>
#include <thread>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <benchmark/benchmark.h>

#include "engine/sound/SoundData.hpp"
#include "platform/AudioSystem.hpp"

namespace {

using namespace vantelo_sounds;
using SteadyTime = std::chrono::steady_clock;

std::shared_ptr<const engine::SoundData> tone(double seconds) {
    const auto frames = static_cast<std::size_t>(seconds * engine::kMixRate);
    auto data = std::make_shared<engine::SoundData>(1, frames);
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i) {
        samples[i] = static_cast<float>(0.25 * std::sin(2.0 * std::numbers::pi * 440.0 *
                                                        static_cast<double>(i) / engine::kMixRate));
    }
    data->append(samples.data(), frames);
    data->finish(true);
    return data;
}

AudioSystem& realTimeNullOutput() {
    RunLoop::resetMain(std::make_shared<SteadyClock>());
    OutputConfig config;
    config.kind = OutputConfig::Kind::null;
    return AudioSystem::reset(config);
}

long voluntarySwitchesOfThisThread() {
    std::ifstream status("/proc/thread-self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
            return std::stol(line.substr(line.find(':') + 1));
        }
    }
    return -1;
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1));
    return values[index];
}

// Sounds of slightly different lengths, so that their ends fall at every offset of a block.
void endToCompletion(benchmark::State& state) {
    AudioSystem& audio = realTimeNullOutput();
    RunLoop& loop = RunLoop::main();
    std::vector<std::shared_ptr<const engine::SoundData>> sounds;
    for (int i = 0; i < 7; ++i) {
        sounds.push_back(tone(0.010 + 0.0031 * i));
    }
    std::vector<double> latenciesMs;
    for (auto _ : state) {
        for (int i = 0; i < 100; ++i) {
            bool ended = false;
            audio.startVoice(
                sounds[static_cast<std::size_t>(i) % sounds.size()], {0.0f, 1.0f, 0},
                [&](const engine::VoiceEnded& event, Duration) {
                    const auto now = SteadyTime::now().time_since_epoch();
                    latenciesMs.push_back(
                        std::chrono::duration<double, std::milli>(now - event.renderedAt).count());
                    ended = true;
                },
                nullptr);
            const Duration deadline = loop.now() + std::chrono::seconds(2);
            while (!ended && loop.now() < deadline) {
                loop.runUntil(std::min(deadline, loop.now() + std::chrono::milliseconds(50)));
            }
        }
    }
    state.counters["p50_ms"] = percentile(latenciesMs, 0.50);
    state.counters["p99_ms"] = percentile(latenciesMs, 0.99);
    state.counters["max_ms"] = percentile(latenciesMs, 1.0);
    state.counters["ends"] = static_cast<double>(latenciesMs.size());
    state.SetLabel("block with the end rendered -> end handler ran (null output, 21.3 ms blocks)");
}
BENCHMARK(endToCompletion)->Iterations(1)->Unit(benchmark::kMillisecond);

void runOnceUnderFourPosters(benchmark::State& state) {
    realTimeNullOutput();
    RunLoop& loop = RunLoop::main();
    const FileURL missing = FileURL::fileURLWithPath("/nonexistent/vantelo-bench.wav");
    constexpr std::size_t kPerPoster = 20000;
    std::atomic<int> postersDone{0};
    std::vector<double> passesMs;
    std::size_t ran = 0;
    for (auto _ : state) {
        std::vector<std::thread> posters;
        for (int t = 0; t < 4; ++t) {
            posters.emplace_back([&] {
                for (std::size_t i = 0; i < kPerPoster; ++i) {
                    loop.post(
                        [&missing] { benchmark::DoNotOptimize(AudioPlayer::create(missing)); });
                }
                ++postersDone;
            });
        }
        while (postersDone < 4 || ran < 4 * kPerPoster) {
            const auto begun = SteadyTime::now();
            ran += loop.runOnce();
            passesMs.push_back(
                std::chrono::duration<double, std::milli>(SteadyTime::now() - begun).count());
        }
        for (auto& poster : posters) {
            poster.join();
        }
    }
    state.counters["pass_p50_ms"] = percentile(passesMs, 0.50);
    state.counters["pass_max_ms"] = percentile(passesMs, 1.0);
    state.counters["passes"] = static_cast<double>(passesMs.size());
    state.counters["ran"] = static_cast<double>(ran);
    state.SetLabel("runOnce() while 4 threads post 20,000 failing plays each, as fast as they can");
}
BENCHMARK(runOnceUnderFourPosters)->Iterations(1)->Unit(benchmark::kMillisecond);

void idleWakeups(benchmark::State& state) {
    AudioSystem& audio = realTimeNullOutput();
    RunLoop& loop = RunLoop::main();
    const auto sound = tone(5.0);
    double perSecond = 0;
    for (auto _ : state) {
        auto voice = audio.startVoice(sound, {0.0f, 1.0f, 0}, nullptr, nullptr);
        loop.runUntil(loop.now() + std::chrono::milliseconds(200)); // settled
        const long before = voluntarySwitchesOfThisThread();
        const Duration start = loop.now();
        loop.runUntil(start + std::chrono::seconds(2));
        const double seconds = std::chrono::duration<double>(loop.now() - start).count();
        perSecond = static_cast<double>(voluntarySwitchesOfThisThread() - before) / seconds;
        audio.stopVoice(*voice);
        loop.runUntil(loop.now() + std::chrono::milliseconds(100));
    }
    state.counters["wakeups_per_s"] = perSecond;
    state.SetLabel("run loop thread, one 5 s sound playing, nothing else happening");
}
BENCHMARK(idleWakeups)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
