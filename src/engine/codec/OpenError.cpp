#include "engine/codec/OpenError.hpp"

namespace vantelo_sounds::engine {

const char* toString(OpenErrorKind kind) noexcept {
    switch (kind) {
    case OpenErrorKind::fileNotFound:
        return "fileNotFound";
    case OpenErrorKind::notARegularFile:
        return "notARegularFile";
    case OpenErrorKind::notReadable:
        return "notReadable";
    case OpenErrorKind::notAudio:
        return "notAudio";
    case OpenErrorKind::unsupportedFormat:
        return "unsupportedFormat";
    case OpenErrorKind::protectedContent:
        return "protectedContent";
    case OpenErrorKind::corrupt:
        return "corrupt";
    case OpenErrorKind::tooLarge:
        return "tooLarge";
    }
    return "unknown";
}

std::string toString(const OpenError& error) {
    std::string text = toString(error.kind);
    if (!error.detail.empty()) {
        text += ": ";
        text += error.detail;
    }
    return text;
}

} // namespace vantelo_sounds::engine
