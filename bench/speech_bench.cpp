// What speech costs and how soon it is heard.
//
// - speakToFirstSample: real time on the null output (256-frame blocks, 5.3 ms), the voice
//   loaded by a warm-up utterance. 50 short sentences, each given to
//   SpeechSynthesizer::speakUtterance at a random moment of the block cycle once the one before
//   has finished. ms: the steady time from the call to the render of the block holding the first
//   mixed frame louder than 1e-3. The mix is recorded by the engine's mix tap, and a watcher
//   thread notes the steady time at which each block was rendered. Where the time goes:
//   next_block_ms, the wait for the next block (a started voice sounds from its start);
//   speech_start_ms, to the block holding the utterance's own first frame (later than the next
//   block when the voice had to wait for the speech worker: voice_waited counts those); and
//   leading_silence_ms, the silence the sentence itself starts with (the closure of a "t" or a
//   "p"), as the worker makes it.
// - workerFirstChunk: the speech worker alone, the same sentences: from speak() to the first
//   samples in its stream, and the silence at the head of what espeak-ng made.
// - synthesisSpeed: a paragraph of English and a 100 kB text spoken offline (manual output),
//   rendered as fast as the worker fills the stream: seconds of speech per second of wall time
//   and per second of the process's CPU time, and the resident memory while the text speaks
//   (the stream is a one-second ring, so it must stay flat).
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>
#include <vantelo_sounds/platform/SpeechSynthesizer.hpp>
#include <vector>

#include <benchmark/benchmark.h>

#include "EnglishParagraph.hpp"
#include "engine/Engine.hpp"
#include "engine/output/ManualOutput.hpp"
#include "engine/output/PacedRenderThread.hpp"
#include "engine/sound/SoundData.hpp"
#include "engine/sound/SoundStream.hpp"
#include "engine/speech/SpeechWorker.hpp"
#include "platform/AudioSystem.hpp"

namespace {

namespace fs = std::filesystem;
using namespace vantelo_sounds;
using SteadyTime = std::chrono::steady_clock;

constexpr float kAudible = 1e-3f;
// The centre of a constant-power pan: what a mono voice's samples are multiplied by in the mix.
constexpr float kCentreGain = 0.70710678f;
constexpr std::size_t kBlock = engine::PacedRenderThread::kBlockFrames;
constexpr auto kBlockTime = std::chrono::microseconds(kBlock * 1'000'000 / engine::kMixRate);
constexpr int kSentenceRounds = 5;
const char* const kSentences[] = {
    "Jump to the left.",        "Turn around slowly.",   "Well done, keep going!",
    "Pick up the golden key.",  "Watch out behind you!", "Open the second door.",
    "You found a secret room.", "Run to the exit now.",  "Three more coins to go.",
    "Level complete.",
};
constexpr const char* kParagraph = kEnglishParagraph;

double ms(SteadyTime::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

double percentile(std::vector<double> values, double p) {
    if (values.empty()) {
        return -1;
    }
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5)];
}

void putPercentiles(benchmark::State& state, const std::string& name,
                    const std::vector<double>& values) {
    state.counters[name + "_p50"] = percentile(values, 0.5);
    state.counters[name + "_p90"] = percentile(values, 0.9);
    state.counters[name + "_max"] = percentile(values, 1.0);
}

double processCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// A field of /proc/self/status in kB: "VmRSS" (resident now), "VmHWM" (resident at the peak).
long statusKb(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::stol(line.substr(field.size() + 1));
        }
    }
    return -1;
}

// Makes the current resident size the process's peak, so that a later peak is this run's own.
bool resetPeakRss() {
    std::ofstream clearRefs("/proc/self/clear_refs");
    clearRefs << "5";
    clearRefs.flush();
    return static_cast<bool>(clearRefs);
}

std::string englishVoice() {
    const auto voice = SpeechSynthesisVoice::voiceWithLanguage("en-GB");
    return voice ? voice->identifier() : std::string();
}

// The first frame at or after `from` whose left or right sample is louder than `threshold`.
std::optional<std::size_t> firstAudible(const std::vector<float>& stereo, std::size_t from,
                                        std::size_t until, float threshold) {
    for (std::size_t f = from; f < std::min(until, stereo.size() / 2); ++f) {
        if (std::abs(stereo[2 * f]) > threshold || std::abs(stereo[2 * f + 1]) > threshold) {
            return f;
        }
    }
    return std::nullopt;
}

// The first frame of a mono stream louder than `threshold`, read as the stream fills (nothing is
// released, and espeak-ng's leading silence is far shorter than the stream's one-second ring).
std::optional<std::size_t> firstAudibleInStream(const engine::SoundStream& stream,
                                                float threshold) {
    for (std::size_t frame = 0;;) {
        const bool complete = stream.isComplete();
        std::size_t contiguous = 0;
        if (const float* mono = stream.framesAt(frame, contiguous)) {
            for (std::size_t i = 0; i < contiguous; ++i, ++frame) {
                if (std::abs(mono[i]) > threshold) {
                    return frame;
                }
            }
        } else if (complete || frame >= stream.capacityFrames()) {
            return std::nullopt;
        }
    }
}

// The frames of silence a mono speech stream starts with, as the mix would hear them from a
// centred voice.
std::size_t leadingSilenceFrames(const std::shared_ptr<engine::SoundStream>& stream) {
    return firstAudibleInStream(*stream, kAudible / kCentreGain).value_or(0);
}

// The samples of a 48 kHz stereo float WAV file, as the mix tap writes it.
std::vector<float> readWav(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::size_t at = 12; // RIFF, size, WAVE
    while (at + 8 <= bytes.size()) {
        std::uint32_t size = 0;
        std::memcpy(&size, bytes.data() + at + 4, 4);
        if (std::memcmp(bytes.data() + at, "data", 4) == 0) {
            const std::size_t count = std::min<std::size_t>(size, bytes.size() - at - 8) / 4;
            std::vector<float> samples(count);
            std::memcpy(samples.data(), bytes.data() + at + 8, count * 4);
            return samples;
        }
        at += 8 + size + (size & 1);
    }
    return {};
}

// Notes the steady time at which each block of a real-time output was rendered: it sleeps until
// shortly before the next block is due and then watches the mixer's frame count change.
class BlockWatcher {
public:
    explicit BlockWatcher(const engine::Mixer& mixer)
        : mMixer(mixer) {
        mSeen.reserve(1 << 16);
        mThread = std::thread([this] { run(); });
    }
    ~BlockWatcher() { stop(); }
    BlockWatcher(const BlockWatcher&) = delete;
    BlockWatcher& operator=(const BlockWatcher&) = delete;

    void stop() {
        mStop = true;
        if (mThread.joinable()) {
            mThread.join();
        }
    }
    /// After stop(): when the block holding mix frame `frame` had been rendered (the first time
    /// the frame count was seen past it).
    std::optional<SteadyTime::time_point> renderedAt(std::uint64_t frame) const {
        const auto it =
            std::upper_bound(mSeen.begin(), mSeen.end(), frame,
                             [](std::uint64_t f, const Seen& s) { return f < s.frames; });
        return it == mSeen.end() ? std::nullopt : std::optional(it->at);
    }
    /// After stop(): the first mix frame of the first block rendered after `time`.
    std::optional<std::uint64_t> firstBlockAfter(SteadyTime::time_point time) const {
        const auto it = std::upper_bound(mSeen.begin(), mSeen.end(), time,
                                         [](auto t, const Seen& s) { return t < s.at; });
        return it == mSeen.end() ? std::nullopt : std::optional(it->frames - kBlock);
    }
    /// Blocks rendered while the watcher was not looking (it saw two or more at once).
    std::size_t missedBlocks() const { return mMissed; }

private:
    struct Seen {
        std::uint64_t frames; // the frame count after the block
        SteadyTime::time_point at;
    };

    void run() {
        std::uint64_t last = mMixer.renderedFrames();
        auto lastAt = SteadyTime::now();
        while (!mStop) {
            std::this_thread::sleep_until(lastAt + kBlockTime - std::chrono::milliseconds(1));
            for (;;) {
                const std::uint64_t frames = mMixer.renderedFrames();
                const auto now = SteadyTime::now();
                if (frames != last) {
                    mMissed += (frames - last) / kBlock - 1;
                    mSeen.push_back({frames, now});
                    last = frames;
                    lastAt = now;
                    break;
                }
                if (mStop || now - lastAt > 4 * kBlockTime) {
                    lastAt = now; // the output stalled: look again a block from now
                    break;
                }
            }
        }
    }

    const engine::Mixer& mMixer;
    std::vector<Seen> mSeen;
    std::size_t mMissed = 0;
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

class CountingDelegate final : public SpeechSynthesizerDelegate {
public:
    void speechSynthesizerDidFinish(SpeechSynthesizer&,
                                    const std::shared_ptr<SpeechUtterance>&) override {
        ++ended;
    }
    void speechSynthesizerDidCancel(SpeechSynthesizer&,
                                    const std::shared_ptr<SpeechUtterance>&) override {
        ++ended;
        ++cancelled;
    }
    int ended = 0;
    int cancelled = 0;
};

// Runs the loop until the delegate has heard `count` ends (or 10 s have passed).
void runUntilEnded(RunLoop& loop, const CountingDelegate& delegate, int count) {
    const Duration deadline = loop.now() + std::chrono::seconds(10);
    while (delegate.ended < count && loop.now() < deadline) {
        loop.runUntil(std::min(deadline, loop.now() + std::chrono::milliseconds(20)));
    }
}

// Starts the mix tap in the middle of a block, so that its first frame is the mix frame returned.
std::uint64_t recordMixFromNextBlock(AudioSystem& audio, const fs::path& path) {
    const engine::Mixer& mixer = audio.engine().mixer();
    for (;;) {
        const std::uint64_t before = mixer.renderedFrames();
        while (mixer.renderedFrames() == before) {
        }
        std::this_thread::sleep_for(kBlockTime / 4);
        const std::uint64_t frame = mixer.renderedFrames();
        if (!audio.startRecordingMix(path.string())) {
            std::abort();
        }
        if (mixer.renderedFrames() == frame) {
            return frame;
        }
        (void)audio.stopRecordingMix();
    }
}

void speakToFirstSample(benchmark::State& state) {
    RunLoop::resetMain(std::make_shared<SteadyClock>());
    OutputConfig config;
    config.kind = OutputConfig::Kind::null;
    AudioSystem& audio = AudioSystem::reset(config);
    RunLoop& loop = RunLoop::main();
    const auto voice = SpeechSynthesisVoice::voiceWithLanguage("en-GB");
    const fs::path wav =
        fs::temp_directory_path() / ("speech_bench_" + std::to_string(getpid()) + "_mix.wav");
    std::mt19937 random(20240611);
    std::uniform_int_distribution<long> phaseUs(0, kBlockTime.count());

    std::vector<double> totalMs, nextBlockMs, speechStartMs, silenceMs;
    std::size_t unheard = 0, voiceWaited = 0, missedBlocks = 0, dropped = 0;
    int cancelled = 0;
    for (auto _ : state) {
        CountingDelegate delegate;
        SpeechSynthesizer synthesizer;
        synthesizer.setDelegate(&delegate);
        const auto say = [&](const char* text) {
            auto utterance = std::make_shared<SpeechUtterance>(text);
            utterance->setVoice(voice);
            synthesizer.speakUtterance(std::move(utterance));
        };
        say("Warming up."); // loads espeak-ng's data and the voice
        runUntilEnded(loop, delegate, 1);
        // The silence each sentence starts with (a stop consonant's closure), from the same
        // worker, so that what the voice waited can be told from what the speech is.
        std::vector<std::size_t> leadingSilence;
        for (const char* sentence : kSentences) {
            leadingSilence.push_back(leadingSilenceFrames(
                audio.engine().speech().speak({sentence, voice->identifier(), "en-GB", 175})));
        }

        BlockWatcher watcher(audio.engine().mixer());
        const std::uint64_t tapFrame = recordMixFromNextBlock(audio, wav);
        std::vector<SteadyTime::time_point> calls;
        for (int round = 0; round < kSentenceRounds; ++round) {
            for (const char* sentence : kSentences) {
                // A game speaks at any moment of the block cycle.
                loop.runUntil(loop.now() + std::chrono::milliseconds(40) +
                              std::chrono::microseconds(phaseUs(random)));
                calls.push_back(SteadyTime::now());
                say(sentence);
                runUntilEnded(loop, delegate, static_cast<int>(calls.size()) + 1);
            }
        }
        loop.runUntil(loop.now() + 4 * kBlockTime);
        const auto recording = audio.stopRecordingMix();
        watcher.stop();
        dropped += recording ? recording.value().droppedFrames : 0;
        missedBlocks += watcher.missedBlocks();
        cancelled += delegate.cancelled;

        const std::vector<float> mix = readWav(wav);
        fs::remove(wav);
        for (std::size_t i = 0; i < calls.size(); ++i) {
            const auto voiceStart = watcher.firstBlockAfter(calls[i]);
            const auto nextVoiceStart =
                i + 1 < calls.size() ? watcher.firstBlockAfter(calls[i + 1]) : std::nullopt;
            if (!voiceStart || *voiceStart < tapFrame) {
                ++unheard;
                continue;
            }
            const std::size_t until = nextVoiceStart ? *nextVoiceStart - tapFrame : mix.size() / 2;
            const auto heard = firstAudible(mix, *voiceStart - tapFrame, until, kAudible);
            const auto blockAt = heard ? watcher.renderedAt(tapFrame + *heard) : std::nullopt;
            if (!blockAt) {
                ++unheard;
                continue;
            }
            // Where the utterance's own first frame (silent or not) was mixed.
            const std::size_t silence = leadingSilence[i % leadingSilence.size()];
            const std::uint64_t speechStart =
                std::max<std::uint64_t>(*voiceStart, tapFrame + *heard - silence);
            totalMs.push_back(ms(*blockAt - calls[i]));
            nextBlockMs.push_back(ms(*watcher.renderedAt(*voiceStart) - calls[i]));
            speechStartMs.push_back(ms(*watcher.renderedAt(speechStart) - calls[i]));
            silenceMs.push_back(static_cast<double>(silence) * 1e3 / engine::kMixRate);
            voiceWaited += speechStart >= *voiceStart + kBlock / 2 ? 1 : 0;
        }
    }
    putPercentiles(state, "ms", totalMs);
    putPercentiles(state, "next_block_ms", nextBlockMs);
    putPercentiles(state, "speech_start_ms", speechStartMs);
    putPercentiles(state, "leading_silence_ms", silenceMs);
    state.counters["voice_waited"] = static_cast<double>(voiceWaited);
    state.counters["heard"] = static_cast<double>(totalMs.size());
    state.counters["unheard"] = static_cast<double>(unheard);
    state.counters["cancelled"] = cancelled;
    state.counters["missed_blocks"] = static_cast<double>(missedBlocks);
    state.counters["tap_dropped"] = static_cast<double>(dropped);
    state.SetLabel("speakUtterance -> block with the first |sample| > 1e-3 rendered (null output)");
}
BENCHMARK(speakToFirstSample)->Iterations(1)->Unit(benchmark::kMillisecond);

void workerFirstChunk(benchmark::State& state) {
    const std::string voice = englishVoice();
    std::vector<double> chunkMs, silenceMs;
    for (auto _ : state) {
        engine::SpeechWorker worker;
        const auto speak = [&](const char* text) {
            return worker.speak({text, voice, "en-GB", 175});
        };
        const auto drain = [&](const std::shared_ptr<engine::SoundStream>& stream) {
            while (!stream->isComplete()) {
                stream->releaseBefore(stream->availableFrames());
                worker.wake();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        };
        drain(speak("Warming up."));
        for (int round = 0; round < kSentenceRounds; ++round) {
            for (const char* sentence : kSentences) {
                const auto called = SteadyTime::now();
                const auto stream = speak(sentence);
                while (stream->availableFrames() == 0 && !stream->isComplete()) {
                }
                chunkMs.push_back(ms(SteadyTime::now() - called));
                silenceMs.push_back(static_cast<double>(leadingSilenceFrames(stream)) * 1e3 /
                                    engine::kMixRate);
                drain(stream);
            }
        }
    }
    putPercentiles(state, "first_chunk_ms", chunkMs);
    putPercentiles(state, "leading_silence_ms", silenceMs);
    state.SetLabel("SpeechWorker::speak -> first samples in the stream; silence they start with");
}
BENCHMARK(workerFirstChunk)->Iterations(1)->Unit(benchmark::kMillisecond);

void synthesisSpeed(benchmark::State& state, std::string text) {
    const std::string voice = englishVoice();
    double speechSeconds = 0, wallSeconds = 0, cpuSeconds = 0;
    long rssBefore = 0, rssEnd = 0, peakGrowth = 0;
    std::vector<long> rssSamples; // every 10 s of speech
    for (auto _ : state) {
        engine::Engine engine(std::make_unique<engine::ManualOutput>());
        const auto speakToEnd = [&](const std::string& words) {
            const auto started =
                engine.start(engine.speech().speak({words, voice, "en-GB", 175}), {});
            const std::uint64_t from = engine.renderedFrame();
            for (bool ended = !started; !ended;) {
                engine.renderUntil(engine.renderedFrame() + engine::ManualOutput::kBlockFrames);
                engine.drainEvents([&](const engine::VoiceEnded&) { ended = true; });
                const std::uint64_t spoken = engine.renderedFrame() - from;
                if (spoken % (10 * engine::kMixRate) < engine::ManualOutput::kBlockFrames) {
                    rssSamples.push_back(statusKb("VmRSS"));
                }
            }
            return static_cast<double>(engine.renderedFrame() - from) / engine::kMixRate;
        };
        speakToEnd("Warming up.");
        rssSamples.clear();
        rssSamples.reserve(1 << 12);
        rssBefore = statusKb("VmRSS");
        const bool peakReset = resetPeakRss();
        const double cpu0 = processCpuSeconds();
        const auto wall0 = SteadyTime::now();
        speechSeconds = speakToEnd(text);
        wallSeconds = std::chrono::duration<double>(SteadyTime::now() - wall0).count();
        cpuSeconds = processCpuSeconds() - cpu0;
        rssEnd = statusKb("VmRSS");
        peakGrowth = peakReset ? statusKb("VmHWM") - rssBefore : -1;
    }
    // Memory that grew with the text would grow as much in the second half as in the first.
    const auto half = rssSamples.begin() + static_cast<std::ptrdiff_t>(rssSamples.size() / 2);
    const long firstHalfMax = *std::max_element(rssSamples.begin(), half);
    const long secondHalfMax = *std::max_element(half, rssSamples.end());
    state.counters["text_bytes"] = static_cast<double>(text.size());
    state.counters["speech_s"] = speechSeconds;
    state.counters["x_realtime_wall"] = speechSeconds / wallSeconds;
    state.counters["x_realtime_cpu"] = speechSeconds / cpuSeconds;
    state.counters["rss_before_kB"] = static_cast<double>(rssBefore);
    state.counters["rss_growth_first_half_kB"] = static_cast<double>(firstHalfMax - rssBefore);
    state.counters["rss_growth_second_half_kB"] = static_cast<double>(secondHalfMax - firstHalfMax);
    state.counters["rss_end_kB"] = static_cast<double>(rssEnd);
    state.counters["peak_rss_growth_kB"] = static_cast<double>(peakGrowth);
    state.SetLabel("offline: speech seconds per wall / CPU second; resident memory while speaking");
}
BENCHMARK_CAPTURE(synthesisSpeed, paragraph, std::string(kParagraph))
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

std::string hundredKilobytes() {
    std::string text;
    while (text.size() < 100'000) {
        text += kParagraph;
        text += ' ';
    }
    return text;
}
BENCHMARK_CAPTURE(synthesisSpeed, text100kB, hundredKilobytes())
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

} // namespace
