// The memory a game pays for long sounds: 32 distinct 10-minute WAV files (stereo, 16-bit,
// 22050 Hz, each its own tone) loop together on an offline output while 30 s of manual time pass
// in steps of 1 s, so that the engine mixes and decodes. Reported: the process's resident memory
// before the players are made, at its peak and now after the 30 s, how many players still play,
// what the 30 s took on the wall clock (the benchmark's time), and the resident memory once the
// process is idle with the clock held still (where decoding ahead of playback shows).
//
// The files stay in /tmp/vantelo-memory-bench between runs (1.7 GB, written in seconds to minutes);
// a file is written again only when it is missing or has the wrong size.
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numbers>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioOutput.hpp>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

namespace fs = std::filesystem;
using namespace vantelo_sounds;

constexpr int kSounds = 32;
constexpr int kRate = 22050;
constexpr int kChannels = 2;
constexpr std::uint32_t kFrames = 10 * 60 * kRate;
constexpr std::uint32_t kDataBytes = kFrames * kChannels * 2;
const fs::path kFolder = "/tmp/vantelo-memory-bench";

void put(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

// Written a second at a time, so that no file is ever held whole in memory.
void writeTone(const fs::path& path, double frequency) {
    std::string chunk = "RIFF";
    put(chunk, 36 + kDataBytes, 4);
    chunk += "WAVEfmt ";
    put(chunk, 16, 4);
    put(chunk, 1, 2); // PCM
    put(chunk, kChannels, 2);
    put(chunk, kRate, 4);
    put(chunk, kRate * kChannels * 2, 4);
    put(chunk, kChannels * 2, 2);
    put(chunk, 16, 2);
    chunk += "data";
    put(chunk, kDataBytes, 4);
    std::ofstream out(path, std::ios::binary);
    const double step = 2.0 * std::numbers::pi * frequency / kRate;
    for (std::uint32_t frame = 0; frame < kFrames; ++frame) {
        const auto sample = static_cast<std::int16_t>(8000.0 * std::sin(step * frame));
        for (int c = 0; c < kChannels; ++c) {
            put(chunk, static_cast<std::uint16_t>(sample), 2);
        }
        if ((frame + 1) % kRate == 0 || frame + 1 == kFrames) {
            out.write(chunk.data(), std::streamsize(chunk.size()));
            chunk.clear();
        }
    }
    if (!out) {
        std::fprintf(stderr, "memory_bench: cannot write %s\n", path.c_str());
        std::abort();
    }
}

std::vector<FileURL> tenMinuteTones() {
    fs::create_directories(kFolder);
    std::vector<FileURL> urls;
    for (int i = 0; i < kSounds; ++i) {
        const double frequency = 220.0 + 17.0 * i;
        const fs::path path = kFolder / ("tone_" + std::to_string(int(frequency)) + "Hz_10min.wav");
        std::error_code error;
        if (fs::file_size(path, error) != 44 + kDataBytes) {
            writeTone(path, frequency);
        }
        urls.push_back(FileURL::fileURLWithPath(path.string()));
    }
    std::printf("memory_bench: %d ten-minute WAV files in %s\n", kSounds, kFolder.c_str());
    return urls;
}

double peakRssMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0; // kilobytes on Linux
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return double(t.tv_sec) + double(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double rssNowMiB() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) /
           (1024.0 * 1024.0);
}

void thirtyTwoLongSoundsLooping(benchmark::State& state) {
    const std::vector<FileURL> urls = tenMinuteTones();
    RunLoop::resetMainManual();
    if (!AudioOutput::select(AudioOutput::Kind::offline)) {
        state.SkipWithError("no offline output");
        return;
    }
    const double baseline = rssNowMiB();
    std::vector<std::shared_ptr<AudioPlayer>> players;
    std::string refusal;
    for (auto _ : state) {
        for (const FileURL& url : urls) {
            auto player = AudioPlayer::create(url);
            if (!player) {
                refusal = player.error().message() + " (" + player.failure().detail + ")";
                continue;
            }
            player.value()->setNumberOfLoops(-1);
            player.value()->play();
            players.push_back(std::move(player).value());
        }
        const auto start = std::chrono::steady_clock::now();
        for (int second = 0; second < 30; ++second) {
            RunLoop::main().advance(std::chrono::seconds(1));
        }
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    int playing = 0;
    for (const auto& player : players) {
        playing += player->isPlaying() ? 1 : 0;
    }
    state.counters["baseline_rss_MiB"] = baseline;
    state.counters["peak_rss_MiB"] = peakRssMiB();
    state.counters["rss_now_MiB"] = rssNowMiB();

    // Decoding may run ahead of the clock on a worker of its own. With the players still playing
    // and the clock held still, wait (wall clock, at most 3 minutes) until the process stops
    // working (under 5% of a core over a second), to see what the sounds hold once the decoder has
    // caught up. Resident memory alone is no sign: it grows in steps, as sample storage is made.
    const auto settleStart = std::chrono::steady_clock::now();
    for (double before = cpuSeconds();
         std::chrono::steady_clock::now() - settleStart < std::chrono::minutes(3);) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const double now = cpuSeconds();
        if (now - before < 0.05) {
            break;
        }
        before = now;
    }
    state.counters["rss_settled_MiB"] = rssNowMiB();
    state.counters["settle_wall_s"] =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - settleStart).count();
    state.counters["created"] = static_cast<double>(players.size());
    state.counters["playing"] = playing;
    state.SetLabel(refusal.empty() ? "32 players looping, 30 s of manual time"
                                   : "some refused: " + refusal);
    for (const auto& player : players) {
        player->stop();
    }
}
BENCHMARK(thirtyTwoLongSoundsLooping)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

} // namespace
