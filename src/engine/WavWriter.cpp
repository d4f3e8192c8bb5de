#include "engine/WavWriter.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

namespace {

constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kBytesPerSample = 4;
constexpr std::uint32_t kHeaderBytes = 58; // RIFF + fmt (extensible-free float) + fact + data

void put16(unsigned char*& p, std::uint32_t v) {
    *p++ = static_cast<unsigned char>(v & 0xff);
    *p++ = static_cast<unsigned char>((v >> 8) & 0xff);
}

void put32(unsigned char*& p, std::uint32_t v) {
    put16(p, v & 0xffff);
    put16(p, v >> 16);
}

void putTag(unsigned char*& p, const char* tag) {
    std::memcpy(p, tag, 4);
    p += 4;
}

} // namespace

WavWriter::~WavWriter() {
    close();
}

bool WavWriter::open(const std::string& path, std::string& error) {
    close();
    mFile.reset(std::fopen(path.c_str(), "wb"));
    if (!mFile) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    mFrames = 0;
    mFailed = false;
    if (!writeHeader()) {
        error = path + ": " + std::strerror(errno);
        mFile.reset();
        return false;
    }
    return true;
}

bool WavWriter::writeHeader() noexcept {
    // Sizes saturate at the format's 4 GiB limit; such a file is still readable up to there.
    const std::uint64_t dataBytes64 = mFrames * kChannels * kBytesPerSample;
    const auto dataBytes = static_cast<std::uint32_t>(std::min<std::uint64_t>(
        dataBytes64, std::numeric_limits<std::uint32_t>::max() - kHeaderBytes));
    std::array<unsigned char, kHeaderBytes> header{};
    unsigned char* p = header.data();
    putTag(p, "RIFF");
    put32(p, kHeaderBytes - 8 + dataBytes);
    putTag(p, "WAVE");
    putTag(p, "fmt ");
    put32(p, 18);
    put16(p, 3); // IEEE float
    put16(p, kChannels);
    put32(p, static_cast<std::uint32_t>(kMixRate));
    put32(p, static_cast<std::uint32_t>(kMixRate) * kChannels * kBytesPerSample);
    put16(p, kChannels * kBytesPerSample);
    put16(p, kBytesPerSample * 8);
    put16(p, 0); // no extension
    putTag(p, "fact");
    put32(p, 4);
    put32(p, static_cast<std::uint32_t>(std::min<std::uint64_t>(mFrames, 0xffffffffu)));
    putTag(p, "data");
    put32(p, dataBytes);
    return std::fseek(mFile.get(), 0, SEEK_SET) == 0 &&
           std::fwrite(header.data(), 1, header.size(), mFile.get()) == header.size();
}

bool WavWriter::write(const float* interleavedStereo, std::size_t frames) noexcept {
    if (!mFile || mFailed) {
        return false;
    }
    const std::size_t samples = frames * kChannels;
    if (std::fwrite(interleavedStereo, sizeof(float), samples, mFile.get()) != samples) {
        mFailed = true;
        return false;
    }
    mFrames += frames;
    return true;
}

bool WavWriter::close() noexcept {
    if (!mFile) {
        return !mFailed;
    }
    bool ok = !mFailed && writeHeader();
    ok = std::fflush(mFile.get()) == 0 && ok;
    ok = std::fclose(mFile.release()) == 0 && ok;
    mFailed = !ok;
    return ok;
}

} // namespace vantelo_sounds::engine
