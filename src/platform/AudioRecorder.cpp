#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <vantelo_sounds/platform/AudioRecorder.hpp>
#include <vantelo_sounds/platform/AudioRecorderError.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include "engine/capture/CaptureError.hpp"
#include "engine/capture/CapturePump.hpp"
#include "engine/capture/RecordingFile.hpp"
#include "engine/capture/SdlCapture.hpp"
#include "engine/capture/SignalCapture.hpp"
#include "platform/AudioSystem.hpp"
#include "platform/Interruptible.hpp"
#include "platform/SimulationState.hpp"

namespace vantelo_sounds {

namespace {

using engine::RecordingOutcome;

constexpr int kMinRate = 8000;
constexpr int kMaxRate = 48000;
// Longer requests are held to a day: nobody records more in one clip, and the frame count stays
// far from overflowing.
constexpr double kLongestSeconds = 24.0 * 3600.0;

std::int64_t setting(const AudioRecorderSettings& settings, const char* key,
                     std::int64_t fallback) {
    const auto found = settings.find(key);
    return found == settings.end() ? fallback : found->second;
}

// Bits per sample by quality level: 32 kb/s for a 16 kHz voice at high quality.
std::int64_t bitRateFor(std::int64_t rate, std::int64_t channels, std::int64_t quality) {
    const double bitsPerSample = quality >= kAudioQualityMax      ? 3.0
                                 : quality >= kAudioQualityHigh   ? 2.0
                                 : quality >= kAudioQualityMedium ? 1.5
                                 : quality >= kAudioQualityLow    ? 1.0
                                                                  : 0.75;
    return static_cast<std::int64_t>(bitsPerSample * static_cast<double>(rate * channels));
}

Expected<void> validate(const AudioRecorderSettings& settings) {
    const auto refuse = [](std::string detail) {
        return Expected<void>(AudioRecorderError::unsupportedSettings, std::move(detail));
    };
    const std::int64_t format = setting(settings, kAudioFormatIDKey, kAudioFormatMPEG4AAC);
    if (format != kAudioFormatMPEG4AAC) {
        return refuse("format " + std::to_string(format) + " (only MPEG-4 AAC is recorded)");
    }
    const std::int64_t rate = setting(settings, kAudioSampleRateKey, 44100);
    if (rate < kMinRate || rate > kMaxRate) {
        return refuse("sample rate " + std::to_string(rate) + " (8000 to 48000 are recorded)");
    }
    const std::int64_t channels = setting(settings, kAudioNumberOfChannelsKey, 1);
    if (channels != 1) {
        return refuse(std::to_string(channels) + " channels (the microphone is recorded mono)");
    }
    const std::int64_t quality = setting(settings, kAudioEncoderQualityKey, kAudioQualityHigh);
    if (quality < kAudioQualityMin || quality > kAudioQualityMax) {
        return refuse("quality " + std::to_string(quality) + " (0 to 127)");
    }
    return {};
}

// The engine's reasons in the recorder's own terms; the original words stay as the detail.
Failure recorderFailure(const Failure& failure) {
    using engine::CaptureError;
    if (failure.code.category() == audioRecorderErrorCategory()) {
        return failure;
    }
    if (failure.code.category() == engine::captureErrorCategory()) {
        switch (static_cast<CaptureError>(failure.code.value())) {
        case CaptureError::deviceUnavailable:
        case CaptureError::signalUnavailable:
            return {AudioRecorderError::noMicrophone, failure.detail};
        case CaptureError::deviceLost:
            return {AudioRecorderError::microphoneLost, failure.detail};
        case CaptureError::fellBehind:
            return {AudioRecorderError::fellBehind, failure.detail};
        case CaptureError::onlySilence:
            return {AudioRecorderError::onlySilence, failure.detail};
        }
    }
    return {AudioRecorderError::cannotWriteFile, failure.describe()};
}

} // namespace

struct AudioRecorder::Impl final : RunLoopSource, Interruptible {
    // One recording, from recordForDuration() until its end is delivered.
    struct Recording {
        std::weak_ptr<AudioRecorderDelegate> delegate;
        bool stopped = false;
        std::unique_ptr<engine::CapturePump> pump; // real time
        // Manual time: the recorder pulls the signal itself as the clock advances.
        std::unique_ptr<engine::RecordingFile> file;
        std::unique_ptr<engine::CaptureSource> source;
        Duration start{};
        RunLoop::TimerId endTimer = 0;
    };

    Impl(AudioRecorder& recorder, RunLoop& runLoop, int rate, std::int64_t bits)
        : owner(&recorder)
        , loop(runLoop)
        , fileRate(rate)
        , bitRate(bits) {
        if (loop.isManual()) {
            loop.addSource(this);
        }
    }

    ~Impl() override {
        if (loop.isManual()) {
            loop.removeSource(this);
        }
        for (auto& [id, recording] : recordings) {
            if (recording.file) {
                (void)recording.file->finish();
            }
            if (recording.endTimer != 0) {
                loop.cancelTimer(recording.endTimer);
            }
        }
    }

    AudioRecorder* owner;
    RunLoop& loop;
    int fileRate;
    std::int64_t bitRate;
    // What prepareToRecord() made for the next recording.
    bool prepared = false;
    std::unique_ptr<engine::RecordingFile> preparedFile;
    std::unique_ptr<engine::CaptureSource> preparedSource;
    std::optional<Failure> prepareFailure;
    std::uint64_t nextId = 1;
    std::uint64_t current = 0; // the recording under way or ending, 0 for none
    std::map<std::uint64_t, Recording> recordings;
    double lastSeconds = 0.0;

    Recording* currentRecording() {
        const auto found = recordings.find(current);
        return found == recordings.end() ? nullptr : &found->second;
    }

    Expected<std::unique_ptr<engine::CaptureSource>> makeSource() const {
        using Kind = simulation::Microphone::Kind;
        const auto microphone = simulation::simulatedMicrophone();
        const Kind kind = microphone ? microphone->kind : Kind::device;
        if (kind == Kind::device && !loop.isManual()) {
            return std::unique_ptr<engine::CaptureSource>(
                std::make_unique<engine::SdlCapture>(fileRate));
        }
        if (kind == Kind::tone) {
            return std::unique_ptr<engine::CaptureSource>(
                engine::SignalCapture::tone(microphone->frequency, microphone->amplitude));
        }
        if (kind == Kind::file) {
            auto signal = engine::SignalCapture::file(microphone->path);
            if (!signal) {
                return signal.failure();
            }
            return std::unique_ptr<engine::CaptureSource>(std::move(*signal));
        }
        return std::unique_ptr<engine::CaptureSource>(engine::SignalCapture::silence());
    }

    // A recording replaced by a new one ends here, unreported; one that was stopped is waited
    // for (its file must be complete before the next one takes the path) and still reported.
    void letGoOfCurrent() {
        Recording* recording = currentRecording();
        if (recording != nullptr && !recording->stopped) {
            if (recording->file) {
                (void)recording->file->finish();
            }
            if (recording->endTimer != 0) {
                loop.cancelTimer(recording->endTimer);
            }
            recordings.erase(current); // a pump is abandoned by its destructor
        } else if (recording != nullptr && recording->pump) {
            recording->pump->wait();
        }
        current = 0;
    }

    bool prepare(const std::string& path) {
        letGoOfCurrent();
        prepared = true;
        preparedFile.reset();
        preparedSource.reset();
        prepareFailure.reset();
        auto source = makeSource();
        if (!source) {
            prepareFailure = recorderFailure(source.failure());
            return false;
        }
        engine::RecordingFile::Settings settings;
        settings.path = path;
        settings.inputRate = (*source)->rate();
        settings.fileRate = fileRate;
        settings.bitRate = static_cast<int>(bitRate);
        auto file = engine::RecordingFile::create(settings);
        if (!file) {
            prepareFailure = recorderFailure(file.failure());
            return false;
        }
        preparedSource = std::move(*source);
        preparedFile = std::move(*file);
        return true;
    }

    void record(double seconds) {
        prepared = false;
        const std::uint64_t id = nextId++;
        current = id;
        Recording& recording = recordings[id];
        recording.delegate = owner->mDelegate;
        if (PlaybackObserver* observer = playbackObserver()) {
            observer->recorderStarted(*owner, loop.now());
        }
        if (prepareFailure) {
            fail(id, *prepareFailure);
            return;
        }
        if (AudioSession::sharedInstance().recordPermission() != RecordPermission::granted) {
            fail(id, Failure{AudioRecorderError::permissionNotGranted, {}});
            return;
        }
        const double clamped =
            std::isnan(seconds) ? 0.0 : std::clamp(seconds, 0.0, kLongestSeconds);
        const int rate = preparedSource->rate();
        const auto limit = static_cast<std::uint64_t>(std::llround(clamped * rate));
        preparedFile->setLimitFrames(limit);
        if (loop.isManual()) {
            recording.file = std::move(preparedFile);
            recording.source = std::move(preparedSource);
            recording.start = loop.now();
            // The loop stops exactly where the recording is full, so that its end is delivered
            // at that time.
            const auto length = Duration((limit * 1'000'000'000 + rate - 1) / rate);
            recording.endTimer = loop.scheduleTimerAt(recording.start + length, [this, id] {
                if (Recording* r = find(id)) {
                    r->endTimer = 0;
                }
                captureUntil(loop.now());
            });
            captureUntil(loop.now()); // a length of 0 ends here
            return;
        }
        std::weak_ptr<AudioRecorder> weakOwner = owner->weak_from_this();
        RunLoop* runLoop = &loop;
        recording.pump = std::make_unique<engine::CapturePump>(
            std::move(preparedSource), std::move(preparedFile),
            [weakOwner, runLoop, id](const RecordingOutcome& outcome) {
                post(*runLoop, weakOwner, id, outcome);
            });
        recording.pump->start();
    }

    Recording* find(std::uint64_t id) {
        const auto found = recordings.find(id);
        return found == recordings.end() ? nullptr : &found->second;
    }

    // Delivered on the loop's next pass; nothing is kept alive for it but the recorder's address,
    // looked up again there (a recorder gone by then hears nothing).
    static void post(RunLoop& runLoop, std::weak_ptr<AudioRecorder> weakOwner, std::uint64_t id,
                     RecordingOutcome outcome) {
        runLoop.post([weakOwner = std::move(weakOwner), id, outcome = std::move(outcome)] {
            if (const std::shared_ptr<AudioRecorder> self = weakOwner.lock()) {
                self->mImpl->deliver(id, outcome);
            }
        });
    }

    void fail(std::uint64_t id, const Failure& failure) {
        RecordingOutcome outcome;
        outcome.reason = RecordingOutcome::Reason::failed;
        outcome.result = failure;
        if (preparedFile) {
            (void)preparedFile->finish(); // an empty but complete file
            preparedFile.reset();
        }
        preparedSource.reset();
        find(id)->stopped = true;
        post(loop, owner->weak_from_this(), id, std::move(outcome));
    }

    // Manual time: takes the signal up to loop time `time`, and ends the recording once it is full.
    void captureUntil(Duration time) {
        Recording* recording = currentRecording();
        if (recording == nullptr || recording->stopped || !recording->file) {
            return;
        }
        engine::RecordingFile& file = *recording->file;
        const auto elapsed = std::max(time - recording->start, Duration::zero());
        const auto rate = static_cast<std::uint64_t>(recording->source->rate());
        const auto due = std::min<std::uint64_t>(
            static_cast<std::uint64_t>(elapsed.count()) * rate / 1'000'000'000, file.limitFrames());
        Expected<void> failure;
        if (due > file.frames()) {
            std::vector<float> block(static_cast<std::size_t>(due - file.frames()));
            static_cast<engine::SignalCapture&>(*recording->source)
                .read(block.data(), block.size());
            if (auto appended = file.append(block.data(), block.size()); !appended) {
                failure = appended.failure();
            }
        }
        if (!failure) {
            end(RecordingOutcome::Reason::failed, std::move(failure));
        } else if (file.isFull()) {
            end(RecordingOutcome::Reason::full, {});
        }
    }

    // Manual time: completes the current recording's file and reports it.
    void end(RecordingOutcome::Reason reason, Expected<void> failure) {
        Recording& recording = *currentRecording();
        recording.stopped = true;
        if (recording.endTimer != 0) {
            loop.cancelTimer(recording.endTimer);
            recording.endTimer = 0;
        }
        const Expected<void> finished = recording.file->finish();
        post(loop, owner->weak_from_this(), current,
             RecordingOutcome::of(*recording.file, reason, std::move(failure), finished, 0));
    }

    void stop() {
        Recording* recording = currentRecording();
        if (recording == nullptr || recording->stopped) {
            return;
        }
        if (recording->pump) {
            recording->stopped = true;
            recording->pump->stop();
            return;
        }
        captureUntil(loop.now());
        if (!recording->stopped) {
            end(RecordingOutcome::Reason::stopped, {});
        }
    }

    void deliver(std::uint64_t id, const RecordingOutcome& outcome) {
        const auto found = recordings.find(id);
        if (found == recordings.end()) {
            return; // replaced by a newer recording before its end came
        }
        Recording recording = std::move(found->second);
        recordings.erase(found);
        if (current == id) {
            current = 0;
        }
        lastSeconds = outcome.seconds;
        recording.pump.reset(); // its thread has ended: it posted this
        if (PlaybackObserver* observer = playbackObserver()) {
            observer->recorderEnded(*owner, loop.now());
        }
        if (outcome.reason == RecordingOutcome::Reason::deviceLost && outcome.result) {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%.1f", outcome.seconds);
            AudioSystem::warn(std::string("the microphone went away after ") + seconds +
                              " s; the recording keeps what was captured");
        }
        const std::shared_ptr<AudioRecorderDelegate> delegate = recording.delegate.lock();
        if (!delegate) {
            return;
        }
        if (!outcome.result) {
            delegate->audioRecorderEncodeErrorDidOccur(*owner,
                                                       recorderFailure(outcome.result.failure()));
        } else {
            delegate->audioRecorderDidFinishRecording(*owner, true);
        }
    }

    // ---- RunLoopSource: manual time ----------------------------------------------------------
    Duration advanceTo(Duration target) override {
        captureUntil(target);
        return target;
    }
    void dispatch() override {}

    // ---- Interruptible -----------------------------------------------------------------------
    // The file keeps what was captured, finished like after stop(); nothing restarts by itself.
    void interruptionBegan() override { stop(); }
};

Expected<std::shared_ptr<AudioRecorder>>
AudioRecorder::create(const FileURL& url, const AudioRecorderSettings& settings) {
    if (auto valid = validate(settings); !valid) {
        return valid.failure();
    }
    const auto rate = static_cast<int>(setting(settings, kAudioSampleRateKey, 44100));
    const std::int64_t bits =
        bitRateFor(rate, 1, setting(settings, kAudioEncoderQualityKey, kAudioQualityHigh));
    std::shared_ptr<AudioRecorder> recorder(new AudioRecorder(url, settings, nullptr));
    recorder->mImpl = std::make_unique<Impl>(*recorder, RunLoop::main(), rate, bits);
    return recorder;
}

AudioRecorder::AudioRecorder(FileURL url, AudioRecorderSettings settings,
                             std::unique_ptr<Impl> impl)
    : mUrl(std::move(url))
    , mSettings(std::move(settings))
    , mImpl(std::move(impl)) {}

AudioRecorder::~AudioRecorder() = default;

bool AudioRecorder::prepareToRecord() {
    return mImpl->prepare(mUrl.path());
}

bool AudioRecorder::recordForDuration(double seconds) {
    if (!mImpl->prepared) {
        (void)prepareToRecord();
    }
    mImpl->record(seconds);
    return true;
}

void AudioRecorder::stop() {
    mImpl->stop();
}

bool AudioRecorder::isRecording() const noexcept {
    const auto found = mImpl->recordings.find(mImpl->current);
    return found != mImpl->recordings.end() && !found->second.stopped;
}

double AudioRecorder::currentTime() const noexcept {
    const auto found = mImpl->recordings.find(mImpl->current);
    if (found != mImpl->recordings.end() && found->second.file) {
        return found->second.file->seconds();
    }
    return mImpl->lastSeconds;
}

} // namespace vantelo_sounds
