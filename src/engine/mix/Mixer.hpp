#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/mix/Voice.hpp"
#include "engine/mix/VoiceHandle.hpp"
#include "engine/rt/MixerCommand.hpp"
#include "engine/rt/SpscQueue.hpp"
#include "engine/rt/VoiceEnded.hpp"

namespace vantelo_sounds::engine {

/// Mixes a fixed pool of voices into interleaved stereo float frames at kMixRate.
///
/// Two threads use it. The control thread sends commands (each stamped with the mix frame at
/// which it applies) and takes back "voice ended" events; the audio thread calls render(). The two
/// meet only in bounded lock-free queues and per-voice atomics. Slots are handed out by the caller
/// (the Engine): a slot may be started again only after its end event has been taken.
class Mixer {
public:
    static constexpr std::size_t kDefaultVoices = 96;

    /// What the control thread can see of a voice without waiting for its end event.
    enum class VoiceState : std::uint8_t { unknown, playing, paused, ended };

    explicit Mixer(std::size_t voices = kDefaultVoices, std::size_t commandCapacity = 1024);
    Mixer(const Mixer&) = delete;
    Mixer& operator=(const Mixer&) = delete;

    std::size_t voiceCount() const noexcept { return mVoices.size(); }

    // ---- control thread ---------------------------------------------------------------------
    /// Queues a command; false when the command queue is full (nothing is sent then).
    bool send(const MixerCommand& command) noexcept { return mCommands.tryPush(command); }
    /// Takes the next "voice ended" event; false when there is none.
    bool pollEvent(VoiceEnded& event) noexcept { return mEvents.tryPop(event); }
    /// The state the audio thread last published for `voice`; `unknown` while its start command
    /// has not been applied yet or when the slot has moved on to another generation.
    VoiceState voiceState(VoiceHandle voice) const noexcept;
    /// The frame of the voice's source that plays next, as last published by the audio thread.
    std::size_t voicePosition(VoiceHandle voice) const noexcept;
    /// True while a voice sounds, waits or pauses, or a command waits to be applied. Any thread.
    bool busy() const noexcept {
        return mActiveVoices.load(std::memory_order_relaxed) > 0 || mCommands.size() > 0;
    }
    /// Is told, on the audio thread, after every render in which voices ended (nullptr: nobody).
    /// It must be as cheap and as safe as the render itself: no lock, no allocation (an eventfd
    /// write that wakes the control thread is the intended use).
    class EndSignal {
    public:
        virtual void voicesEnded() noexcept = 0;

    protected:
        ~EndSignal() = default;
    };
    void setEndSignal(EndSignal* signal) noexcept {
        mEndSignal.store(signal, std::memory_order_release);
    }
    /// "Voice ended" events emitted since the mixer was made. Any thread.
    std::uint64_t endsEmitted() const noexcept { return mEnds.load(std::memory_order_acquire); }
    /// Events lost because the event queue was full (never, while its capacity exceeds the
    /// voice count, which the constructor ensures).
    std::uint64_t droppedEvents() const noexcept { return mEvents.dropped(); }

    // ---- audio thread -----------------------------------------------------------------------
    /// Renders `frames` frames into `out` (2 * frames floats), applying queued commands on their
    /// frames. Every sample is finite and within [-1, 1]. Called on the audio thread: no
    /// allocation, lock, I/O or user code.
    void render(float* out, std::size_t frames) noexcept;
    /// Like render(), but returns early, just after the frame on which a voice ended (so that its
    /// end can be delivered before the mix goes on). Returns the frames rendered; 0 only when a
    /// voice ended on the very first frame.
    std::size_t renderUntilVoiceEnds(float* out, std::size_t frames) noexcept;
    /// Frames rendered since the mixer was made: the mix frame of the next sample. Any thread.
    std::uint64_t renderedFrames() const noexcept { return mFrame.load(std::memory_order_acquire); }

private:
    struct Published {
        std::atomic<std::uint64_t> state{0}; // generation << 8 | VoiceState
        std::atomic<std::size_t> position{0};
    };

    std::size_t renderImpl(float* out, std::size_t frames, bool stopAtEnd) noexcept;
    bool applyDueCommands(std::uint64_t frame) noexcept;
    bool apply(const MixerCommand& command, std::uint64_t frame) noexcept;
    void publish(std::size_t slot, VoiceState state) noexcept;
    void emitEnd(std::size_t slot, std::uint64_t frame, VoiceEnded::Reason reason) noexcept;

    std::vector<Voice> mVoices;
    std::unique_ptr<Published[]> mPublished;
    SpscQueue<MixerCommand> mCommands;
    SpscQueue<VoiceEnded> mEvents;
    std::atomic<std::uint64_t> mFrame{0};
    std::atomic<std::uint64_t> mEnds{0};
    std::atomic<std::size_t> mActiveVoices{0};
    std::chrono::steady_clock::duration mBlockStartedAt{}; // audio thread only
    std::atomic<EndSignal*> mEndSignal{nullptr};
};

} // namespace vantelo_sounds::engine
