#pragma once

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/Decoder.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::test {

/// A whole file decoded, with the measurements the decoder tests make on it.
struct DecodedSound {
    engine::SoundInfo info;
    int channels = 0;
    std::vector<float> samples; // interleaved
    bool failed = false;

    std::size_t frames() const {
        return channels == 0 ? 0 : samples.size() / static_cast<std::size_t>(channels);
    }

    double rms(int channel, std::size_t from = 0, std::size_t to = SIZE_MAX) const {
        to = std::min(to, frames());
        double sum = 0;
        for (std::size_t i = from; i < to; ++i) {
            const double v =
                samples[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel)];
            sum += v * v;
        }
        return to > from ? std::sqrt(sum / static_cast<double>(to - from)) : 0.0;
    }

    /// Frequency from rising zero crossings between `from` and `to` (frames at 48 kHz).
    double frequency(int channel, std::size_t from = 0, std::size_t to = SIZE_MAX) const {
        to = std::min(to, frames());
        std::size_t first = 0;
        std::size_t last = 0;
        int crossings = 0;
        for (std::size_t i = from + 1; i < to; ++i) {
            const float a = samples[(i - 1) * static_cast<std::size_t>(channels) +
                                    static_cast<std::size_t>(channel)];
            const float b =
                samples[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel)];
            if (a < 0 && b >= 0) {
                if (crossings == 0) {
                    first = i;
                }
                last = i;
                ++crossings;
            }
        }
        if (crossings < 2) {
            return 0;
        }
        return (crossings - 1) * static_cast<double>(engine::kMixRate) /
               static_cast<double>(last - first);
    }

    /// The largest jump between neighbouring samples: a click or a reset filter shows here.
    double maxStep(int channel, std::size_t from = 0, std::size_t to = SIZE_MAX) const {
        to = std::min(to, frames());
        double step = 0;
        for (std::size_t i = from + 1; i < to; ++i) {
            const std::size_t c = static_cast<std::size_t>(channel);
            const auto n = static_cast<std::size_t>(channels);
            step = std::max(step, double(std::abs(samples[i * n + c] - samples[(i - 1) * n + c])));
        }
        return step;
    }

    bool allFinite() const {
        for (const float s : samples) {
            if (!std::isfinite(s)) {
                return false;
            }
        }
        return true;
    }
};

/// Opens and decodes the whole file; fails the test if it cannot be opened.
inline DecodedSound decodeFile(const std::string& path) {
    DecodedSound sound;
    auto opened = engine::Decoder::open(path);
    if (!opened) {
        ADD_FAILURE() << path << ": " << opened.failure().describe();
        return sound;
    }
    engine::Decoder& decoder = *opened.value();
    sound.info = decoder.info();
    sound.channels = sound.info.channels;
    engine::SoundData data(sound.channels, std::size_t{20} * 60 * engine::kMixRate);
    while (!decoder.atEnd()) {
        decoder.decodeInto(data, 4096);
    }
    sound.failed = !decoder.outcome().hasValue();
    sound.samples.resize(data.frames() * static_cast<std::size_t>(sound.channels));
    data.read(0, sound.samples.data(), data.frames());
    return sound;
}

} // namespace vantelo_sounds::test
