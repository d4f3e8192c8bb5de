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

std::array<unsigned char, kHeaderBytes> headerFor(std::uint64_t frames) noexcept {
    // Sizes saturate at the format's 4 GiB limit; such a file is still readable up to there.
    const std::uint64_t dataBytes64 = frames * kChannels * kBytesPerSample;
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
    put32(p, static_cast<std::uint32_t>(std::min<std::uint64_t>(frames, 0xffffffffu)));
    putTag(p, "data");
    put32(p, dataBytes);
    return header;
}

} // namespace

WavWriter::~WavWriter() {
    (void)close();
}

Expected<void> WavWriter::open(const std::string& path) {
    (void)close();
    mPath = path;
    mFrames = 0;
    mHeaderFrames = 0;
    mError.clear();
    mFile.reset(std::fopen(path.c_str(), "wb"));
    if (!mFile) {
        return Expected<void>(std::error_code(errno, std::generic_category()), path);
    }
    // The empty file's header reaches the disk at once: the file is readable from the start.
    const auto header = headerFor(0);
    if (std::fwrite(header.data(), 1, header.size(), mFile.get()) != header.size() ||
        std::fflush(mFile.get()) != 0) {
        const std::error_code error(errno, std::generic_category());
        mFile.reset();
        return Expected<void>(error, path);
    }
    return {};
}

bool WavWriter::fail() noexcept {
    if (!mError) {
        mError = std::error_code(errno != 0 ? errno : EIO, std::generic_category());
    }
    return false;
}

bool WavWriter::updateHeader() noexcept {
    // The data reaches the file before the header that counts it, so that at every moment the
    // header says at most what the file holds.
    if (std::fflush(mFile.get()) != 0 || std::fseek(mFile.get(), 0, SEEK_SET) != 0) {
        return fail();
    }
    const auto header = headerFor(mFrames);
    if (std::fwrite(header.data(), 1, header.size(), mFile.get()) != header.size() ||
        std::fflush(mFile.get()) != 0 || std::fseek(mFile.get(), 0, SEEK_END) != 0) {
        return fail();
    }
    mHeaderFrames = mFrames;
    return true;
}

bool WavWriter::write(const float* interleavedStereo, std::size_t frames) noexcept {
    if (!mFile || mError) {
        return false;
    }
    const std::size_t samples = frames * kChannels;
    errno = 0;
    if (std::fwrite(interleavedStereo, sizeof(float), samples, mFile.get()) != samples) {
        return fail();
    }
    mFrames += frames;
    if (mFrames - mHeaderFrames >= kHeaderUpdateFrames) {
        return updateHeader();
    }
    return true;
}

Expected<void> WavWriter::close() {
    if (mFile) {
        errno = 0;
        if (!mError) {
            updateHeader();
        }
        std::FILE* file = mFile.release();
        if (std::fclose(file) != 0) {
            fail();
        }
    }
    if (mError) {
        return Expected<void>(mError, mPath);
    }
    return {};
}

} // namespace vantelo_sounds::engine
