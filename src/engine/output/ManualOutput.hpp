#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/WavWriter.hpp"
#include "engine/output/Output.hpp"

namespace vantelo_sounds::engine {

/// The offline output: no thread, no device. The engine renders it on request as the manual clock
/// advances; the mix optionally goes into a WAV file (the command-line program's renders) and into
/// a capture buffer (tests that listen to what was played).
class ManualOutput final : public Output {
public:
    /// Largest number of frames rendered by one render() call.
    static constexpr std::size_t kBlockFrames = 1024;

    /// `wavPath` empty: the mix is discarded.
    explicit ManualOutput(std::string wavPath = {});

    const char* name() const noexcept override { return "manual"; }
    Expected<void> start(Mixer& mixer) override;
    void stop() noexcept override;
    bool isManual() const noexcept override { return true; }

    /// Renders up to min(`frames`, kBlockFrames) frames, returning early just after a frame on
    /// which a voice ended. Returns the frames rendered. Called on the control thread.
    std::size_t render(std::size_t frames) override;
    std::string deviceName() const override { return mWavPath; }

    /// Appends every rendered frame (interleaved stereo) to `samples` from now on; nullptr stops.
    void setCapture(std::vector<float>* samples) noexcept { mCapture = samples; }
    /// Completes the WAV file now; later frames are still rendered but no longer written. Fails
    /// with the errno of the first write that failed. Harmless without a file.
    Expected<void> finishFile() { return mWav.close(); }

private:
    std::string mWavPath;
    WavWriter mWav;
    Mixer* mMixer = nullptr;
    std::vector<float> mBuffer;
    std::vector<float>* mCapture = nullptr;
};

} // namespace vantelo_sounds::engine
