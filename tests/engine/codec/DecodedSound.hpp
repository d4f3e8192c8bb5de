#pragma once

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/Decoder.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::test {

/// A whole file decoded, with the measurements the decoder tests make on it. Ranges are in
/// frames at the mix rate, `to` excluded.
struct DecodedSound {
    engine::SoundInfo info;
    int channels = 0;
    std::vector<float> samples; // interleaved
    bool failed = false;

    std::size_t frames() const {
        return channels == 0 ? 0 : samples.size() / static_cast<std::size_t>(channels);
    }
    double at(std::size_t frame, int channel) const {
        return samples[frame * static_cast<std::size_t>(channels) +
                       static_cast<std::size_t>(channel)];
    }

    double rms(int channel, std::size_t from = 0, std::size_t to = SIZE_MAX) const {
        to = std::min(to, frames());
        double sum = 0;
        for (std::size_t i = from; i < to; ++i) {
            sum += at(i, channel) * at(i, channel);
        }
        return to > from ? std::sqrt(sum / static_cast<double>(to - from)) : 0.0;
    }

    /// Frequency from the rising zero crossings.
    double frequency(int channel, std::size_t from = 0, std::size_t to = SIZE_MAX) const {
        std::vector<std::size_t> rising;
        for (std::size_t i = from + 1; i < std::min(to, frames()); ++i) {
            if (at(i - 1, channel) < 0 && at(i, channel) >= 0) {
                rising.push_back(i);
            }
        }
        return rising.size() < 2 ? 0.0
                                 : double(rising.size() - 1) * engine::kMixRate /
                                       double(rising.back() - rising.front());
    }

    /// The largest jump between neighbouring frames: a click or a reset filter shows here.
    double maxStep(int channel, std::size_t from = 0, std::size_t to = SIZE_MAX) const {
        double step = 0;
        for (std::size_t i = from + 1; i < std::min(to, frames()); ++i) {
            step = std::max(step, std::abs(at(i, channel) - at(i - 1, channel)));
        }
        return step;
    }

    /// The largest jump a loop makes within a few frames either side of the seam, where the
    /// frame after the last is the first of the next pass, on the worst channel.
    double seamStep() const {
        const std::size_t n = frames();
        double step = 0;
        for (std::size_t i = n - std::min<std::size_t>(n, 8); i < n + 8 && n > 0; ++i) {
            for (int c = 0; c < channels; ++c) {
                step = std::max(step, std::abs(at((i + 1) % n, c) - at(i % n, c)));
            }
        }
        return step;
    }

    bool allFinite() const {
        return std::all_of(samples.begin(), samples.end(),
                           [](float s) { return std::isfinite(s); });
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
