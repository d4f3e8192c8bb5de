// The W1/W0 workload of the peers harness, played through this library's engine: files loaded
// through the sound cache (decoded to 48 kHz float, mono kept mono), voices started with the
// workload's pan and volume, looping, 120 s rendered offline by the Mixer in 1024-frame blocks,
// every sample summed into the same checksum. Prints the harness's result line format.
//
// The speech4 variant renders the same workload while four long utterances speak beside it on
// the same mixer, each restarted as soon as it ends, so that four speak for the whole run; its
// line is printed as the peer "vantelo_sounds_speech4". Each utterance has a speech worker of its
// own (one worker speaks its utterances one after another; the four share espeak-ng's one lock),
// and each block waits until the speech streams hold it, as the engine's offline render does.
// Synthesis runs on the workers' threads: the CPU time is the whole process's, as for W1.
//
//   vantelo_w1 INPUT_DIR VOICES [SECONDS [speech4]]
//   vantelo_w1 INPUT_DIR latency
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "EnglishParagraph.hpp"
#include "engine/Engine.hpp"
#include "engine/cache/SoundCache.hpp"
#include "engine/mix/Mixer.hpp"
#include "engine/output/ManualOutput.hpp"
#include "engine/sound/SoundData.hpp"
#include "engine/sound/SoundStream.hpp"
#include "engine/speech/EspeakLibrary.hpp"
#include "engine/speech/SpeechWorker.hpp"

namespace {

using namespace vantelo_sounds::engine;

constexpr const char* kPeer = "vantelo_sounds";
constexpr const char* kSpeechPeer = "vantelo_sounds_speech4";
constexpr int kSpeakers = 4;
// About 50 s of speech: each utterance restarts once or twice in a 120 s run.
constexpr const char* kSpokenParagraph = kEnglishParagraph;
constexpr long kRate = 48000;
constexpr long kBlock = 1024;
constexpr const char* kFiles[8] = {
    "f0_mono44k.wav",   "f1_stereo44k.wav", "f2_mono48k.wav", "f3_stereo48k.wav",
    "f4_stereo44k.mp3", "f5_stereo44k.m4a", "f6_mono48k.mp3", "f7_mono48k.m4a",
};
constexpr const char* kLatencyM4a = "lat3s_stereo44k.m4a";
constexpr const char* kLatencyWav = "f2_mono48k.wav";
constexpr int kColdStarts = 21;
constexpr int kWarmStarts = 1000;

double wallNow() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double cpuNow() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

void userSys(double& user, double& sys) {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    user =
        static_cast<double>(ru.ru_utime.tv_sec) + static_cast<double>(ru.ru_utime.tv_usec) * 1e-6;
    sys = static_cast<double>(ru.ru_stime.tv_sec) + static_cast<double>(ru.ru_stime.tv_usec) * 1e-6;
}

long peakRssKb() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

long rssNowKb() {
    std::FILE* f = std::fopen("/proc/self/status", "r");
    if (f == nullptr) {
        return -1;
    }
    char line[256];
    long kb = -1;
    while (std::fgets(line, sizeof line, f) != nullptr) {
        if (std::sscanf(line, "VmRSS: %ld kB", &kb) == 1) {
            break;
        }
    }
    std::fclose(f);
    return kb;
}

// The harness's checksum: sums and sums of squares in 8 float lanes per block, folded into doubles.
void accumulate(const float* b, long frames, double& sum, double& sumsq) {
    float s[8] = {0}, q[8] = {0};
    const long m = frames * 2;
    long i = 0;
    for (; i + 8 <= m; i += 8) {
        for (int k = 0; k < 8; k++) {
            s[k] += b[i + k];
            q[k] += b[i + k] * b[i + k];
        }
    }
    double ds = 0, dq = 0;
    for (int k = 0; k < 8; k++) {
        ds += s[k];
        dq += q[k];
    }
    for (; i < m; i++) {
        ds += b[i];
        dq += static_cast<double>(b[i]) * b[i];
    }
    sum += ds;
    sumsq += dq;
}

float panOf(int v, int n) {
    return n <= 1 ? 0.0f : -1.0f + 2.0f * static_cast<float>(v) / static_cast<float>(n - 1);
}

float volumeOf(int v) {
    static const float c[4] = {0.25f, 0.5f, 0.75f, 1.0f};
    return c[v % 4];
}

std::shared_ptr<const SoundData> loadOrDie(SoundCache& cache, const std::string& path) {
    auto loaded = cache.load(path);
    if (!loaded) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), loaded.failure().describe().c_str());
        std::exit(1);
    }
    return loaded.value().resident; // short sounds are kept whole
}

// Four utterances speaking on mixer slots of their own, beside the workload's voices.
class Speakers {
public:
    Speakers(Mixer& mixer, std::uint32_t firstSlot, std::string voice)
        : mMixer(mixer)
        , mVoice(std::move(voice)) {
        for (int i = 0; i < kSpeakers; ++i) {
            Speaker& speaker = mSpeakers[static_cast<std::size_t>(i)];
            speaker.worker = std::make_unique<SpeechWorker>();
            speaker.voice = {firstSlot + static_cast<std::uint32_t>(i), 0};
        }
    }
    ~Speakers() {
        for (Speaker& speaker : mSpeakers) {
            speaker.worker.reset(); // before the streams its jobs write into
        }
    }
    Speakers(const Speakers&) = delete;
    Speakers& operator=(const Speakers&) = delete;

    bool startAll() {
        for (Speaker& speaker : mSpeakers) {
            if (!start(speaker)) {
                return false;
            }
        }
        return true;
    }
    /// Waits until every utterance holds the next `frames` frames (or has ended).
    void waitForBlock(std::size_t frames) {
        for (Speaker& speaker : mSpeakers) {
            const std::size_t position = speaker.fresh ? 0 : mMixer.voicePosition(speaker.voice);
            const std::size_t need = speaker.stream->readyTarget(position, frames);
            while (!speaker.stream->isComplete() && speaker.stream->availableFrames() < need) {
                speaker.worker->wake();
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        }
    }
    /// Starts again the utterances that ended in the block just rendered.
    bool restartEnded() {
        for (Speaker& speaker : mSpeakers) {
            speaker.fresh = false;
        }
        VoiceEnded event;
        while (mMixer.pollEvent(event)) {
            for (Speaker& speaker : mSpeakers) {
                if (event.voice == speaker.voice && !start(speaker)) {
                    return false;
                }
            }
        }
        return true;
    }
    int restarts() const noexcept { return mStarts - kSpeakers; }

private:
    struct Speaker {
        std::unique_ptr<SpeechWorker> worker;
        std::shared_ptr<SoundStream> stream; // kept until the voice's end has been taken
        VoiceHandle voice;
        bool fresh = false; // started since the last render: its old position is stale
    };

    bool start(Speaker& speaker) {
        speaker.stream = speaker.worker->speak({kSpokenParagraph, mVoice, "en-GB", 175});
        speaker.voice.generation += 1;
        speaker.fresh = true;
        MixerCommand command;
        command.voice = speaker.voice;
        command.params = VoiceParams{}.sanitized();
        command.data = speaker.stream.get();
        ++mStarts;
        return mMixer.send(command);
    }

    Mixer& mMixer;
    std::string mVoice;
    Speaker mSpeakers[kSpeakers];
    int mStarts = 0;
};

int workload(const std::string& dir, int voices, double seconds, long startRss, bool speech) {
    SoundCache cache;
    double w0 = wallNow();
    double c0 = cpuNow();
    std::vector<std::shared_ptr<const SoundData>> files;
    for (const char* name : kFiles) {
        files.push_back(loadOrDie(cache, dir + "/" + name));
    }
    // Every file wholly decoded, as the peers do up front.
    for (const auto& data : files) {
        data->waitForFrames(data->maxFrames());
        if (data->failed()) {
            std::fprintf(stderr, "a file failed to decode\n");
            return 1;
        }
    }
    std::string speechVoice;
    if (speech) {
        // espeak-ng's data loads with its first use.
        const auto english = EspeakLibrary::instance().voicesForLanguage("en-GB");
        if (english.empty()) {
            std::fprintf(stderr, "espeak-ng has no English voice\n");
            return 1;
        }
        speechVoice = english.front().identifier;
    }
    const double loadWall = wallNow() - w0;
    const double loadCpu = cpuNow() - c0;

    Mixer mixer(static_cast<std::size_t>(std::max(voices, 1) + (speech ? kSpeakers : 0)), 1024);
    for (int v = 0; v < voices; ++v) {
        MixerCommand command;
        command.voice = {static_cast<std::uint32_t>(v), 1};
        command.params = VoiceParams{panOf(v, voices), volumeOf(v), -1}.sanitized();
        command.data = files[static_cast<std::size_t>(v % 8)].get();
        if (!mixer.send(command)) {
            std::fprintf(stderr, "command queue full\n");
            return 1;
        }
    }
    const long total = static_cast<long>(seconds * kRate);
    std::vector<float> out(kBlock * 2);
    double sum = 0, sumsq = 0;
    long frames = 0;
    double u0 = 0, s0 = 0, u1 = 0, s1 = 0;
    userSys(u0, s0);
    w0 = wallNow();
    c0 = cpuNow();
    std::unique_ptr<Speakers> speakers;
    if (speech) {
        speakers =
            std::make_unique<Speakers>(mixer, static_cast<std::uint32_t>(voices), speechVoice);
        if (!speakers->startAll()) {
            std::fprintf(stderr, "command queue full\n");
            return 1;
        }
    }
    for (long done = 0; done < total; done += kBlock) {
        const long n = std::min(kBlock, total - done);
        if (speakers) {
            speakers->waitForBlock(static_cast<std::size_t>(n));
        }
        mixer.render(out.data(), static_cast<std::size_t>(n));
        if (speakers && !speakers->restartEnded()) {
            std::fprintf(stderr, "command queue full\n");
            return 1;
        }
        accumulate(out.data(), n, sum, sumsq);
        frames += n;
    }
    const double renderCpu = cpuNow() - c0;
    const double renderWall = wallNow() - w0;
    userSys(u1, s1);

    const double target = seconds * kRate;
    const double cpu = frames > 0 ? renderCpu * target / static_cast<double>(frames) : 0;
    const double rms = frames > 0 ? std::sqrt(sumsq / (2.0 * static_cast<double>(frames))) : 0;
    std::printf("peer=%s voices=%d seconds=%.0f frames=%ld render_cpu_s=%.6f render_wall_s=%.6f "
                "render_user_s=%.3f render_sys_s=%.3f xrt=%.1f load_wall_s=%.6f load_cpu_s=%.6f "
                "peak_rss_kb=%ld start_rss_kb=%ld checksum=%.6e rms=%.6e",
                speech ? kSpeechPeer : kPeer, voices, seconds, frames, cpu, renderWall, u1 - u0,
                s1 - s0, cpu > 0 ? seconds / cpu : 0, loadWall, loadCpu, peakRssKb(), startRss, sum,
                rms);
    if (speakers) {
        std::printf(" utterances=%d restarts=%d", kSpeakers, speakers->restarts());
    }
    std::printf("\n");
    return 0;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    const auto i = static_cast<std::size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
    return v[std::min(i, v.size() - 1)];
}

int latency(const std::string& dir) {
    // Cold: a file no cache has seen (a new engine each time), opened, its head decoded far
    // enough for the first block, and a voice started: what AudioPlayer::create + play do. The
    // rest of the file decodes ahead on the cache's worker, untimed.
    std::vector<double> cold;
    for (int i = 0; i < kColdStarts; ++i) {
        Engine engine(std::make_unique<ManualOutput>());
        const double t0 = wallNow();
        auto data = loadOrDie(engine.cache(), dir + "/" + kLatencyM4a);
        data->waitForFrames(kBlock);
        const auto voice = engine.start(data, {0.0f, 1.0f, 0});
        cold.push_back(wallNow() - t0);
        if (!voice) {
            return 1;
        }
    }
    // Warm: a cached WAV started again (cache look-up + voice start), each followed, untimed,
    // by a stop rendered to its end.
    Engine engine(std::make_unique<ManualOutput>());
    loadOrDie(engine.cache(), dir + "/" + kLatencyWav);
    engine.cache().waitIdle();
    std::vector<double> warm;
    for (int i = 0; i < kWarmStarts; ++i) {
        const double t0 = wallNow();
        auto data = loadOrDie(engine.cache(), dir + "/" + kLatencyWav);
        const auto voice = engine.start(std::move(data), {0.0f, 1.0f, 0});
        warm.push_back(wallNow() - t0);
        if (!voice) {
            return 1;
        }
        engine.stop(*voice);
        engine.renderUntil(engine.renderedFrame() + 512);
        engine.drainEvents([](const VoiceEnded&) {});
    }
    std::vector<double> overhead;
    for (int i = 0; i < 1000; ++i) {
        const double t0 = wallNow();
        overhead.push_back(wallNow() - t0);
    }
    std::printf("peer=%s latency cold_what=%s cold_first_ms=%.3f cold_median_ms=%.3f cold_n=%d "
                "warm_what=%s warm_median_us=%.3f warm_p99_us=%.3f warm_n=%d "
                "timer_overhead_us=%.3f peak_rss_kb=%ld\n",
                kPeer, "m4a3s_open+first_block_decoded+start", cold[0] * 1e3, median(cold) * 1e3,
                kColdStarts, "wav_cached_load+start", median(warm) * 1e6,
                percentile(warm, 0.99) * 1e6, kWarmStarts, median(overhead) * 1e6, peakRssKb());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const long startRss = rssNowKb();
    if (argc < 3) {
        // The peers harness runs a variant named after "VARIANT " here when asked to.
        std::fprintf(stderr,
                     "usage: %s INPUT_DIR VOICES [SECONDS [speech4]]\n"
                     "       %s INPUT_DIR latency\n"
                     "VARIANT speech4: four utterances speak beside the voices\n",
                     argv[0], argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    if (std::strcmp(argv[2], "latency") == 0) {
        return latency(dir);
    }
    const int voices = std::atoi(argv[2]);
    const double seconds = argc > 3 ? std::atof(argv[3]) : 120.0;
    const bool speech = argc > 4 && std::strcmp(argv[4], "speech4") == 0;
    if (voices < 1 || voices > 256 || seconds <= 0 || (argc > 4 && !speech)) {
        std::fprintf(stderr, "bad VOICES, SECONDS or variant\n");
        return 2;
    }
    return workload(dir, voices, seconds, startRss, speech);
}
