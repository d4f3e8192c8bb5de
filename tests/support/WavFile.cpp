#include "support/WavFile.hpp"

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {
namespace {

void putLe(std::string& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
    }
}

std::uint32_t getLe(const std::string& in, std::size_t at, int bytes) {
    std::uint32_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) {
        value = value << 8 | static_cast<unsigned char>(in[at + static_cast<std::size_t>(i)]);
    }
    return value;
}

} // namespace

std::string WavFile::header(int format, std::uint32_t channels, std::uint32_t rate, int bits,
                            std::uint32_t dataBytes) {
    const std::uint64_t frameBytes = channels * static_cast<std::uint64_t>(bits / 8);
    std::string h = "RIFF";
    putLe(h, 36 + static_cast<std::uint64_t>(dataBytes), 4);
    h += "WAVEfmt ";
    putLe(h, 16, 4);
    putLe(h, static_cast<std::uint64_t>(format), 2);
    putLe(h, channels, 2);
    putLe(h, rate, 4);
    putLe(h, rate * frameBytes, 4);
    putLe(h, frameBytes, 2);
    putLe(h, static_cast<std::uint64_t>(bits), 2);
    h += "data";
    putLe(h, dataBytes, 4);
    return h;
}

std::string WavFile::bytes() const {
    std::string data;
    for (const float s : samples) {
        std::uint32_t raw = 0;
        std::memcpy(&raw, &s, sizeof raw);
        if (format == kPcm) { // full scale is 2^(bits - 1) - 1
            raw = static_cast<std::uint32_t>(std::lround(s * (std::ldexp(1.0, bits - 1) - 1.0)));
        }
        putLe(data, raw, bits / 8);
    }
    return header(format, static_cast<std::uint32_t>(channels), static_cast<std::uint32_t>(rate),
                  bits, static_cast<std::uint32_t>(data.size())) +
           data;
}

WavFile WavFile::read(const std::string& path) {
    const std::string b = SoundFixtures::readBytes(path);
    WavFile wav;
    std::size_t dataAt = 0;
    std::size_t dataBytes = 0;
    for (std::size_t at = 12; b.compare(0, 4, "RIFF") == 0 && at + 8 <= b.size() && !dataAt;) {
        const std::size_t size = getLe(b, at + 4, 4);
        const std::size_t body = at + 8;
        if (b.compare(at, 4, "fmt ") == 0 && body + 16 <= b.size()) {
            wav.format = static_cast<int>(getLe(b, body, 2));
            wav.channels = static_cast<int>(getLe(b, body + 2, 2));
            wav.rate = static_cast<int>(getLe(b, body + 4, 4));
            wav.bits = static_cast<int>(getLe(b, body + 14, 2));
        } else if (b.compare(at, 4, "data") == 0) {
            dataAt = body;
            // Being written: the size is filled in when the writer closes the file.
            dataBytes = size == 0 || size > b.size() - body ? b.size() - body : size;
        }
        at = body + size + (size & 1u);
    }
    const bool known = wav.format == kPcm ? wav.bits % 8 == 0 && wav.bits >= 16 && wav.bits <= 32
                                          : wav.format == kFloat && wav.bits == 32;
    if (!dataAt || wav.channels <= 0 || !known) {
        ADD_FAILURE() << path << " is not a 16/24/32-bit PCM or float WAV (format " << wav.format
                      << ", " << wav.bits << " bits, " << wav.channels << " channels)";
        return WavFile{};
    }
    const auto width = static_cast<std::size_t>(wav.bits / 8);
    wav.samples.resize(dataBytes / (width * static_cast<std::size_t>(wav.channels)) *
                       static_cast<std::size_t>(wav.channels));
    for (std::size_t i = 0; i < wav.samples.size(); ++i) {
        const std::uint32_t raw = getLe(b, dataAt + i * width, wav.bits / 8);
        if (wav.format == kFloat) {
            std::memcpy(&wav.samples[i], &raw, sizeof raw);
        } else { // the sample in the top bits of a signed 32-bit integer
            wav.samples[i] = static_cast<float>(static_cast<std::int32_t>(raw << (32 - wav.bits)) /
                                                2147483648.0);
        }
    }
    return wav;
}

} // namespace vantelo_sounds::test
