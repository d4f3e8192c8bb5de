#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {

/// A float WAV file as a player would read it: the format the header declares and the samples
/// its data chunk says it holds (never more than the file has).
struct WavFile {
    int format = 0; ///< 3: IEEE float
    int channels = 0;
    int rate = 0;
    int bits = 0;
    std::vector<float> samples; ///< interleaved

    std::size_t frames() const { return channels > 0 ? samples.size() / channels : 0; }

    static WavFile read(const std::string& path) {
        const std::string bytes = SoundFixtures::readBytes(path);
        const auto le = [&](std::size_t at, int size) {
            std::uint32_t value = 0;
            for (int i = size - 1; i >= 0; --i) {
                value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
            }
            return value;
        };
        WavFile wav;
        if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") != 0 ||
            bytes.compare(8, 4, "WAVE") != 0) {
            ADD_FAILURE() << path << " is not a RIFF/WAVE file";
            return wav;
        }
        for (std::size_t at = 12; at + 8 <= bytes.size();) {
            const std::uint32_t size = le(at + 4, 4);
            const std::size_t body = at + 8;
            if (bytes.compare(at, 4, "fmt ") == 0) {
                wav.format = static_cast<int>(le(body, 2));
                wav.channels = static_cast<int>(le(body + 2, 2));
                wav.rate = static_cast<int>(le(body + 4, 4));
                wav.bits = static_cast<int>(le(body + 14, 2));
            } else if (bytes.compare(at, 4, "data") == 0) {
                const std::size_t length = std::min<std::size_t>(size, bytes.size() - body);
                wav.samples.resize(length / sizeof(float));
                if (!wav.samples.empty()) {
                    std::memcpy(wav.samples.data(), bytes.data() + body, wav.samples.size() * 4);
                }
            }
            at = body + size + (size & 1u);
        }
        return wav;
    }
};

} // namespace vantelo_sounds::test
