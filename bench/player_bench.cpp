// What starting a sound costs on the control thread: a cached sound (cache look-up and a voice
// queued for the audio thread) and a 3 s AAC file no cache has seen (open, decode the head far
// enough for the first block, queue the voice; the rest decodes ahead on the cache's worker).
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <string>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <benchmark/benchmark.h>

#include "engine/Engine.hpp"
#include "engine/codec/AudioFileWriter.hpp"
#include "engine/output/ManualOutput.hpp"
#include "engine/sound/SoundData.hpp"
#include "platform/AudioSystem.hpp"

namespace {

using namespace vantelo_sounds::engine;

// A tone file made once per process in a temporary folder.
std::string makeTone(const std::string& name, AudioFileFormat format, double seconds,
                     int channels) {
    static const std::filesystem::path dir = [] {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "player_bench_XXXXXX").string();
        return std::filesystem::path(mkdtemp(pattern.data()));
    }();
    const std::string path = (dir / name).string();
    const auto frames = static_cast<std::size_t>(seconds * 44100);
    std::vector<float> samples(frames * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < frames; ++i) {
        const auto s = static_cast<float>(
            0.5 * std::sin(2.0 * std::numbers::pi * 440.0 * static_cast<double>(i) / 44100.0));
        for (int c = 0; c < channels; ++c) {
            samples[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)] = s;
        }
    }
    AudioFileWriter writer;
    if (!writer.open(path, format, 44100, channels) || !writer.write(samples.data(), frames) ||
        !writer.close()) {
        std::abort();
    }
    return path;
}

// Starts come in batches of kBatch (stopped and drained untimed between batches), so that the
// cost of pausing the benchmark's timer does not swamp the microsecond being measured.
constexpr int kBatch = 32;

void startCachedSound(benchmark::State& state) {
    const std::string path = makeTone("cached.wav", AudioFileFormat::wavFloat, 1.0, 1);
    Engine engine(std::make_unique<ManualOutput>());
    if (!engine.load(path)) {
        state.SkipWithError("cannot load");
        return;
    }
    engine.cache().waitIdle();
    std::vector<VoiceHandle> voices;
    voices.reserve(kBatch);
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            auto data = engine.load(path);
            auto voice = engine.start(std::move(data).value().resident, {0.0f, 1.0f, 0});
            voices.push_back(*voice);
        }
        state.PauseTiming();
        for (const auto& voice : voices) {
            engine.stop(voice);
        }
        voices.clear();
        engine.renderUntil(engine.renderedFrame() + 512);
        engine.drainEvents([](const VoiceEnded&) {});
        state.ResumeTiming();
    }
    state.counters["per_start"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kBatch,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetLabel("cache look-up + voice queued");
}
BENCHMARK(startCachedSound);

// The same start through the platform's player, as the manager makes it: create (cache look-up)
// and play (voice queued for the mixer).
void playCachedSoundThroughAPlayer(benchmark::State& state) {
    const std::string path = makeTone("player.wav", AudioFileFormat::wavFloat, 1.0, 1);
    vantelo_sounds::RunLoop::resetMainManual();
    vantelo_sounds::OutputConfig config;
    config.kind = vantelo_sounds::OutputConfig::Kind::manual;
    vantelo_sounds::AudioSystem::reset(config);
    const auto url = vantelo_sounds::FileURL::fileURLWithPath(path);
    std::vector<std::shared_ptr<vantelo_sounds::AudioPlayer>> players;
    players.reserve(kBatch);
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            auto player = vantelo_sounds::AudioPlayer::create(url);
            player.value()->play();
            players.push_back(std::move(player).value());
        }
        state.PauseTiming();
        for (const auto& player : players) {
            player->stop();
        }
        players.clear();
        vantelo_sounds::RunLoop::main().advance(std::chrono::milliseconds(20));
        state.ResumeTiming();
    }
    state.counters["per_start"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kBatch,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetLabel("AudioPlayer::create + play");
}
BENCHMARK(playCachedSoundThroughAPlayer);

void startUndecodedAac(benchmark::State& state) {
    const std::string path = makeTone("cold.m4a", AudioFileFormat::m4a, 3.0, 2);
    for (auto _ : state) {
        state.PauseTiming();
        auto engine = std::make_unique<Engine>(std::make_unique<ManualOutput>());
        state.ResumeTiming();
        auto loaded = engine->load(path);
        if (!loaded) {
            state.SkipWithError("cannot load");
            return;
        }
        if (state.range(0) != 0) {
            loaded.value().resident->waitForFrames(ManualOutput::kBlockFrames);
        }
        auto voice = engine->start(std::move(loaded).value().resident, {0.0f, 1.0f, 0});
        benchmark::DoNotOptimize(voice);
        state.PauseTiming();
        engine.reset();
        state.ResumeTiming();
    }
    state.SetLabel(state.range(0) != 0 ? "open + first block decoded + voice queued"
                                       : "open + voice queued (what play waits for)");
}
BENCHMARK(startUndecodedAac)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
