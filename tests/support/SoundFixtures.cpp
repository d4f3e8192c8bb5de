#include "support/SoundFixtures.hpp"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/WavFile.hpp"

namespace vantelo_sounds::test {
namespace {

namespace fs = std::filesystem;

std::vector<float> sine(double hz, double seconds, int rate, int channels, float amplitude) {
    std::vector<float> samples;
    for (long long i = 0; i < std::llround(seconds * rate); ++i) {
        const double phase = 2.0 * std::numbers::pi * hz * static_cast<double>(i) / rate;
        samples.insert(samples.end(), static_cast<std::size_t>(channels),
                       static_cast<float>(amplitude * std::sin(phase)));
    }
    return samples;
}

} // namespace

std::string SoundFixtures::readBytes(const std::string& file, std::size_t length) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {}).substr(0, length);
}

std::string SoundFixtures::tone(const std::string& name, double hz, double seconds, int rate,
                                int channels, float amplitude, WavEncoding encoding) {
    const int bits = 16 + 8 * static_cast<int>(encoding); // pcm16, pcm24, float32
    const WavFile wav{encoding == WavEncoding::float32 ? WavFile::kFloat : WavFile::kPcm, channels,
                      rate, bits, sine(hz, seconds, rate, channels, amplitude)};
    return writeBytes(name, wav.bytes());
}

std::string SoundFixtures::encoded(const std::string& name, engine::AudioFileFormat format,
                                   double hz, double seconds, int rate, int channels,
                                   float amplitude,
                                   const engine::AudioFileWriter::Options& options) {
    const std::string target = path(name);
    const std::vector<float> samples = sine(hz, seconds, rate, channels, amplitude);
    engine::AudioFileWriter writer;
    auto written = writer.open(target, format, rate, channels, options);
    written =
        written ? writer.write(samples.data(), samples.size() / std::size_t(channels)) : written;
    written = written ? writer.close() : written;
    if (!written) {
        ADD_FAILURE() << "cannot make " << name << ": " << written.failure().describe();
        return "";
    }
    return target;
}

std::string SoundFixtures::bad(BadFile kind) {
    using engine::AudioFileFormat;
    // The first half of a 2 s file of `format` (plus `extra` bytes, to cut mid-frame).
    const auto firstHalf = [this](const std::string& name, AudioFileFormat format,
                                  std::size_t extra,
                                  const engine::AudioFileWriter::Options& options = {}) {
        const std::string bytes =
            readBytes(encoded("whole-" + name, format, 440, 2.0, 48000, 1, 0.5f, options));
        return writeBytes(name, bytes.substr(0, bytes.size() / 2 + extra));
    };
    const auto symlink = [this](const std::string& name, const std::string& to) {
        std::error_code ignored;
        fs::create_symlink(to, path(name), ignored);
        return path(name);
    };
    switch (kind) {
    case BadFile::missing:
        return path("missing.wav");
    case BadFile::empty:
        return writeBytes("empty.wav", "");
    case BadFile::directory:
        fs::create_directories(path("x.wav"));
        return path("x.wav");
    case BadFile::fifo:
        ::mkfifo(path("fifo.wav").c_str(), 0600); // EEXIST the second time
        return path("fifo.wav");
    case BadFile::text:
        return writeBytes("text.wav", "This is not a sound file, just a line of text.\n"
                                      "And another one, to make it look like a document.\n");
    case BadFile::truncatedWav: // cut mid-sample at 1 s
        return writeBytes("truncated.wav",
                          readBytes(tone("whole-truncated.wav", 440, 2.0), 44 + 48000 * 2 + 1));
    case BadFile::truncatedMp3:
        return firstHalf("truncated.mp3", AudioFileFormat::mp3, 77);
    case BadFile::truncatedM4a:
        return firstHalf("truncated.m4a", AudioFileFormat::m4a, 0);
    case BadFile::truncatedFragmentedM4a:
        return firstHalf("truncated-frag.m4a", AudioFileFormat::m4a, 0,
                         {.fragmented = true, .fragmentSeconds = 0.25});
    case BadFile::concatScript:
        tone("listed.wav", 440, 1.0);
        return writeBytes("concat.wav", "ffconcat version 1.0\nfile 'listed.wav'\n");
    case BadFile::colonPath:
        return tone("a:b.wav", 440, 1.0);
    case BadFile::mp3NamedWav:
        return writeBytes("mp3-inside.wav",
                          readBytes(encoded("real.mp3", AudioFileFormat::mp3, 440, 1.0)));
    case BadFile::wavRateZero:
        return writeBytes("rate0.wav",
                          WavFile::header(WavFile::kPcm, 1, 0, 16, 4000) + std::string(4000, '\0'));
    case BadFile::wavRateOneHertz:
        return writeBytes("rate1.wav", WavFile::header(WavFile::kPcm, 1, 1, 8, 4096) +
                                           std::string(4096, '\x80'));
    case BadFile::wavManyChannels:
        return writeBytes("channels65535.wav",
                          WavFile::header(WavFile::kPcm, 65535, 48000, 16, 4000) +
                              std::string(4000, '\0'));
    case BadFile::wavHugeDataSize:
        return writeBytes("huge-claim.wav",
                          WavFile::header(WavFile::kPcm, 1, 48000, 16, 0xFFFFFFF0u) +
                              std::string(56, '\x10'));
    case BadFile::m4aOnlyFtyp: {
        const std::string bytes =
            readBytes(encoded("for-ftyp.m4a", AudioFileFormat::m4a, 440, 0.5));
        // The first box, under 256 bytes: its big-endian size is its fourth byte.
        EXPECT_EQ(bytes.substr(0, 8), std::string(3, '\0') + bytes[3] + "ftyp");
        return writeBytes("only-ftyp.m4a", bytes.substr(0, std::uint8_t(bytes[3])));
    }
    case BadFile::protectedM4p: {
        std::string bytes = readBytes(encoded("for-drm.m4a", AudioFileFormat::m4a, 440, 0.5));
        // The sample entry's format names the protection scheme instead of the codec.
        const std::size_t at = bytes.find("mp4a");
        EXPECT_NE(at, std::string::npos);
        return writeBytes("protected.m4p",
                          at == std::string::npos ? bytes : bytes.replace(at, 4, "drms"));
    }
    case BadFile::symlinkLoop:
        return symlink("loop.wav", path("loop.wav"));
    case BadFile::symlinkToSound:
        return symlink("link.wav", tone("symlinked-real.wav", 440, 1.0));
    }
    return path("unknown");
}

} // namespace vantelo_sounds::test
