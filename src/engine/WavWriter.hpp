#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vantelo_sounds/Expected.hpp>

namespace vantelo_sounds::engine {

/// Writes a 48 kHz stereo 32-bit float WAV file. The header is kept true as the file grows: after
/// every second of audio written, the data reaches the file and the header's sizes are rewritten
/// in place, so a process killed while writing leaves a readable file that holds at least all but
/// its last second. Used on one thread (the writing thread, never a device's audio thread).
class WavWriter {
public:
    /// How much audio may be written before the header is brought up to date (frames).
    static constexpr std::uint64_t kHeaderUpdateFrames = 48000;

    WavWriter() = default;
    ~WavWriter();
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    /// Creates (or truncates) `path`. Fails with the errno of the failed call and `path` as the
    /// detail.
    Expected<void> open(const std::string& path);
    bool isOpen() const noexcept { return mFile != nullptr; }
    /// Appends interleaved stereo frames. False once a write has failed (disk full, ...).
    bool write(const float* interleavedStereo, std::size_t frames) noexcept;
    /// Completes the header and closes. Fails with the errno of the first write that failed along
    /// the way; harmless when not open.
    Expected<void> close();
    std::uint64_t framesWritten() const noexcept { return mFrames; }

private:
    struct FileCloser {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    /// Flushes the data, rewrites the header for the frames written so far and returns to the end.
    bool updateHeader() noexcept;
    bool fail() noexcept;

    std::unique_ptr<std::FILE, FileCloser> mFile;
    std::string mPath;
    std::uint64_t mFrames = 0;
    std::uint64_t mHeaderFrames = 0; // the frame count the header on disk says
    std::error_code mError;          // the first failure since open()
};

} // namespace vantelo_sounds::engine
