#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

namespace vantelo_sounds::test {

/// Measures rendered audio: interleaved stereo float frames at 48 kHz, as the mixer makes them.
/// Frame ranges are [first, last); `last` is clamped to the buffer.
class OfflineAudio {
public:
    static constexpr std::size_t kEnd = static_cast<std::size_t>(-1);

    explicit OfflineAudio(const std::vector<float>& interleavedStereo)
        : mSamples(interleavedStereo) {}

    std::size_t frames() const noexcept { return mSamples.size() / 2; }
    float sample(std::size_t frame, int channel) const { return mSamples[2 * frame + channel]; }

    double rms(int channel, std::size_t first = 0, std::size_t last = kEnd) const;
    float peak(int channel, std::size_t first = 0, std::size_t last = kEnd) const;
    /// The largest difference between two neighbouring samples of the channel.
    float maxStep(int channel, std::size_t first = 0, std::size_t last = kEnd) const;
    /// Frequency from the count of upward zero crossings, in Hz.
    double zeroCrossingFrequency(int channel, std::size_t first = 0, std::size_t last = kEnd) const;
    /// The first frame where either channel exceeds `threshold` in magnitude.
    std::optional<std::size_t> firstNonSilentFrame(float threshold = 1e-6f,
                                                   std::size_t from = 0) const;
    /// The frame after the last one where either channel exceeds `threshold` in magnitude.
    std::optional<std::size_t> endOfSound(float threshold = 1e-6f) const;
    /// True when every sample is finite and within [-1, 1].
    bool allFiniteAndInRange() const;

private:
    std::size_t clampLast(std::size_t last) const noexcept { return std::min(last, frames()); }
    bool loud(std::size_t frame, float threshold) const {
        return std::abs(sample(frame, 0)) > threshold || std::abs(sample(frame, 1)) > threshold;
    }

    const std::vector<float>& mSamples;
};

} // namespace vantelo_sounds::test
