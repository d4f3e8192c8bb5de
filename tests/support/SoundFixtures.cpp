#include "support/SoundFixtures.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/WavFile.hpp"

namespace vantelo_sounds::test {
namespace {

namespace fs = std::filesystem;

std::vector<float> sine(double hz, double seconds, int rate, int channels, float amplitude) {
    const auto frames = static_cast<std::size_t>(std::llround(seconds * rate));
    std::vector<float> samples(frames * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < frames; ++i) {
        const auto v = static_cast<float>(
            amplitude * std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / rate));
        for (int c = 0; c < channels; ++c) {
            samples[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)] = v;
        }
    }
    return samples;
}

} // namespace

std::string SoundFixtures::path(const std::string& name) const {
    return mFolder / name;
}

std::string SoundFixtures::writeBytes(const std::string& name, const std::string& bytes) {
    return mFolder.write(name, bytes);
}

std::string SoundFixtures::readBytes(const std::string& file, std::size_t length) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    std::string bytes = content.str();
    if (length < bytes.size()) {
        bytes.resize(length);
    }
    return bytes;
}

std::string SoundFixtures::tone(const std::string& name, double hz, double seconds, int rate,
                                int channels, float amplitude, WavEncoding encoding) {
    WavFile wav;
    wav.format = encoding == WavEncoding::float32 ? WavFile::kFloat : WavFile::kPcm;
    wav.bits = encoding == WavEncoding::pcm16 ? 16 : encoding == WavEncoding::pcm24 ? 24 : 32;
    wav.channels = channels;
    wav.rate = rate;
    wav.samples = sine(hz, seconds, rate, channels, amplitude);
    return writeBytes(name, wav.bytes());
}

std::string SoundFixtures::encoded(const std::string& name, engine::AudioFileFormat format,
                                   double hz, double seconds, int rate, int channels,
                                   float amplitude,
                                   const engine::AudioFileWriter::Options& options) {
    const std::string target = path(name);
    const std::vector<float> samples = sine(hz, seconds, rate, channels, amplitude);
    engine::AudioFileWriter writer;
    auto error = writer.open(target, format, rate, channels, options);
    if (!error) {
        error = writer.write(samples.data(), samples.size() / static_cast<std::size_t>(channels));
    }
    if (!error) {
        error = writer.close();
    }
    if (error) {
        ADD_FAILURE() << "cannot make " << name << ": " << error->detail;
        return "";
    }
    return target;
}

std::string SoundFixtures::bad(BadFile kind) {
    using engine::AudioFileFormat;
    switch (kind) {
    case BadFile::missing:
        return path("missing.wav");
    case BadFile::empty:
        return writeBytes("empty.wav", "");
    case BadFile::directory: {
        const std::string target = path("x.wav");
        fs::create_directories(target);
        return target;
    }
    case BadFile::fifo: {
        const std::string target = path("fifo.wav");
        if (::access(target.c_str(), F_OK) != 0 && ::mkfifo(target.c_str(), 0600) != 0) {
            ADD_FAILURE() << "cannot make a FIFO";
        }
        return target;
    }
    case BadFile::text:
        return writeBytes("text.wav", "This is not a sound file, just a line of text.\n"
                                      "And another one, to make it look like a document.\n");
    case BadFile::truncatedWav: {
        const std::string whole = tone("whole-for-cut.wav", 440, 2.0);
        const std::string bytes = readBytes(whole);
        return writeBytes("truncated.wav", bytes.substr(0, 44 + 48000 * 2 + 1));
    }
    case BadFile::truncatedMp3: {
        const std::string whole = encoded("whole-for-cut.mp3", AudioFileFormat::mp3, 440, 2.0);
        const std::string bytes = readBytes(whole);
        return writeBytes("truncated.mp3", bytes.substr(0, bytes.size() / 2 + 77));
    }
    case BadFile::truncatedM4a: {
        const std::string whole = encoded("whole-for-cut.m4a", AudioFileFormat::m4a, 440, 2.0);
        const std::string bytes = readBytes(whole);
        return writeBytes("truncated.m4a", bytes.substr(0, bytes.size() / 2));
    }
    case BadFile::truncatedFragmentedM4a: {
        engine::AudioFileWriter::Options options;
        options.fragmented = true;
        options.fragmentSeconds = 0.25;
        const std::string whole = encoded("whole-for-cut-frag.m4a", AudioFileFormat::m4a, 440, 2.0,
                                          48000, 1, 0.5f, options);
        const std::string bytes = readBytes(whole);
        return writeBytes("truncated-frag.m4a", bytes.substr(0, bytes.size() / 2));
    }
    case BadFile::concatScript:
        tone("listed.wav", 440, 1.0);
        return writeBytes("concat.wav", "ffconcat version 1.0\nfile 'listed.wav'\n");
    case BadFile::hlsPlaylist:
        tone("listed.wav", 440, 1.0);
        return writeBytes("playlist.wav", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1.0,\n"
                                          "listed.wav\n#EXT-X-ENDLIST\n");
    case BadFile::colonPath:
        return tone("a:b.wav", 440, 1.0);
    case BadFile::mp3NamedWav: {
        const std::string mp3 = encoded("real.mp3", AudioFileFormat::mp3, 440, 1.0);
        return writeBytes("mp3-inside.wav", readBytes(mp3));
    }
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
        const std::string m4a = encoded("for-ftyp.m4a", AudioFileFormat::m4a, 440, 0.5);
        const std::string bytes = readBytes(m4a);
        const auto size = (static_cast<std::size_t>(static_cast<unsigned char>(bytes[0])) << 24) |
                          (static_cast<std::size_t>(static_cast<unsigned char>(bytes[1])) << 16) |
                          (static_cast<std::size_t>(static_cast<unsigned char>(bytes[2])) << 8) |
                          static_cast<std::size_t>(static_cast<unsigned char>(bytes[3]));
        EXPECT_EQ(bytes.substr(4, 4), "ftyp");
        return writeBytes("only-ftyp.m4a", bytes.substr(0, std::min(size, bytes.size())));
    }
    case BadFile::protectedM4p: {
        const std::string m4a = encoded("for-drm.m4a", AudioFileFormat::m4a, 440, 0.5);
        std::string bytes = readBytes(m4a);
        // The sample entry's format names the protection scheme instead of the codec.
        const std::size_t at = bytes.find("mp4a");
        EXPECT_NE(at, std::string::npos);
        if (at != std::string::npos) {
            bytes.replace(at, 4, "drms");
        }
        return writeBytes("protected.m4p", bytes);
    }
    case BadFile::danglingSymlink: {
        const std::string target = path("dangling.wav");
        std::error_code ignored;
        fs::create_symlink(path("nowhere.wav"), target, ignored);
        return target;
    }
    case BadFile::symlinkLoop: {
        const std::string target = path("loop.wav");
        std::error_code ignored;
        fs::create_symlink(target, target, ignored);
        return target;
    }
    case BadFile::symlinkToSound: {
        const std::string real = tone("symlinked-real.wav", 440, 1.0);
        const std::string target = path("link.wav");
        std::error_code ignored;
        fs::create_symlink(real, target, ignored);
        return target;
    }
    }
    return path("unknown");
}

} // namespace vantelo_sounds::test
