#pragma once

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/Decoder.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/OfflineAudio.hpp"

namespace vantelo_sounds::test {

/// A whole file decoded, kept as stereo (a mono sound in both channels) for OfflineAudio's
/// measurements.
struct DecodedSound {
    engine::SoundInfo info;
    std::vector<float> stereo;
    bool failed = false;

    std::size_t frames() const { return stereo.size() / 2; }
    OfflineAudio audio() const { return OfflineAudio(stereo); }

    /// The largest step a loop makes within a few frames either side of its seam, where the
    /// frame after the last is the first of the next pass.
    double seamStep() const {
        const std::size_t n = frames();
        double step = 0;
        for (std::size_t i = n - std::min<std::size_t>(n, 8); i < n + 8 && n > 0; ++i) {
            for (std::size_t c = 0; c < 2; ++c) {
                step = std::max(
                    step, double(std::abs(stereo[(i + 1) % n * 2 + c] - stereo[i % n * 2 + c])));
            }
        }
        return step;
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
    const auto channels = std::size_t(sound.info.channels); // as decoded: 1 or 2
    engine::SoundData data(sound.info.channels, std::size_t{20} * 60 * engine::kMixRate);
    while (!decoder.atEnd()) {
        decoder.decodeInto(data, 4096);
    }
    sound.failed = !decoder.outcome().hasValue();
    std::vector<float> samples(data.frames() * channels);
    data.read(0, samples.data(), data.frames());
    for (std::size_t i = 0; i < samples.size(); i += channels) {
        sound.stereo.push_back(samples[i]);
        sound.stereo.push_back(samples[i + channels - 1]);
    }
    return sound;
}

} // namespace vantelo_sounds::test
