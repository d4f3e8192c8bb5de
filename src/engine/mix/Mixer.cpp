#include "engine/mix/Mixer.hpp"

#include <algorithm>
#include <cstring>

#include "engine/mix/MixKernel.hpp"
#include "engine/sound/FrameSource.hpp"

namespace vantelo_sounds::engine {

namespace {

std::uint64_t packState(std::uint32_t generation, Mixer::VoiceState state) noexcept {
    return (static_cast<std::uint64_t>(generation) << 8) | static_cast<std::uint64_t>(state);
}

} // namespace

Mixer::Mixer(std::size_t voices, std::size_t commandCapacity)
    : mVoices(voices)
    , mPublished(std::make_unique<Published[]>(voices))
    , mCommands(commandCapacity)
    // Each start yields at most one end event and a slot restarts only after its event has been
    // taken, so twice the pool can never overflow.
    , mEvents(2 * voices + 16) {
    MixKernel::prepare();
}

Mixer::VoiceState Mixer::voiceState(VoiceHandle voice) const noexcept {
    if (voice.slot >= mVoices.size()) {
        return VoiceState::unknown;
    }
    const std::uint64_t packed = mPublished[voice.slot].state.load(std::memory_order_acquire);
    if ((packed >> 8) != voice.generation) {
        return VoiceState::unknown;
    }
    return static_cast<VoiceState>(packed & 0xff);
}

std::size_t Mixer::voicePosition(VoiceHandle voice) const noexcept {
    if (voice.slot >= mVoices.size()) {
        return 0;
    }
    return mPublished[voice.slot].position.load(std::memory_order_relaxed);
}

void Mixer::render(float* out, std::size_t frames) noexcept {
    renderImpl(out, frames, false);
}

std::size_t Mixer::renderUntilVoiceEnds(float* out, std::size_t frames) noexcept {
    return renderImpl(out, frames, true);
}

void Mixer::publish(std::size_t slot, VoiceState state) noexcept {
    mPublished[slot].state.store(packState(mVoices[slot].generation, state),
                                 std::memory_order_release);
}

void Mixer::emitEnd(std::size_t slot, std::uint64_t frame, VoiceEnded::Reason reason) noexcept {
    const Voice& voice = mVoices[slot];
    mPublished[slot].position.store(voice.position, std::memory_order_relaxed);
    publish(slot, VoiceState::ended);
    VoiceEnded event;
    event.voice = {static_cast<std::uint32_t>(slot), voice.generation};
    event.frame = frame;
    event.reason = reason;
    event.renderedAt = mBlockStartedAt;
    mEvents.tryPush(event); // a full queue drops and counts
    mEnds.fetch_add(1, std::memory_order_release);
}

bool Mixer::apply(const MixerCommand& command, std::uint64_t frame) noexcept {
    const std::size_t slot = command.voice.slot;
    if (slot >= mVoices.size()) {
        return false;
    }
    Voice& voice = mVoices[slot];
    if (command.kind == MixerCommand::Kind::start) {
        if (command.data == nullptr) {
            return false;
        }
        voice.start(command.data, command.voice.generation, command.params);
        mPublished[slot].position.store(0, std::memory_order_relaxed);
        publish(slot, VoiceState::playing);
        // An empty source ends on the frame it starts.
        if (command.data->isComplete() && command.data->availableFrames() == 0) {
            voice.state = Voice::State::free;
            emitEnd(slot, frame,
                    command.data->failed() ? VoiceEnded::Reason::failed
                                           : VoiceEnded::Reason::finished);
            return true;
        }
        return false;
    }
    // Commands for a voice that has ended, or for an older use of its slot, are ignored.
    if (voice.state == Voice::State::free || voice.generation != command.voice.generation) {
        return false;
    }
    switch (command.kind) {
    case MixerCommand::Kind::stop:
        if (voice.state == Voice::State::paused || voice.envelope == 0.0f) {
            voice.state = Voice::State::free; // silent already: nothing to fade
            emitEnd(slot, frame, VoiceEnded::Reason::stopped);
            return true;
        }
        voice.fadeTo(0.0f, Voice::kStopRampFrames);
        voice.state = Voice::State::stopping;
        break;
    case MixerCommand::Kind::pause:
        if (voice.state == Voice::State::playing) {
            voice.fadeTo(0.0f, Voice::kStopRampFrames);
            voice.state = Voice::State::pausing;
            publish(slot, VoiceState::paused);
        }
        break;
    case MixerCommand::Kind::resume:
        if (voice.state == Voice::State::paused || voice.state == Voice::State::pausing) {
            voice.fadeTo(1.0f, Voice::kStartRampFrames);
            voice.state = Voice::State::playing;
            publish(slot, VoiceState::playing);
        }
        break;
    case MixerCommand::Kind::setParams:
        voice.setParams(command.params);
        break;
    case MixerCommand::Kind::start:
        break;
    }
    return false;
}

bool Mixer::applyDueCommands(std::uint64_t frame) noexcept {
    bool ended = false;
    while (const MixerCommand* command = mCommands.peek()) {
        if (command->frame > frame) {
            break;
        }
        ended = apply(*command, frame) || ended;
        mCommands.popFront();
    }
    return ended;
}

std::size_t Mixer::renderImpl(float* out, std::size_t frames, bool stopAtEnd) noexcept {
    std::memset(out, 0, frames * 2 * sizeof(float));
    // Reading the steady clock is a vDSO call: no system call, safe on the audio thread.
    mBlockStartedAt = std::chrono::steady_clock::now().time_since_epoch();
    std::uint64_t frame = mFrame.load(std::memory_order_relaxed);
    const std::uint64_t endsBefore = mEnds.load(std::memory_order_relaxed);
    std::size_t done = 0;
    while (done < frames) {
        const bool endedOnApply = applyDueCommands(frame);
        if (stopAtEnd && endedOnApply) {
            break;
        }
        std::size_t segment = frames - done;
        if (const MixerCommand* next = mCommands.peek()) {
            segment =
                static_cast<std::size_t>(std::min<std::uint64_t>(segment, next->frame - frame));
        }
        if (stopAtEnd) {
            for (const Voice& voice : mVoices) {
                segment = std::min(segment, voice.framesUntilEnd(segment));
            }
        }

        bool ended = false;
        float* dst = out + 2 * done;
        for (std::size_t slot = 0; slot < mVoices.size(); ++slot) {
            Voice& voice = mVoices[slot];
            if (voice.state == Voice::State::free) {
                continue;
            }
            std::size_t endOffset = 0;
            VoiceEnded::Reason reason = VoiceEnded::Reason::finished;
            if (voice.mix(dst, segment, endOffset, reason)) {
                emitEnd(slot, frame + endOffset, reason);
                ended = true;
            } else {
                mPublished[slot].position.store(voice.position, std::memory_order_relaxed);
                if (voice.state == Voice::State::paused) {
                    publish(slot, VoiceState::paused);
                }
            }
        }
        frame += segment;
        done += segment;
        mFrame.store(frame, std::memory_order_release);
        if (stopAtEnd && ended) {
            break;
        }
    }
    // The last line of defence before a device or a file: NaN becomes silence, everything else
    // is clamped to full scale.
    MixKernel::clampToFullScale(out, done * 2);
    std::size_t active = 0;
    for (const Voice& voice : mVoices) {
        active += voice.state != Voice::State::free ? 1 : 0;
    }
    mActiveVoices.store(active, std::memory_order_relaxed);
    if (mEnds.load(std::memory_order_relaxed) != endsBefore) {
        if (EndSignal* signal = mEndSignal.load(std::memory_order_acquire)) {
            signal->voicesEnded();
        }
    }
    return done;
}

} // namespace vantelo_sounds::engine
