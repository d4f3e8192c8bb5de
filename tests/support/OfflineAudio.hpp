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

    double rms(int channel, std::size_t first = 0, std::size_t last = kEnd) const {
        last = std::min(last, frames());
        double sum = 0.0;
        for (std::size_t f = first; f < last; ++f) {
            const double x = sample(f, channel);
            sum += x * x;
        }
        return first < last ? std::sqrt(sum / static_cast<double>(last - first)) : 0.0;
    }
    float peak(int channel, std::size_t first = 0, std::size_t last = kEnd) const {
        float result = 0.0f;
        for (std::size_t f = first; f < std::min(last, frames()); ++f) {
            result = std::max(result, std::abs(sample(f, channel)));
        }
        return result;
    }
    /// The largest difference between two neighbouring samples of the channel.
    float maxStep(int channel, std::size_t first = 0, std::size_t last = kEnd) const {
        float result = 0.0f;
        for (std::size_t f = first + 1; f < std::min(last, frames()); ++f) {
            result = std::max(result, std::abs(sample(f, channel) - sample(f - 1, channel)));
        }
        return result;
    }
    /// Frequency from the count of upward zero crossings, in Hz.
    double zeroCrossingFrequency(int channel, std::size_t first = 0,
                                 std::size_t last = kEnd) const {
        last = std::min(last, frames());
        double crossings = 0;
        for (std::size_t f = first + 1; f < last; ++f) {
            crossings += sample(f - 1, channel) < 0.0f && sample(f, channel) >= 0.0f ? 1 : 0;
        }
        return first < last ? crossings * 48000.0 / static_cast<double>(last - first) : 0.0;
    }
    /// The first frame where either channel exceeds `threshold` in magnitude.
    std::optional<std::size_t> firstNonSilentFrame(float threshold = 1e-6f,
                                                   std::size_t from = 0) const {
        for (std::size_t f = from; f < frames(); ++f) {
            if (loud(f, threshold)) {
                return f;
            }
        }
        return std::nullopt;
    }
    /// The frame after the last one where either channel exceeds `threshold` in magnitude.
    std::optional<std::size_t> endOfSound(float threshold = 1e-6f) const {
        for (std::size_t f = frames(); f > 0; --f) {
            if (loud(f - 1, threshold)) {
                return f;
            }
        }
        return std::nullopt;
    }
    /// True when every sample is finite and within [-1, 1].
    bool allFiniteAndInRange() const {
        return std::all_of(mSamples.begin(), mSamples.end(),
                           [](float x) { return std::isfinite(x) && x >= -1.0f && x <= 1.0f; });
    }

private:
    bool loud(std::size_t frame, float threshold) const {
        return std::abs(sample(frame, 0)) > threshold || std::abs(sample(frame, 1)) > threshold;
    }

    const std::vector<float>& mSamples;
};

} // namespace vantelo_sounds::test
