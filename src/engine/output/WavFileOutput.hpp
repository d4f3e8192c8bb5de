#pragma once

#include <string>

#include "engine/WavWriter.hpp"
#include "engine/output/Output.hpp"
#include "engine/output/PacedRenderThread.hpp"

namespace vantelo_sounds::engine {

/// Writes the mix to a WAV file (48 kHz, stereo, 32-bit float) on its own thread: in real time,
/// like a device, or as fast as it can while something plays (the silence between sounds is then
/// left out). The header is kept true as the file grows and completed by stop().
class WavFileOutput final : public Output {
public:
    WavFileOutput(std::string path, bool realTime);
    ~WavFileOutput() override { stop(); }

    const char* name() const noexcept override { return "wav"; }
    Expected<void> start(Mixer& mixer) override;
    void stop() noexcept override;
    std::string deviceName() const override { return mPath; }

private:
    std::string mPath;
    bool mRealTime;
    WavWriter mWriter;
    PacedRenderThread mThread;
};

} // namespace vantelo_sounds::engine
