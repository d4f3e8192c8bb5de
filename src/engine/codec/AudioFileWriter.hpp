#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vantelo_sounds/Expected.hpp>

#include "engine/codec/AudioFileFormat.hpp"
#include "engine/codec/WriteError.hpp"

namespace vantelo_sounds::engine {

/// Writes float PCM (mono or stereo, any rate) to an audio file through FFmpeg: the recorder's
/// M4A and the test fixtures. Non-finite samples are written as silence. Used by one thread.
class AudioFileWriter {
public:
    struct Options {
        /// Bits per second for lossy formats; 0 picks a default for the format and channels.
        int bitRate = 0;
        /// M4A only: write fragments as it goes so a file cut off by a crash stays readable
        /// (all but the last, incomplete fragment). A cut-off file's duration includes the
        /// encoder's priming samples.
        bool fragmented = false;
        /// M4A fragmented only: close() rewrites the complete file as a plain one, whose edit
        /// list hides the priming samples (players then report and play the exact length).
        bool plainWhenClosed = false;
        /// M4A fragmented only: fragment length in seconds.
        double fragmentSeconds = 1.0;
        /// The file's sample rate when it differs from the rate of the frames written (0: the
        /// same); the writer resamples.
        int encodedRate = 0;
    };

    AudioFileWriter();
    ~AudioFileWriter(); ///< closes (writes the trailer) if still open
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    /// Whether this FFmpeg build can write `format` (ogg needs a Vorbis or Opus encoder).
    static bool supports(AudioFileFormat format);

    /// Creates (or truncates) the file at `path`. `channels` is 1 or 2, `sampleRate` (Hz) is the
    /// rate of the frames written.
    /// Opening again while open closes the previous file first.
    Expected<void> open(const std::string& path, AudioFileFormat format, int sampleRate,
                        int channels, const Options& options);
    Expected<void> open(const std::string& path, AudioFileFormat format, int sampleRate,
                        int channels) {
        return open(path, format, sampleRate, channels, Options{});
    }

    /// Encodes `frames` interleaved frames (frames, not samples).
    Expected<void> write(const float* interleaved, std::size_t frames);

    /// Flushes the encoder and writes the trailer. Safe to call when not open.
    Expected<void> close();

    bool isOpen() const noexcept;
    /// Frames accepted by write() since open().
    std::uint64_t framesWritten() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
    std::string mFragmentedPath; // rewritten as a plain file by close()
};

} // namespace vantelo_sounds::engine
