#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/Decoder.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/OfflineAudio.hpp"

namespace vantelo_sounds::test {

/// A whole file decoded, as stereo (a mono sound in both channels) for OfflineAudio.
struct DecodedSound {
    engine::SoundInfo info;
    std::vector<float> stereo;
    bool failed = false;

    std::size_t frames() const { return stereo.size() / 2; }
    OfflineAudio audio() const { return OfflineAudio(stereo); }
};

/// Decodes to the end (a test failure if it never comes).
inline DecodedSound decodeAll(engine::Decoder& decoder) {
    DecodedSound sound{decoder.info(), {}};
    const auto channels = std::size_t(sound.info.channels); // as decoded: 1 or 2
    engine::SoundData data(sound.info.channels, std::size_t{60} * engine::kMixRate);
    for (int steps = 0; !decoder.atEnd() && steps < 10000; ++steps) {
        decoder.decodeInto(data, 4096);
    }
    EXPECT_TRUE(decoder.atEnd()) << "decoding does not end";
    sound.failed = !decoder.outcome().hasValue();
    std::vector<float> samples(data.frames() * channels);
    data.read(0, samples.data(), data.frames());
    for (std::size_t i = 0; i < samples.size(); i += channels) {
        sound.stereo.insert(sound.stereo.end(), {samples[i], samples[i + channels - 1]});
    }
    return sound;
}

inline DecodedSound decodeFile(const std::string& path) {
    auto opened = engine::Decoder::open(path);
    EXPECT_TRUE(opened) << path << ": " << (opened ? "" : opened.failure().describe());
    return opened ? decodeAll(*opened.value()) : DecodedSound{};
}

} // namespace vantelo_sounds::test
