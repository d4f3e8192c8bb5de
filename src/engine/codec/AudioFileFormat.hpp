#pragma once

namespace vantelo_sounds::engine {

/// The file formats AudioFileWriter can write.
enum class AudioFileFormat {
    m4a,      ///< AAC-LC in an M4A (ipod muxer); optionally fragmented
    mp3,      ///< libmp3lame
    flac,     ///< lossless
    ogg,      ///< Vorbis when this FFmpeg has an encoder for it, else Opus
    wav16,    ///< 16-bit PCM
    wavFloat, ///< 32-bit float PCM
};

/// The usual file name extension, without the dot ("m4a", "wav").
const char* extensionFor(AudioFileFormat format) noexcept;

} // namespace vantelo_sounds::engine
