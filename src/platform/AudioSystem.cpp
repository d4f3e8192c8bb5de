#include "platform/AudioSystem.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

#include "engine/output/ManualOutput.hpp"
#include "engine/output/NullOutput.hpp"
#include "engine/output/SdlOutput.hpp"
#include "engine/output/WavFileOutput.hpp"

namespace vantelo_sounds {

namespace {

std::mutex gSharedMutex;
std::shared_ptr<AudioSystem> gShared;

// Ends wake the loop by themselves, but nothing announces a device that goes away or comes back:
// the loop looks this often while sounds play on a device, and while the null output stands in
// for one (the reopening's own back-off decides when a device is tried).
constexpr Duration kDeviceWatch = std::chrono::milliseconds(250);

// Past this (about three years) a target time is clamped, so frame arithmetic cannot overflow.
constexpr Duration::rep kMaxTime = Duration::rep{100'000'000'000'000'000};

std::unique_ptr<engine::Output> makeOutput(const RunLoop& loop, const OutputConfig& config) {
    using Kind = OutputConfig::Kind;
    if (loop.isManual()) {
        // A manual clock drives the mix itself: nothing else can follow it.
        const bool toFile = config.kind == Kind::manual || config.kind == Kind::wav;
        return std::make_unique<engine::ManualOutput>(toFile ? config.wavPath : std::string());
    }
    switch (config.kind) {
    case Kind::null:
        return std::make_unique<engine::NullOutput>();
    case Kind::wav:
        return std::make_unique<engine::WavFileOutput>(config.wavPath, true);
    case Kind::manual:
        AudioSystem::warn("the manual output needs a manual run loop; playing on the null output");
        return std::make_unique<engine::NullOutput>();
    case Kind::automatic:
    case Kind::sdl:
        break;
    }
    return std::make_unique<engine::SdlOutput>();
}

} // namespace

OutputConfig OutputConfig::fromEnvironment() {
    OutputConfig config;
    const char* value = std::getenv("VANTELO_SOUNDS_OUTPUT");
    if (value == nullptr) {
        return config;
    }
    const std::string text = value;
    if (text == "sdl") {
        config.kind = Kind::sdl;
    } else if (text == "null") {
        config.kind = Kind::null;
    } else if (text == "manual") {
        config.kind = Kind::manual;
    } else if (text.rfind("wav:", 0) == 0 && text.size() > 4) {
        config.kind = Kind::wav;
        config.wavPath = text.substr(4);
    } else if (!text.empty()) {
        AudioSystem::warn("VANTELO_SOUNDS_OUTPUT=" + text +
                          " is not one of sdl, null, wav:PATH, manual; choosing automatically");
    }
    return config;
}

std::shared_ptr<AudioSystem> AudioSystem::sharedPointer() {
    std::lock_guard lock(gSharedMutex);
    RunLoop& loop = RunLoop::main();
    if (!gShared || &gShared->runLoop() != &loop) {
        gShared = std::make_shared<AudioSystem>(loop, OutputConfig::fromEnvironment());
    }
    return gShared;
}

AudioSystem& AudioSystem::shared() {
    return *sharedPointer();
}

AudioSystem& AudioSystem::reset(OutputConfig config) {
    return reset(makeOutput(RunLoop::main(), config));
}

AudioSystem& AudioSystem::reset(std::unique_ptr<engine::Output> output) {
    std::shared_ptr<AudioSystem> old;
    std::lock_guard lock(gSharedMutex);
    old = std::move(gShared); // released after the new one is in place
    gShared = std::make_shared<AudioSystem>(RunLoop::main(), std::move(output));
    return *gShared;
}

AudioSystem::AudioSystem(RunLoop& loop, OutputConfig config)
    : AudioSystem(loop, makeOutput(loop, config)) {}

AudioSystem::AudioSystem(RunLoop& loop, std::unique_ptr<engine::Output> output)
    : mLoop(loop) {
    const std::string wanted = output->name();
    const bool device = output->canBeLost();
    mEngine = std::make_unique<engine::Engine>(std::move(output), kVoiceLimit + kSpareVoices);
    mVoices.resize(mEngine->voiceCapacity());
    if (!mEngine->startError().empty()) {
        if (device) {
            warn("no sound device (" + mEngine->startError() +
                 "); playing on the null output until one opens");
        } else if (wanted == "manual") {
            warn("cannot write the render (" + mEngine->startError() +
                 "); rendering offline without a file");
        } else {
            warn("cannot write the WAV file (" + mEngine->startError() +
                 "); playing on the null output");
        }
    }
    if (!mLoop.isManual()) {
        mEngine->setEndSignal(this);
    }
    mLoop.addSource(this);
}

AudioSystem::~AudioSystem() {
    mLoop.removeSource(this);
    mEngine.reset(); // its outputs stop first, so the end signal is not used after this
}

void AudioSystem::voicesEnded() noexcept {
    mLoop.wake(); // an eventfd write: no lock, no allocation
}

std::uint64_t AudioSystem::frameOfTime(Duration time) noexcept {
    const Duration::rep ns = std::clamp<Duration::rep>(time.count(), 0, kMaxTime);
    // frames = ns * 48000 / 1e9 = ns * 3 / 62500, rounded to the nearest frame.
    return static_cast<std::uint64_t>((ns * 3 + 31250) / 62500);
}

Duration AudioSystem::timeOfFrame(std::uint64_t frame) noexcept {
    return Duration(static_cast<Duration::rep>((frame * 62500 + 1) / 3));
}

std::uint64_t AudioSystem::currentFrame() const noexcept {
    return mLoop.isManual() ? frameOfTime(mLoop.now()) : mEngine->renderedFrame();
}

std::uint64_t AudioSystem::commandFrame() const noexcept {
    // In real time the device renders ahead of the clock: a change applies at the next block.
    return mLoop.isManual() ? frameOfTime(mLoop.now()) : engine::MixerCommand::kNow;
}

Duration AudioSystem::timeOfEnd(std::uint64_t frame) const noexcept {
    return mLoop.isManual() ? timeOfFrame(frame) : mLoop.now();
}

AudioSystem::VoiceRecord* AudioSystem::recordOf(engine::VoiceHandle voice) noexcept {
    if (voice.slot >= mVoices.size() || mVoices[voice.slot].generation != voice.generation ||
        !mVoices[voice.slot].onEnd) {
        return nullptr;
    }
    return &mVoices[voice.slot];
}

std::optional<engine::VoiceHandle>
AudioSystem::startVoice(std::shared_ptr<const engine::FrameSource> data, engine::VoiceParams params,
                        EndHandler onEnd, std::shared_ptr<const void> keepAlive) {
    if (mEngine->voicesInUse() - mStolenFading >= kVoiceLimit) {
        stealVoice();
    }
    auto voice = mEngine->start(std::move(data), params, commandFrame());
    if (voice) {
        VoiceRecord& record = mVoices[voice->slot];
        record = VoiceRecord{};
        record.generation = voice->generation;
        record.onEnd = std::move(onEnd);
        record.keepAlive = std::move(keepAlive);
        record.startOrder = ++mStarts;
        record.volume = params.sanitized().volume;
    }
    return voice;
}

void AudioSystem::stealVoice() {
    // Nobody will miss a sound whose player only the audio system still holds: the oldest such
    // goes first. Otherwise the one heard least.
    VoiceRecord* victim = nullptr;
    std::size_t victimSlot = 0;
    const auto better = [](const VoiceRecord& a, const VoiceRecord& b) {
        const bool aOrphan = a.keepAlive && a.keepAlive.use_count() == 1;
        const bool bOrphan = b.keepAlive && b.keepAlive.use_count() == 1;
        if (aOrphan != bOrphan) {
            return aOrphan;
        }
        const float aLevel = a.paused ? 0.0f : a.volume;
        const float bLevel = b.paused ? 0.0f : b.volume;
        if (!aOrphan && aLevel != bLevel) {
            return aLevel < bLevel;
        }
        return a.startOrder < b.startOrder;
    };
    for (std::size_t slot = 0; slot < mVoices.size(); ++slot) {
        VoiceRecord& record = mVoices[slot];
        if (record.onEnd && !record.ending && (victim == nullptr || better(record, *victim))) {
            victim = &record;
            victimSlot = slot;
        }
    }
    if (victim == nullptr) {
        return;
    }
    warnOnce(Warning::voicesRanOut,
             "all " + std::to_string(kVoiceLimit) +
                 " voices are in use; new sounds take the voice of a sound nobody holds, else of "
                 "the quietest");
    victim->ending = true;
    victim->stolen = true;
    ++mStolenFading;
    mEngine->stop({static_cast<std::uint32_t>(victimSlot), victim->generation}, commandFrame());
}

void AudioSystem::warn(const std::string& text) {
    std::fprintf(stderr, "vantelo_sounds: %s\n", text.c_str());
    std::fflush(stderr);
}

void AudioSystem::warnOnce(Warning warning, const std::string& text) {
    if (std::find(mWarned.begin(), mWarned.end(), warning) == mWarned.end()) {
        mWarned.push_back(warning);
        warn(text);
    }
}

void AudioSystem::setKeepAlive(engine::VoiceHandle voice, std::shared_ptr<const void> keepAlive) {
    if (VoiceRecord* record = recordOf(voice)) {
        record->keepAlive = std::move(keepAlive);
    }
}

void AudioSystem::stopVoice(engine::VoiceHandle voice) {
    if (VoiceRecord* record = recordOf(voice)) {
        record->ending = true;
    }
    mEngine->stop(voice, commandFrame());
}

void AudioSystem::pauseVoice(engine::VoiceHandle voice) {
    if (VoiceRecord* record = recordOf(voice)) {
        record->paused = true;
    }
    mEngine->pause(voice, commandFrame());
}

void AudioSystem::resumeVoice(engine::VoiceHandle voice) {
    if (VoiceRecord* record = recordOf(voice)) {
        record->paused = false;
    }
    mEngine->resume(voice, commandFrame());
}

void AudioSystem::setVoiceParams(engine::VoiceHandle voice, engine::VoiceParams params) {
    if (VoiceRecord* record = recordOf(voice)) {
        record->volume = params.sanitized().volume;
    }
    mEngine->setParams(voice, params, commandFrame());
}

Duration AudioSystem::advanceTo(Duration target) {
    if (!mLoop.isManual()) {
        return target;
    }
    // A device that can be lost is looked at as often as in real time.
    if (mEngine->outputNeedsPolling()) {
        target = std::min(target, mLoop.now() + kDeviceWatch);
    }
    const std::uint64_t frame = frameOfTime(target);
    const std::uint64_t reached = mEngine->renderUntil(frame);
    return reached >= frame ? target : timeOfFrame(reached);
}

void AudioSystem::watchOutput() {
    const auto change = mEngine->pollOutput(mLoop.now());
    if (change == engine::Engine::OutputChange::none) {
        return;
    }
    const bool lost = change == engine::Engine::OutputChange::lost;
    const std::string device = mEngine->outputDevice();
    // Said once per loss and once per return, never once per try.
    if (lost) {
        warn("the sound device stopped; playing on the null output until a device opens");
    } else {
        warn("sound is back on a device (" + std::string(mEngine->outputName()) +
             (device.empty() ? "" : ", " + device) + ")");
    }
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->outputChanged(mEngine->outputName(), device, mLoop.now());
    }
    // Nothing was paused: the mix went on. The session says that the device went, and that sound
    // is back, so that the game's handler brings back what it wants (its loops).
    if (lost) {
        AudioSession::sharedInstance().postOutputInterruption(kAudioSessionInterruptionTypeBegan,
                                                              std::nullopt);
    } else {
        AudioSession::sharedInstance().postOutputInterruption(
            kAudioSessionInterruptionTypeEnded, kAudioSessionInterruptionOptionShouldResume);
    }
}

void AudioSystem::dispatch() {
    if (mEngine->outputNeedsPolling()) {
        watchOutput();
    }
    // Ends are delivered one voice at a time, in the order they happened; each handler runs
    // before the next end is looked at.
    mEngine->drainEvents([this](const engine::VoiceEnded& event) {
        VoiceRecord& record = mVoices[event.voice.slot];
        if (record.generation != event.voice.generation || !record.onEnd) {
            return;
        }
        // Moved out first: the handler may start a voice that reuses this very slot.
        EndHandler onEnd = std::move(record.onEnd);
        std::shared_ptr<const void> keepAlive = std::move(record.keepAlive);
        record.onEnd = nullptr;
        engine::VoiceEnded delivered = event;
        if (record.stolen) {
            --mStolenFading;
            delivered.reason = engine::VoiceEnded::Reason::stolen;
        }
        onEnd(delivered, timeOfEnd(event.frame));
    });
}

std::optional<Duration> AudioSystem::pollInterval() const {
    if (mLoop.isManual() || !mEngine->outputNeedsPolling()) {
        return std::nullopt;
    }
    // An idle device is looked at when the next sound starts.
    if (mEngine->voicesInUse() > 0 || mEngine->isFallingBack()) {
        return kDeviceWatch;
    }
    return std::nullopt;
}

bool AudioSystem::isBusy() const {
    return mLoop.isManual() && mEngine->voicesInUse() > 0;
}

} // namespace vantelo_sounds
