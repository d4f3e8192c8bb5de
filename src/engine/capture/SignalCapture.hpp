#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "engine/capture/CaptureSource.hpp"

namespace vantelo_sounds::engine {

/// A microphone that hears a signal made in the program: silence, a steady tone or a sound file,
/// at the mixer's rate (a recording resamples it to its file's rate, as it would a device's).
/// It stands in for the device in tests and scenarios. In manual time the recorder pulls frames
/// with read() as the clock advances; in real time start() pushes them from a thread of its own,
/// paced by the steady clock.
class SignalCapture final : public CaptureSource {
public:
    /// Fills `out` with `frames` frames, the first of which is frame `first` since the start.
    using Generator = std::function<void(float* out, std::size_t frames, std::uint64_t first)>;

    SignalCapture(Generator generator, int rate);
    ~SignalCapture() override;

    static std::unique_ptr<SignalCapture> silence();
    /// A sine of `frequency` Hz with peak `amplitude`.
    static std::unique_ptr<SignalCapture> tone(double frequency, double amplitude);
    /// The sound of a file (mixed down to mono) once, then silence. The file is decoded here.
    static Expected<std::unique_ptr<SignalCapture>> file(const std::string& path);

    const char* name() const noexcept override { return "signal"; }
    int rate() const noexcept override { return mRate; }
    Expected<void> start(FrameRing& ring) override;
    void stop() noexcept override;

    /// Manual time: the next `frames` frames of the signal.
    void read(float* out, std::size_t frames);

private:
    void pace(FrameRing& ring);

    Generator mGenerator;
    int mRate;
    std::uint64_t mPosition = 0;
    std::mutex mMutex;
    std::condition_variable mWake;
    bool mStopping = false;
    std::thread mThread;
};

} // namespace vantelo_sounds::engine
