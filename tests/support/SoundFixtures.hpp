#pragma once

#include <string>

#include "engine/codec/AudioFileFormat.hpp"
#include "engine/codec/AudioFileWriter.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds::test {

/// Sound files made at test time in a temporary folder of their own: tones in every format the
/// decoder reads, and the bad files it must refuse cleanly.
class SoundFixtures {
public:
    enum class WavEncoding { pcm16, pcm24, float32 };

    /// Files that are broken, disguised or merely odd.
    enum class BadFile {
        missing,                ///< a path with nothing at it
        empty,                  ///< zero bytes, named .wav
        directory,              ///< a directory named x.wav
        fifo,                   ///< a FIFO named x.wav (opening it for reading would block)
        text,                   ///< plain text named .wav
        truncatedWav,           ///< a 2 s 16-bit WAV cut mid-sample at 1 s
        truncatedMp3,           ///< a 2 s MP3 cut mid-frame near 1 s
        truncatedM4a,           ///< a 2 s plain M4A cut in half: its moov (at the end) is gone
        truncatedFragmentedM4a, ///< a 2 s fragmented M4A (0.25 s fragments) cut in half
        concatScript,           ///< an ffconcat script named .wav listing a real sound
        colonPath,              ///< a good 1 s WAV whose name has a colon ("a:b.wav")
        mp3NamedWav,            ///< good MP3 data in a file named .wav
        wavRateZero,            ///< a WAV header declaring 0 Hz
        wavRateOneHertz,        ///< an 8-bit WAV at 1 Hz: 4 KB that would resample to 68 minutes
        wavManyChannels,        ///< a WAV header declaring 65535 channels
        wavHugeDataSize,        ///< a WAV declaring 4 GB of samples, holding 28
        m4aOnlyFtyp,            ///< the ftyp box of an M4A and nothing else
        protectedM4p,           ///< an M4A whose sample entry is marked DRM ('drms'), named .m4p
        symlinkLoop,            ///< a symlink to itself
        symlinkToSound,         ///< a symlink to a good WAV (fine)
    };

    std::string dir() const { return mFolder.path(); }
    std::string path(const std::string& name) const { return mFolder / name; }

    /// A sine WAV written directly (no FFmpeg): `channels` copies of the same tone.
    std::string tone(const std::string& name, double hz, double seconds, int rate = 48000,
                     int channels = 1, float amplitude = 0.5f,
                     WavEncoding encoding = WavEncoding::pcm16);

    /// A sine encoded through AudioFileWriter; "" (and a test failure) if it could not be made.
    std::string encoded(const std::string& name, engine::AudioFileFormat format, double hz,
                        double seconds, int rate = 48000, int channels = 1, float amplitude = 0.5f,
                        const engine::AudioFileWriter::Options& options = {});

    std::string bad(BadFile kind);

    std::string writeBytes(const std::string& name, const std::string& bytes) {
        return mFolder.write(name, bytes);
    }
    /// The first `length` bytes of the file at `path`.
    static std::string readBytes(const std::string& path, std::size_t length = std::string::npos);

private:
    TempFolder mFolder;
};

} // namespace vantelo_sounds::test
