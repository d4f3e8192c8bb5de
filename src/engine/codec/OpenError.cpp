#include "engine/codec/OpenError.hpp"

#include <string>

namespace vantelo_sounds::engine {
namespace {

class OpenErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "vantelo_sounds.OpenError"; }
    std::string message(int value) const override {
        switch (static_cast<OpenError>(value)) {
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
        return "Unknown open error " + std::to_string(value);
    }
};

} // namespace

const std::error_category& openErrorCategory() noexcept {
    static const OpenErrorCategory category;
    return category;
}

std::error_code make_error_code(OpenError e) noexcept {
    return {static_cast<int>(e), openErrorCategory()};
}

} // namespace vantelo_sounds::engine
