#include "engine/Engine.hpp"

#include <algorithm>
#include <thread>

#include "engine/output/ManualOutput.hpp"
#include "engine/output/OutputError.hpp"
#include "engine/sound/FrameSource.hpp"
#include "engine/speech/SpeechWorker.hpp"

namespace vantelo_sounds::engine {

namespace {

// How long a manual render waits for a decoder or synthesizer that has fallen behind before it
// lets the voice wait silently instead.
constexpr auto kSourceWaitLimit = std::chrono::seconds(10);
// Plays of one file within this time of each other trust the cache's last look at the file
// (a burst of gunshots costs no system call); a file rewritten on disk is picked up after it.
constexpr auto kCacheRecheckAfter = std::chrono::milliseconds(50);

} // namespace

Engine::Engine(std::unique_ptr<Output> output, std::size_t voices, std::size_t cacheBytes)
    : mMixer(voices)
    , mOutputs(std::make_unique<OutputSwitch>(mMixer, mTap, std::move(output)))
    , mCache(std::make_unique<SoundCache>(cacheBytes, kCacheRecheckAfter))
    , mSlots(voices) {}

Engine::~Engine() {
    mOutputs.reset();
    (void)mTap.close();
    // Voices still holding sound data release it here, after no thread renders any more.
}

SpeechWorker& Engine::speech() {
    if (!mSpeech) {
        mSpeech = std::make_unique<SpeechWorker>();
    }
    return *mSpeech;
}

Engine::Slot* Engine::slotFor(VoiceHandle voice) noexcept {
    if (voice.slot >= mSlots.size() || !voice.valid()) {
        return nullptr;
    }
    Slot& slot = mSlots[voice.slot];
    return slot.busy && slot.generation == voice.generation ? &slot : nullptr;
}

const Engine::Slot* Engine::slotFor(VoiceHandle voice) const noexcept {
    return const_cast<Engine*>(this)->slotFor(voice);
}

bool Engine::send(MixerCommand::Kind kind, VoiceHandle voice, std::uint64_t frame,
                  VoiceParams params) {
    MixerCommand command;
    command.kind = kind;
    command.voice = voice;
    command.frame = frame;
    command.params = params.sanitized();
    return mMixer.send(command);
}

std::optional<VoiceHandle> Engine::start(std::shared_ptr<const FrameSource> data,
                                         VoiceParams params, std::uint64_t frame) {
    if (!data || mInUse == mSlots.size()) {
        return std::nullopt;
    }
    // Round-robin from the last slot handed out, so a slot just released is reused last.
    std::size_t index = mNextSlot;
    while (mSlots[index].busy) {
        index = (index + 1) % mSlots.size();
    }
    Slot& slot = mSlots[index];
    const VoiceHandle voice{static_cast<std::uint32_t>(index), slot.generation + 1};
    MixerCommand command;
    command.kind = MixerCommand::Kind::start;
    command.voice = voice;
    command.frame = frame;
    command.params = params.sanitized();
    command.data = data.get();
    if (!mMixer.send(command)) {
        return std::nullopt;
    }
    slot.generation = voice.generation;
    slot.data = std::move(data);
    slot.busy = true;
    slot.stopped = false;
    slot.paused = false;
    ++mInUse;
    mNextSlot = (index + 1) % mSlots.size();
    return voice;
}

void Engine::stop(VoiceHandle voice, std::uint64_t frame) {
    Slot* slot = slotFor(voice);
    if (slot == nullptr || slot->stopped) {
        return;
    }
    // A stop that cannot be queued would leave a voice nobody can end: retry is not possible on
    // the control thread without waiting, and the queue holds a thousand commands, so the only
    // way here is a caller flooding it; the voice then plays on and ends by itself.
    if (send(MixerCommand::Kind::stop, voice, frame)) {
        slot->stopped = true;
    }
}

void Engine::pause(VoiceHandle voice, std::uint64_t frame) {
    Slot* slot = slotFor(voice);
    if (slot != nullptr && !slot->stopped && !slot->paused &&
        send(MixerCommand::Kind::pause, voice, frame)) {
        slot->paused = true;
    }
}

void Engine::resume(VoiceHandle voice, std::uint64_t frame) {
    Slot* slot = slotFor(voice);
    if (slot != nullptr && !slot->stopped && slot->paused &&
        send(MixerCommand::Kind::resume, voice, frame)) {
        slot->paused = false;
    }
}

void Engine::setParams(VoiceHandle voice, VoiceParams params, std::uint64_t frame) {
    Slot* slot = slotFor(voice);
    if (slot != nullptr && !slot->stopped) {
        send(MixerCommand::Kind::setParams, voice, frame, params);
    }
}

bool Engine::isActive(VoiceHandle voice) const noexcept {
    const Slot* slot = slotFor(voice);
    return slot != nullptr && !slot->stopped && !slot->paused &&
           mMixer.voiceState(voice) != Mixer::VoiceState::ended;
}

void Engine::release(VoiceHandle voice) noexcept {
    Slot* slot = slotFor(voice);
    if (slot == nullptr) {
        return;
    }
    slot->data.reset();
    slot->busy = false;
    --mInUse;
}

void Engine::waitForSources(std::size_t frames) {
    const auto deadline = std::chrono::steady_clock::now() + kSourceWaitLimit;
    for (std::size_t index = 0; index < mSlots.size(); ++index) {
        const Slot& slot = mSlots[index];
        if (!slot.busy || slot.stopped || slot.paused) {
            continue;
        }
        const VoiceHandle voice{static_cast<std::uint32_t>(index), slot.generation};
        const std::size_t need = slot.data->readyTarget(mMixer.voicePosition(voice), frames);
        while (!slot.data->isComplete() && slot.data->availableFrames() < need &&
               std::chrono::steady_clock::now() < deadline) {
            mCache->wake(); // streams are read far faster than real time here
            if (mSpeech) {
                mSpeech->wake();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
}

std::uint64_t Engine::renderUntil(std::uint64_t frame) {
    if (!isManual()) {
        return renderedFrame();
    }
    // Each output renders at most its own block of this.
    constexpr std::uint64_t kLargestBlock = 16384;
    while (renderedFrame() < frame) {
        const auto want =
            static_cast<std::size_t>(std::min(frame - renderedFrame(), kLargestBlock));
        waitForSources(want);
        const std::uint64_t endsBefore = mMixer.endsEmitted();
        if (mOutputs->rendering().render(want) == 0 || mMixer.endsEmitted() != endsBefore) {
            break;
        }
    }
    return renderedFrame();
}

Expected<void> Engine::startRecordingMix(const std::string& path, std::uint64_t maxFrames) {
    if (isManual()) {
        return Expected<void>(OutputError::manualWritesItsOwnFile, path);
    }
    return mTap.open(path, maxFrames);
}

std::string Engine::startError() const {
    const Expected<void>& result = startResult();
    if (result) {
        return {};
    }
    const Failure& failure = result.failure();
    if (failure.detail.empty()) {
        return failure.code.message();
    }
    if (failure.code.category() == std::generic_category()) {
        return failure.detail + ": " + failure.code.message();
    }
    return failure.detail;
}

} // namespace vantelo_sounds::engine
