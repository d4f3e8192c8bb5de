// What a game's play of a file costs on its own thread: AudioPlayer::create followed by play(),
// for ordinary files and for hostile ones (a 2 GB sparse file of zeros, a short MP3 followed by
// 64 MB of zeros, random bytes, WAV headers that lie about their size).
//
// - first/<file>: nothing has seen the file. Each iteration starts from a new manual main run loop
//   and a new audio system made for it (AudioOutput::select), so the engine and its decoded-sound
//   cache are new as well; that is done off the clock, as is the teardown of the previous system,
//   so only the open of a file no cache holds is measured. A fresh name for the file on one audio
//   system would leave the previous iterations' sounds (and their decoding) in the cache beside
//   it, and would not stay cold if the cache came to know files by their contents.
// - repeat/<file>: the same file again on one audio system that has played it once already.
//
// The time is the wall clock around create + play; p50_us and max_us give its median and worst,
// and cpu_p50_us (first only) the median time the calling thread itself ran, which the other
// threads of a busy machine cannot inflate. A refused create is an outcome, not an error: the
// counters count plays and refusals and the label gives the reason. Only public API is used, so
// the benchmark outlives the engine's insides.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioOutput.hpp>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

namespace fs = std::filesystem;
using namespace vantelo_sounds;

constexpr int kRate = 44100;

// This run's files, in a folder removed when the program ends.
class Folder {
public:
    Folder() {
        std::string pattern = (fs::temp_directory_path() / "first_play_bench_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            std::abort();
        }
        mPath = pattern;
    }
    ~Folder() {
        std::error_code ignored;
        fs::remove_all(mPath, ignored);
    }
    const fs::path& path() const { return mPath; }

private:
    fs::path mPath;
};

void put(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

// A mono 16-bit WAV of a 440 Hz tone whose header sizes are given, so that they can lie.
void writeWav(const std::string& path, double seconds, std::uint32_t riffSize,
              std::uint32_t dataSize) {
    std::string bytes = "RIFF";
    put(bytes, riffSize, 4);
    bytes += "WAVEfmt ";
    put(bytes, 16, 4);
    put(bytes, 1, 2); // PCM
    put(bytes, 1, 2);
    put(bytes, kRate, 4);
    put(bytes, kRate * 2, 4);
    put(bytes, 2, 2);
    put(bytes, 16, 2);
    bytes += "data";
    put(bytes, dataSize, 4);
    const auto frames = static_cast<std::uint32_t>(seconds * kRate);
    for (std::uint32_t i = 0; i < frames; ++i) {
        const double s = 0.5 * std::sin(2.0 * std::numbers::pi * 440.0 * i / kRate);
        put(bytes, static_cast<std::uint16_t>(static_cast<std::int16_t>(s * 32767.0)), 2);
    }
    std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

std::uint32_t wavDataBytes(double seconds) {
    return static_cast<std::uint32_t>(seconds * kRate) * 2;
}

void ffmpegTone(const std::string& path, double seconds, const char* codec) {
    const std::string command =
        "ffmpeg -nostdin -loglevel error -y -f lavfi -i sine=frequency=440:duration=" +
        std::to_string(seconds) + " -c:a " + codec + " '" + path + "'";
    if (std::system(command.c_str()) != 0) {
        std::abort();
    }
}

void extendWithZeros(const std::string& path, std::uintmax_t extraBytes) {
    const auto size = fs::exists(path) ? fs::file_size(path) : 0;
    if (truncate(path.c_str(), static_cast<off_t>(size + extraBytes)) != 0) {
        std::abort();
    }
}

void makeFile(const std::string& name, const std::string& path) {
    if (name == "sparse_zeros_2GB.mp3") {
        std::ofstream(path, std::ios::binary).close();
        extendWithZeros(path, std::uintmax_t{2} << 30);
    } else if (name == "one_second_mp3_then_64MB_zeros.mp3") {
        ffmpegTone(path, 1.0, "libmp3lame");
        extendWithZeros(path, std::uintmax_t{64} << 20);
    } else if (name == "random_bytes.mp3") {
        std::mt19937 random(20240611);
        std::string bytes(256 << 10, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random() & 0xFF);
        }
        std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
    } else if (name == "truncated.wav") {
        writeWav(path, 0.1, 36 + wavDataBytes(10.0), wavDataBytes(10.0)); // says 10 s
    } else if (name == "size_ffffffff.wav") {
        writeWav(path, 1.0, 0xFFFFFFFF, 0xFFFFFFFF);
    } else if (name == "tone_1s.wav") {
        writeWav(path, 1.0, 36 + wavDataBytes(1.0), wavDataBytes(1.0));
    } else if (name == "tone_3s.m4a") {
        ffmpegTone(path, 3.0, "aac");
    }
}

// Each file is made once, when a benchmark first needs it.
FileURL fileNamed(const std::string& name) {
    static Folder folder;
    static std::map<std::string, FileURL> made;
    if (!made.contains(name)) {
        const std::string path = (folder.path() / name).string();
        makeFile(name, path);
        made[name] = FileURL::fileURLWithPath(path);
    }
    return made[name];
}

double threadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

void freshAudioSystem() {
    RunLoop::resetMainManual();
    if (!AudioOutput::select(AudioOutput::Kind::offline)) {
        std::abort();
    }
}

void createAndPlay(benchmark::State& state, const std::string& name, bool cold) {
    const FileURL url = fileNamed(name);
    if (!cold) {
        freshAudioSystem();
        if (auto warm = AudioPlayer::create(url)) {
            warm.value()->play();
            warm.value()->stop();
        }
    }
    int plays = 0;
    int refusals = 0;
    std::string label;
    std::vector<double> times;    // microseconds on the wall clock
    std::vector<double> cpuTimes; // microseconds this thread ran
    for (auto _ : state) {
        if (cold) {
            freshAudioSystem();
        }
        const double cpuStart = cold ? threadCpuSeconds() : 0.0; // a system call: cold plays only
        const auto start = std::chrono::steady_clock::now();
        auto player = AudioPlayer::create(url);
        const bool played = player && player.value()->play();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        times.push_back(seconds * 1e6);
        if (cold) {
            cpuTimes.push_back((threadCpuSeconds() - cpuStart) * 1e6);
        }

        if (played) {
            ++plays;
            label = "plays";
            player.value()->stop();
        } else {
            ++refusals;
            label = player ? "created, but play() refused"
                           : "refused: " + player.error().message() + " (" +
                                 player.failure().detail + ")";
        }
        RunLoop::main().advance(std::chrono::milliseconds(20)); // its voice fades and is freed
    }
    // The machine is shared: the median and the worst say more than the mean alone, and the time
    // the thread ran tells its own work from waiting and being preempted.
    std::sort(times.begin(), times.end());
    std::sort(cpuTimes.begin(), cpuTimes.end());
    state.counters["p50_us"] = times[times.size() / 2];
    state.counters["max_us"] = times.back();
    if (cold) {
        state.counters["cpu_p50_us"] = cpuTimes[cpuTimes.size() / 2];
    }
    state.counters["plays"] = plays;
    state.counters["refusals"] = refusals;
    state.SetLabel(plays > 0 && refusals > 0 ? "mixed: " + label : label);
}

// Files in the order of the report. Those whose play takes seconds today run a bounded number of
// times: 5 for the MP3 with 64 MB of zeros (under a second each), 3 for the 2 GB one (~20 s).
const int kRegistered = [] {
    const std::pair<const char*, int> files[] = {
        {"tone_1s.wav", 0},          {"tone_3s.m4a", 0},
        {"truncated.wav", 0},        {"size_ffffffff.wav", 0},
        {"random_bytes.mp3", 0},     {"one_second_mp3_then_64MB_zeros.mp3", 5},
        {"sparse_zeros_2GB.mp3", 3},
    };
    for (const auto& [name, iterations] : files) {
        for (const bool cold : {true, false}) {
            const std::string file = name;
            const std::string title = (cold ? "first/" : "repeat/") + file;
            auto* bench =
                benchmark::RegisterBenchmark(title.c_str(), [file, cold](benchmark::State& state) {
                    createAndPlay(state, file, cold);
                });
            bench->UseManualTime()->Unit(benchmark::kMicrosecond);
            if (iterations > 0) {
                bench->Iterations(iterations);
            } else if (cold) {
                bench->Iterations(50); // a new audio system per iteration costs more than the play
            }
        }
    }
    return 0;
}();

} // namespace
