#include "engine/codec/OpenError.hpp"

#include <string>
#include <vantelo_sounds/ErrorCategory.hpp>

namespace vantelo_sounds::engine {
namespace {

const char* describe(OpenError error) noexcept {
    switch (error) {
    case OpenError::fileNotFound:
        return "The file does not exist";
    case OpenError::notARegularFile:
        return "The path is not a regular file";
    case OpenError::notReadable:
        return "The file cannot be read";
    case OpenError::notAudio:
        return "The file holds no audio";
    case OpenError::unsupportedFormat:
        return "The file's format or codec is not supported";
    case OpenError::protectedContent:
        return "The file's audio is copy-protected";
    case OpenError::corrupt:
        return "The file is damaged";
    case OpenError::tooLarge:
        return "The decoded sound is too large";
    }
    return nullptr;
}

} // namespace

const std::error_category& openErrorCategory() noexcept {
    static const EnumErrorCategory<OpenError> category("vantelo_sounds.OpenError", describe);
    return category;
}

std::error_code make_error_code(OpenError e) noexcept {
    return {static_cast<int>(e), openErrorCategory()};
}

} // namespace vantelo_sounds::engine
