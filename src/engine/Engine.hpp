#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vantelo_sounds/Expected.hpp>
#include <vector>

#include "engine/cache/SoundCache.hpp"
#include "engine/mix/Mixer.hpp"
#include "engine/mix/VoiceHandle.hpp"
#include "engine/mix/VoiceParams.hpp"
#include "engine/output/MixTap.hpp"
#include "engine/output/Output.hpp"
#include "engine/output/OutputSwitch.hpp"
#include "engine/rt/MixerCommand.hpp"
#include "engine/rt/VoiceEnded.hpp"

namespace vantelo_sounds::engine {

class FrameSource;
class ManualOutput;
class SpeechWorker;

/// The audio engine as the control thread sees it: a mixer, the output that renders it and the
/// decoded-sound cache. Every member function is called on the control thread (one thread).
///
/// Voices are started from sources (kept sounds or streams) the engine keeps alive until their end
/// has been taken with drainEvents(), so the audio thread never drops the last reference. Commands
/// carry the mix frame at which they apply (MixerCommand::kNow: the next block), so that in manual
/// time voices start and stop on exact frames.
class Engine {
public:
    /// What happened to the output, reported by pollOutput().
    using OutputChange = OutputSwitch::Change;

    /// Takes the output and starts it. When it cannot start, startResult() says why and the
    /// engine falls back (see OutputSwitch): a manual output to one without a file (still in step
    /// with its clock), any other to the real-time null output.
    explicit Engine(std::unique_ptr<Output> output, std::size_t voices = Mixer::kDefaultVoices,
                    std::size_t cacheBytes = std::size_t{256} << 20);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    /// The sound of a file, from the cache (a kept sound possibly still filling, or one that
    /// streams).
    Expected<LoadedSound> load(const std::string& path) { return mCache->load(path); }
    SoundCache& cache() noexcept { return *mCache; }
    /// The speech worker, started on first use (espeak-ng loads its data then).
    SpeechWorker& speech();

    /// Starts a voice at mix frame `frame`. Empty when every voice is in use or the command queue
    /// is full. `params` are sanitized here.
    std::optional<VoiceHandle> start(std::shared_ptr<const FrameSource> data, VoiceParams params,
                                     std::uint64_t frame = MixerCommand::kNow);
    /// Fades the voice out (a few ms) and ends it with reason `stopped`. Stale handles are ignored.
    void stop(VoiceHandle voice, std::uint64_t frame = MixerCommand::kNow);
    /// Fades out and holds the position; resume() fades back in from there.
    void pause(VoiceHandle voice, std::uint64_t frame = MixerCommand::kNow);
    void resume(VoiceHandle voice, std::uint64_t frame = MixerCommand::kNow);
    /// Ramps to new pan and volume (the loop count of a started voice does not change).
    void setParams(VoiceHandle voice, VoiceParams params, std::uint64_t frame = MixerCommand::kNow);

    /// True while the voice sounds: started, not paused, not stopped, not ended (the audio
    /// thread's end is seen at once, before its event is drained).
    bool isActive(VoiceHandle voice) const noexcept;
    /// Voices started whose end has not been drained yet.
    std::size_t voicesInUse() const noexcept { return mInUse; }
    std::size_t voiceCapacity() const noexcept { return mSlots.size(); }

    /// Takes every "voice ended" event in order, releases the voice's sound data and slot, then
    /// calls `handler(event)`. The handler may start, stop or drain again.
    template <typename Handler>
    void drainEvents(Handler&& handler) {
        VoiceEnded event;
        while (mMixer.pollEvent(event)) {
            release(event.voice);
            handler(event);
        }
    }

    /// Told on the audio thread after a render in which voices ended (see Mixer::EndSignal).
    void setEndSignal(Mixer::EndSignal* signal) noexcept { mMixer.setEndSignal(signal); }
    /// The mix frame of the next sample the output will render.
    std::uint64_t renderedFrame() const noexcept { return mMixer.renderedFrames(); }
    bool isManual() const noexcept { return mOutputs->isManual(); }
    /// Manual time only: renders up to mix frame `frame`, stopping just after a frame on which
    /// a voice ended. Before rendering, waits (bounded) for the sound data of playing voices to be
    /// decoded far enough, so that renders do not depend on the decoder's speed. Returns the
    /// frame reached.
    std::uint64_t renderUntil(std::uint64_t frame);
    /// The offline output chosen (its file, its capture), or nullptr.
    ManualOutput* manualOutput() noexcept { return mOutputs->manualOutput(); }

    /// Notices a lost or stalled device (the null output takes over at once) and brings a
    /// returning one back; `now` is the caller's clock. Call it regularly on the control thread
    /// while outputNeedsPolling().
    OutputChange pollOutput(std::chrono::nanoseconds now) { return mOutputs->poll(now); }
    bool outputNeedsPolling() const noexcept { return mOutputs->needsPolling(); }
    /// True while the null output stands in for an output that failed or was lost.
    bool isFallingBack() const noexcept { return mOutputs->isFallingBack(); }
    /// The output rendering now: "sdl", "null", "wav", "manual".
    const char* outputName() const noexcept { return mOutputs->name(); }
    /// The device or file it plays to ("" for none).
    std::string outputDevice() const { return mOutputs->deviceName(); }
    /// Real time: records the mix the output plays (whichever output renders, across a device
    /// loss) into a 48 kHz stereo float WAV file at `path`, from the next rendered block on,
    /// keeping at most `maxFrames` frames. Fails with the errno of a file that cannot be created,
    /// or with OutputError::manualWritesItsOwnFile on the manual output.
    Expected<void> startRecordingMix(const std::string& path,
                                     std::uint64_t maxFrames = MixTap::kNoLimit);
    /// Ends the recording: the file gets what is still in flight, silence up to `padToFrames`
    /// frames, and its completed header. Fails with OutputError::notRecording when not recording.
    Expected<MixTap::Summary> stopRecordingMix(std::uint64_t padToFrames = 0) {
        return mTap.close(padToFrames);
    }
    bool isRecordingMix() const noexcept { return mTap.isOpen(); }

    /// Whether the output given to the constructor started (the last time it was tried): a
    /// failure says why it could not.
    const Expected<void>& startResult() const noexcept { return mOutputs->startResult(); }
    /// The same in words for a message (empty when it started): "PATH: reason" for a file, the
    /// device's own words for a device.
    std::string startError() const;

    Mixer& mixer() noexcept { return mMixer; }

private:
    struct Slot {
        std::shared_ptr<const FrameSource> data;
        std::uint32_t generation = 0;
        bool busy = false;
        bool stopped = false;
        bool paused = false;
    };

    Slot* slotFor(VoiceHandle voice) noexcept;
    const Slot* slotFor(VoiceHandle voice) const noexcept;
    void release(VoiceHandle voice) noexcept;
    bool send(MixerCommand::Kind kind, VoiceHandle voice, std::uint64_t frame,
              VoiceParams params = {});
    void waitForSources(std::size_t frames);

    Mixer mMixer;
    MixTap mTap; // outlives the outputs that feed it
    std::unique_ptr<OutputSwitch> mOutputs;
    std::unique_ptr<SoundCache> mCache;
    std::unique_ptr<SpeechWorker> mSpeech;
    std::vector<Slot> mSlots;
    std::size_t mInUse = 0;
    std::size_t mNextSlot = 0;
};

} // namespace vantelo_sounds::engine
