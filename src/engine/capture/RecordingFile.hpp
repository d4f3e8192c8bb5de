#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vantelo_sounds/Expected.hpp>
#include <vector>

#include "engine/codec/AudioFileWriter.hpp"

namespace vantelo_sounds::engine {

/// A microphone recording being written: mono frames, made safe (a NaN or infinite sample becomes
/// silence, anything beyond full scale is clipped) and encoded with AAC into a fragmented M4A
/// whose fragments reach the disk as they are made, so that a process killed while recording
/// leaves a file that plays up to its last whole fragment; finish() completes it properly. It
/// takes at most a fixed number of frames, so a recording's length is counted in captured
/// samples. Used by one thread at a time.
class RecordingFile {
public:
    /// Every AAC frame (64 ms at 16 kHz) is its own fragment, so that a crash loses little: the
    /// frame being filled and the one the encoder holds back. The headers this costs (about 45 %
    /// more bytes) stay only in a cut-off file: a complete one is rewritten as a plain file.
    static constexpr double kFragmentSeconds = 0.01;

    struct Settings {
        std::string path;
        int inputRate = 16000;         ///< rate of the frames appended
        int fileRate = 16000;          ///< rate of the file (the encoder's)
        int bitRate = 0;               ///< 0: the writer's default for the rate
        std::uint64_t limitFrames = 0; ///< input frames it takes at most
    };

    /// Creates (or truncates) the file and writes its header. Fails with the file's errno or a
    /// WriteError.
    static Expected<std::unique_ptr<RecordingFile>> create(const Settings& settings);

    /// Appends up to `frames` frames, never past the limit; returns how many it took.
    Expected<std::size_t> append(const float* samples, std::size_t frames);
    /// Appends `frames` frames of silence (sound lost on the way is kept as a gap, so that what
    /// follows stays in time).
    Expected<std::size_t> appendSilence(std::size_t frames);
    /// Flushes the encoder and writes the trailer. The file is complete afterwards even when it
    /// fails (what was written before stays readable).
    Expected<void> finish();

    /// Sets how many input frames it takes at most (before or while appending).
    void setLimitFrames(std::uint64_t limit) noexcept { mLimit = limit; }
    bool isFull() const noexcept { return mFrames >= mLimit; }
    /// Input frames taken so far.
    std::uint64_t frames() const noexcept { return mFrames; }
    std::uint64_t limitFrames() const noexcept { return mLimit; }
    int inputRate() const noexcept { return mInputRate; }
    /// Seconds taken so far.
    double seconds() const noexcept { return static_cast<double>(mFrames) / mInputRate; }
    /// True once a sample other than zero has been taken.
    bool heardAnything() const noexcept { return mHeard; }
    /// Samples that were NaN, infinite or beyond full scale and were made safe.
    std::uint64_t repairedSamples() const noexcept { return mRepaired; }

private:
    RecordingFile(int inputRate, std::uint64_t limit);

    AudioFileWriter mWriter;
    int mInputRate;
    std::uint64_t mLimit;
    std::uint64_t mFrames = 0;
    std::uint64_t mRepaired = 0;
    bool mHeard = false;
    std::vector<float> mClean;
};

} // namespace vantelo_sounds::engine
