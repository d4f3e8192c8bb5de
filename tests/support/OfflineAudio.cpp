#include "support/OfflineAudio.hpp"

namespace vantelo_sounds::test {

double OfflineAudio::rms(int channel, std::size_t first, std::size_t last) const {
    last = clampLast(last);
    double sum = 0.0;
    for (std::size_t f = first; f < last; ++f) {
        const double x = sample(f, channel);
        sum += x * x;
    }
    return first < last ? std::sqrt(sum / static_cast<double>(last - first)) : 0.0;
}

float OfflineAudio::peak(int channel, std::size_t first, std::size_t last) const {
    float result = 0.0f;
    for (std::size_t f = first, end = clampLast(last); f < end; ++f) {
        result = std::max(result, std::abs(sample(f, channel)));
    }
    return result;
}

float OfflineAudio::maxStep(int channel, std::size_t first, std::size_t last) const {
    float result = 0.0f;
    for (std::size_t f = first + 1, end = clampLast(last); f < end; ++f) {
        result = std::max(result, std::abs(sample(f, channel) - sample(f - 1, channel)));
    }
    return result;
}

double OfflineAudio::zeroCrossingFrequency(int channel, std::size_t first, std::size_t last) const {
    last = clampLast(last);
    std::size_t crossings = 0;
    for (std::size_t f = first + 1; f < last; ++f) {
        crossings += sample(f - 1, channel) < 0.0f && sample(f, channel) >= 0.0f ? 1 : 0;
    }
    return first < last
               ? static_cast<double>(crossings) * 48000.0 / static_cast<double>(last - first)
               : 0.0;
}

std::optional<std::size_t> OfflineAudio::firstNonSilentFrame(float threshold,
                                                             std::size_t from) const {
    for (std::size_t f = from; f < frames(); ++f) {
        if (loud(f, threshold)) {
            return f;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> OfflineAudio::endOfSound(float threshold) const {
    for (std::size_t f = frames(); f > 0; --f) {
        if (loud(f - 1, threshold)) {
            return f;
        }
    }
    return std::nullopt;
}

bool OfflineAudio::allFiniteAndInRange() const {
    return std::all_of(mSamples.begin(), mSamples.end(),
                       [](float x) { return std::isfinite(x) && x >= -1.0f && x <= 1.0f; });
}

} // namespace vantelo_sounds::test
