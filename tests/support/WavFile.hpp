#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantelo_sounds::test {

/// A WAV file as the tests see it: its format and its samples as floats. Reads what the library,
/// the program and SoundFixtures write, and writes SoundFixtures' tones.
struct WavFile {
    static constexpr int kPcm = 1;
    static constexpr int kFloat = 3;

    int format = kPcm;
    int channels = 0;
    int rate = 0;
    int bits = 16;              ///< 16, 24 or 32 for kPcm; 32 for kFloat
    std::vector<float> samples; ///< interleaved; integer samples scaled to [-1, 1)

    std::size_t frames() const { return channels > 0 ? samples.size() / channels : 0; }

    /// Reads the file at `path`. A file still being written, whose header does not give the data's
    /// size yet (0, or more than there is), is read up to its last whole frame. A file that is not
    /// a WAV of a format above fails the test and gives a WavFile with no channels.
    static WavFile read(const std::string& path);

    /// The whole file: a 44-byte header, then the samples in the format and bits above.
    std::string bytes() const;

    /// A 44-byte header with the fields as given, so that they can lie.
    static std::string header(int format, std::uint32_t channels, std::uint32_t rate, int bits,
                              std::uint32_t dataBytes);
};

} // namespace vantelo_sounds::test
