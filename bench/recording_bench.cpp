// What recording costs and how soon a stopped recording is in the game's hands.
//
// - encode: a 10 s clip of the microphone's 48 kHz mono tone, written in 20 ms blocks (as the pump
//   writes) into the recorder's 16 kHz AAC file; realtime_fraction is the CPU time it takes over
//   the clip's length.
// - stopToCompletion: in real time, a tone microphone recording for 0.2 s, then stop(): the time
//   until the delegate hears that the recording finished, its file complete (rewritten as a plain
//   M4A).
#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <vantelo_sounds/platform/AudioRecorder.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>
#include <vector>

#include <benchmark/benchmark.h>

#include "engine/capture/RecordingFile.hpp"
#include "engine/capture/SignalCapture.hpp"

namespace {

using namespace vantelo_sounds;
using SteadyTime = std::chrono::steady_clock;

std::string temporaryFile(const char* name) {
    return (std::filesystem::temp_directory_path() / name).string();
}

void encode(benchmark::State& state) {
    constexpr double kSeconds = 10.0;
    constexpr std::size_t kBlock = 960; // 20 ms at 48 kHz
    const auto tone = engine::SignalCapture::tone(440.0, 0.5);
    std::vector<float> block(kBlock);
    tone->read(block.data(), block.size());
    double cpuSeconds = 0.0;
    for (auto _ : state) {
        const std::clock_t begin = std::clock();
        engine::RecordingFile::Settings settings;
        settings.path = temporaryFile("vantelo-encode-bench.m4a");
        settings.inputRate = 48000;
        settings.bitRate = 32000;
        settings.limitFrames = static_cast<std::uint64_t>(kSeconds * 48000);
        auto file = engine::RecordingFile::create(settings);
        while (file && !(*file)->isFull()) {
            benchmark::DoNotOptimize((*file)->append(block.data(), block.size()));
        }
        if (file) {
            benchmark::DoNotOptimize((*file)->finish());
        }
        cpuSeconds += static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    }
    state.counters["realtime_fraction"] =
        cpuSeconds / (kSeconds * static_cast<double>(state.iterations()));
    std::filesystem::remove(temporaryFile("vantelo-encode-bench.m4a"));
}
BENCHMARK(encode)->Unit(benchmark::kMillisecond)->Iterations(5);

class Ends final : public AudioRecorderDelegate {
public:
    void audioRecorderDidFinishRecording(AudioRecorder&, bool) override { at = SteadyTime::now(); }
    void audioRecorderEncodeErrorDidOccur(AudioRecorder&, const std::optional<Failure>&) override {
        at = SteadyTime::now();
    }
    std::optional<SteadyTime::time_point> at;
};

void stopToCompletion(benchmark::State& state) {
    RunLoop& loop = RunLoop::resetMain(std::make_shared<SteadyClock>());
    simulation::setRecordPermission(RecordPermission::granted);
    simulation::setMicrophone(
        simulation::Microphone{simulation::Microphone::Kind::tone, 440.0, 0.5, ""});
    auto recorder =
        *AudioRecorder::create(FileURL::fileURLWithPath(temporaryFile("vantelo-stop-bench.m4a")),
                               {{kAudioSampleRateKey, 16000}});
    for (auto _ : state) {
        auto ends = std::make_shared<Ends>();
        recorder->setDelegate(ends);
        recorder->recordForDuration(60.0);
        loop.runUntil(loop.now() + std::chrono::milliseconds(200));
        const auto stopped = SteadyTime::now();
        recorder->stop();
        while (!ends->at) {
            loop.runUntil(loop.now() + std::chrono::milliseconds(1));
        }
        state.SetIterationTime(std::chrono::duration<double>(*ends->at - stopped).count());
    }
    simulation::setMicrophone(std::nullopt);
    std::filesystem::remove(temporaryFile("vantelo-stop-bench.m4a"));
}
BENCHMARK(stopToCompletion)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

} // namespace
