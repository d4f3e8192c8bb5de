#include "support/WavFile.hpp"

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

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

// Full scale of an integer sample of `bits`: 2^(bits - 1).
double fullScale(int bits) {
    return std::ldexp(1.0, bits - 1);
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
    const int width = bits / 8;
    std::string data;
    data.reserve(samples.size() * static_cast<std::size_t>(width));
    for (const float s : samples) {
        if (format == kFloat) {
            std::uint32_t raw = 0;
            std::memcpy(&raw, &s, sizeof raw);
            putLe(data, raw, 4);
        } else {
            const auto v = static_cast<std::int64_t>(std::lround(s * (fullScale(bits) - 1.0)));
            putLe(data, static_cast<std::uint64_t>(v), width);
        }
    }
    return header(format, static_cast<std::uint32_t>(channels), static_cast<std::uint32_t>(rate),
                  bits, static_cast<std::uint32_t>(data.size())) +
           data;
}

WavFile WavFile::read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    const std::string b = content.str();
    WavFile wav;
    wav.channels = 0;
    if (b.size() < 12 || b.compare(0, 4, "RIFF") != 0 || b.compare(8, 4, "WAVE") != 0) {
        ADD_FAILURE() << path << " is not a RIFF/WAVE file";
        return wav;
    }
    std::size_t dataAt = 0;
    std::size_t dataBytes = 0;
    for (std::size_t at = 12; at + 8 <= b.size() && dataAt == 0;) {
        const std::string id = b.substr(at, 4);
        const std::size_t size = getLe(b, at + 4, 4);
        const std::size_t body = at + 8;
        if (id == "fmt " && body + 16 <= b.size()) {
            wav.format = static_cast<int>(getLe(b, body, 2));
            wav.channels = static_cast<int>(getLe(b, body + 2, 2));
            wav.rate = static_cast<int>(getLe(b, body + 4, 4));
            wav.bits = static_cast<int>(getLe(b, body + 14, 2));
            if (wav.format == 0xFFFE && size >= 26 && body + 26 <= b.size()) {
                wav.format = static_cast<int>(getLe(b, body + 24, 2));
            }
        } else if (id == "data") {
            dataAt = body;
            // Being written: the size is filled in when the writer closes the file.
            dataBytes = size == 0 || size > b.size() - body ? b.size() - body : size;
        }
        at = body + size + (size & 1u);
    }
    const bool known =
        (wav.format == kPcm && (wav.bits == 16 || wav.bits == 24 || wav.bits == 32)) ||
        (wav.format == kFloat && wav.bits == 32);
    if (dataAt == 0 || wav.channels <= 0 || !known) {
        ADD_FAILURE() << path << ": no data, or a format other than 16/24/32-bit PCM or float ("
                      << wav.format << ", " << wav.bits << " bits, " << wav.channels
                      << " channels)";
        wav.channels = 0;
        return wav;
    }
    const std::size_t width = static_cast<std::size_t>(wav.bits / 8);
    const std::size_t frameBytes = width * static_cast<std::size_t>(wav.channels);
    wav.samples.resize(dataBytes / frameBytes * static_cast<std::size_t>(wav.channels));
    for (std::size_t i = 0; i < wav.samples.size(); ++i) {
        const std::size_t at = dataAt + i * width;
        if (wav.format == kFloat) {
            std::memcpy(&wav.samples[i], b.data() + at, sizeof(float));
        } else {
            // Sign-extend by placing the sample in the top bits of a 32-bit integer.
            const auto raw =
                static_cast<std::int32_t>(getLe(b, at, static_cast<int>(width)) << (32 - wav.bits));
            wav.samples[i] = static_cast<float>(raw / 2147483648.0);
        }
    }
    return wav;
}

} // namespace vantelo_sounds::test
