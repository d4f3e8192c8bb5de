#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace vantelo_sounds::engine {

/// Writes a 48 kHz stereo 32-bit float WAV file. The header's sizes are written on close(), so a
/// file that was never closed still opens in most tools, with a length of 0.
class WavWriter {
public:
    WavWriter() = default;
    ~WavWriter();
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    /// Creates (or truncates) `path`. On failure returns false and says why in `error`.
    bool open(const std::string& path, std::string& error);
    bool isOpen() const noexcept { return mFile != nullptr; }
    /// Appends interleaved stereo frames. False once a write has failed (disk full, ...).
    bool write(const float* interleavedStereo, std::size_t frames) noexcept;
    /// Fixes the header and closes. False when anything failed along the way.
    bool close() noexcept;
    std::uint64_t framesWritten() const noexcept { return mFrames; }

private:
    struct FileCloser {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    bool writeHeader() noexcept;

    std::unique_ptr<std::FILE, FileCloser> mFile;
    std::uint64_t mFrames = 0;
    bool mFailed = false;
};

} // namespace vantelo_sounds::engine
