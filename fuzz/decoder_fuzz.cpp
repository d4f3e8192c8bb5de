// Any bytes as a sound file: opened by path and decoded to the end the way the sound cache's
// worker does it, with the decoded length capped, then every sample checked to be finite.

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "engine/codec/Decoder.hpp"
#include "engine/sound/SoundData.hpp"

namespace {

using vantelo_sounds::Expected;
using vantelo_sounds::engine::Decoder;
using vantelo_sounds::engine::kMixRate;
using vantelo_sounds::engine::SoundData;

// Ten seconds at the mix rate: a few bytes that claim hours of sound must not cost gigabytes.
constexpr std::size_t kMaxFrames = std::size_t{10} * kMixRate;
// The cache's worker decodes half a second at a time.
constexpr std::size_t kStepFrames = kMixRate / 2;

[[noreturn]] void fault(const char* what) {
    std::fprintf(stderr, "decoder_fuzz: %s\n", what);
    std::abort();
}

// The input lives in a memory file that the decoder opens by path, as it opens a file on disk:
// no disk writes and nothing to clean up.
struct MemoryFile {
    int fd = -1;
    std::string path;
};

const MemoryFile& memoryFile() {
    static const MemoryFile file = [] {
        const int fd = ::memfd_create("decoder-fuzz-input", MFD_CLOEXEC);
        if (fd < 0) {
            fault("memfd_create failed");
        }
        return MemoryFile{fd, "/proc/self/fd/" + std::to_string(fd)};
    }();
    return file;
}

void replaceContents(int fd, const std::uint8_t* data, std::size_t size) {
    if (::ftruncate(fd, 0) != 0) {
        fault("cannot truncate the input file");
    }
    std::size_t written = 0;
    while (written < size) {
        const ssize_t n = ::pwrite(fd, data + written, size - written, static_cast<off_t>(written));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            fault("cannot write the input file");
        }
        written += static_cast<std::size_t>(n);
    }
}

void checkSamples(const SoundData& sound) {
    const auto channels = static_cast<std::size_t>(sound.channels());
    std::size_t frame = 0;
    while (frame < sound.frames()) {
        std::size_t contiguous = 0;
        const float* samples = sound.framesAt(frame, contiguous);
        if (samples == nullptr || contiguous == 0) {
            fault("an available frame cannot be read");
        }
        for (std::size_t i = 0; i < contiguous * channels; ++i) {
            if (!std::isfinite(samples[i])) {
                fault("a decoded sample is not a finite number");
            }
        }
        frame += contiguous;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile& file = memoryFile();
    replaceContents(file.fd, data, size);

    auto opened = Decoder::open(file.path);
    if (!opened) {
        return 0;
    }
    Decoder& decoder = *opened.value();
    const int channels = decoder.info().channels;
    if (channels != 1 && channels != 2) {
        fault("a sound opened with neither 1 nor 2 channels");
    }

    SoundData sound(channels, kMaxFrames);
    while (!decoder.atEnd()) {
        if (decoder.decodeInto(sound, kStepFrames) == 0 && !decoder.atEnd()) {
            fault("decodeInto gave no frames before the end");
        }
    }
    const Expected<void>& outcome = decoder.outcome();
    if (!outcome && !outcome.error()) {
        fault("a failed outcome without an error code");
    }
    sound.finish(outcome.hasValue());
    if (sound.frames() > kMaxFrames) {
        fault("the sound grew past its frame limit");
    }
    checkSamples(sound);
    return 0;
}
