#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include "engine/Engine.hpp"

namespace vantelo_sounds {

/// Which output the process's audio system plays on.
struct OutputConfig {
    enum class Kind {
        automatic, ///< the sound device when one opens, else the null output
        sdl,       ///< the sound device (the null output while it cannot open)
        null,      ///< real time, no sound
        wav,       ///< real time, into `wavPath`
        manual,    ///< rendered as a manual run loop advances, optionally into `wavPath`
    };
    Kind kind = Kind::automatic;
    std::string wavPath;

    /// From VANTELO_SOUNDS_OUTPUT ("sdl", "null", "wav:PATH", "manual"); automatic when unset or
    /// not understood.
    static OutputConfig fromEnvironment();
};

/// The process's one audio engine, adapted to the platform: it lives on a run loop, as one of its
/// sources. In manual time it renders the mix as the loop's clock advances (stopping on the exact
/// frame where a voice ends, so that its end is delivered before time goes on); in real time the
/// audio thread wakes the loop when voices end, and ends are delivered on the pass that follows,
/// one voice at a time. Used on the run loop's thread.
class AudioSystem final : public RunLoopSource, private engine::Mixer::EndSignal {
public:
    /// Called on the run loop's thread when a voice ended; `at` is the time of the first frame
    /// after its last sounding frame.
    using EndHandler = std::function<void(const engine::VoiceEnded& event, Duration at)>;

    /// The audio system of RunLoop::main(), made on first use (and again after the main loop has
    /// been replaced) with the output of OutputConfig::fromEnvironment(). A manual main loop
    /// always gets the manual output.
    static AudioSystem& shared();
    /// The same, as a shared pointer, for objects that must keep it alive (players).
    static std::shared_ptr<AudioSystem> sharedPointer();
    /// Replaces the shared audio system with one on RunLoop::main() playing on `config`'s output.
    /// Objects made on the old one keep it alive.
    static AudioSystem& reset(OutputConfig config);
    /// The same with an output of the caller's (a fault-injecting device in tests).
    static AudioSystem& reset(std::unique_ptr<engine::Output> output);

    AudioSystem(RunLoop& loop, OutputConfig config);
    AudioSystem(RunLoop& loop, std::unique_ptr<engine::Output> output);
    ~AudioSystem() override;
    AudioSystem(const AudioSystem&) = delete;
    AudioSystem& operator=(const AudioSystem&) = delete;

    engine::Engine& engine() noexcept { return *mEngine; }
    RunLoop& runLoop() noexcept { return mLoop; }
    /// The output rendering now ("sdl", "null", "wav", "manual").
    const char* outputName() const noexcept { return mEngine->outputName(); }

    /// Sounds that play at once. When a start finds them all in use, one voice is taken from a
    /// sound already playing: first the oldest whose player nobody holds any more (only the
    /// audio system keeps it alive, for its end), else the quietest (paused ones count as silent,
    /// the oldest first among equals). It fades out and ends with reason `stolen`, and the new
    /// sound plays in a spare slot meanwhile.
    static constexpr std::size_t kVoiceLimit = 96;
    /// Spare slots for sounds that start while the voices they replace fade out.
    static constexpr std::size_t kSpareVoices = 32;

    /// Starts a voice now. `onEnd` runs once when it ends by itself or after a stop; `keepAlive`
    /// is held until then (a player whose callback must still come). Empty only when not even a
    /// spare slot is left (more than kSpareVoices starts within one block with every voice busy)
    /// or the command queue is full.
    std::optional<engine::VoiceHandle> startVoice(std::shared_ptr<const engine::FrameSource> data,
                                                  engine::VoiceParams params, EndHandler onEnd,
                                                  std::shared_ptr<const void> keepAlive);
    /// Says `text` on standard error, as the library's own line.
    static void warn(const std::string& text);
    /// What the audio system says once on standard error, the first time it happens.
    enum class Warning { voicesRanOut, soundMemoryFull };
    void warnOnce(Warning warning, const std::string& text);

    /// Replaces what a started voice keeps alive (nullptr: nothing). Stale handles are ignored.
    void setKeepAlive(engine::VoiceHandle voice, std::shared_ptr<const void> keepAlive);
    void stopVoice(engine::VoiceHandle voice);
    void pauseVoice(engine::VoiceHandle voice);
    void resumeVoice(engine::VoiceHandle voice);
    void setVoiceParams(engine::VoiceHandle voice, engine::VoiceParams params);

    /// Real time: records the mix played from the next block on into a 48 kHz stereo float WAV
    /// file at `path`, keeping at most `maxFrames` frames. Fails when the file cannot be created
    /// or the loop is manual (its output writes the render itself).
    Expected<void> startRecordingMix(const std::string& path,
                                     std::uint64_t maxFrames = engine::MixTap::kNoLimit) {
        return mEngine->startRecordingMix(path, maxFrames);
    }
    /// Completes the recorded file, padded with silence up to `padToFrames` frames; says how
    /// many frames it holds and how many the audio thread had to drop.
    Expected<engine::MixTap::Summary> stopRecordingMix(std::uint64_t padToFrames = 0) {
        return mEngine->stopRecordingMix(padToFrames);
    }

    /// The time a sound starting or stopping now is stamped with: the current mix frame's time in
    /// manual time (exact to the frame), the loop's clock in real time.
    Duration now() const { return mLoop.isManual() ? timeOfFrame(currentFrame()) : mLoop.now(); }
    /// The current mix frame on the loop's clock (manual: round(now * 48000)).
    std::uint64_t currentFrame() const noexcept;
    /// The loop time of a mix frame.
    static Duration timeOfFrame(std::uint64_t frame) noexcept;
    static std::uint64_t frameOfTime(Duration time) noexcept;

    // ---- RunLoopSource ----------------------------------------------------------------------
    Duration advanceTo(Duration target) override;
    void dispatch() override;
    std::optional<Duration> pollInterval() const override;
    bool isBusy() const override;

private:
    struct VoiceRecord {
        std::uint32_t generation = 0;
        EndHandler onEnd;
        std::shared_ptr<const void> keepAlive;
        std::uint64_t startOrder = 0;
        float volume = 1.0f;
        bool paused = false;
        bool ending = false; // stopped or stolen: already on its way out
        bool stolen = false;
    };

    VoiceRecord* recordOf(engine::VoiceHandle voice) noexcept;
    void stealVoice();

    void voicesEnded() noexcept override;
    /// Polls the output; a device lost or back is said on standard error, told to the playback
    /// observer and posted as the session's interruption.
    void watchOutput();
    std::uint64_t commandFrame() const noexcept;
    Duration timeOfEnd(std::uint64_t frame) const noexcept;

    RunLoop& mLoop;
    std::unique_ptr<engine::Engine> mEngine;
    std::vector<VoiceRecord> mVoices;
    std::uint64_t mStarts = 0;
    std::size_t mStolenFading = 0; // stolen voices whose end has not been drained yet
    std::vector<Warning> mWarned;
};

} // namespace vantelo_sounds
