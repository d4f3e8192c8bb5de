#include "engine/codec/AudioFileFormat.hpp"

namespace vantelo_sounds::engine {

const char* extensionFor(AudioFileFormat format) noexcept {
    switch (format) {
    case AudioFileFormat::m4a:
        return "m4a";
    case AudioFileFormat::mp3:
        return "mp3";
    case AudioFileFormat::flac:
        return "flac";
    case AudioFileFormat::ogg:
        return "ogg";
    case AudioFileFormat::wav16:
    case AudioFileFormat::wavFloat:
        return "wav";
    }
    return "";
}

} // namespace vantelo_sounds::engine
