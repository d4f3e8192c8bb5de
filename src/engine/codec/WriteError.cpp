#include "engine/codec/WriteError.hpp"

#include <vantelo_sounds/ErrorCategory.hpp>

namespace vantelo_sounds::engine {

namespace {

const char* describe(WriteError error) noexcept {
    switch (error) {
    case WriteError::badParameters:
        return "The writer does not take these audio parameters";
    case WriteError::noEncoder:
        return "No encoder for this file format";
    case WriteError::outOfMemory:
        return "Out of memory";
    case WriteError::notOpen:
        return "The file is not open";
    case WriteError::encodingFailed:
        return "Encoding the audio failed";
    }
    return nullptr;
}

} // namespace

const std::error_category& writeErrorCategory() noexcept {
    static const EnumErrorCategory<WriteError> category("vantelo_sounds.WriteError", describe);
    return category;
}

std::error_code make_error_code(WriteError error) noexcept {
    return {static_cast<int>(error), writeErrorCategory()};
}

} // namespace vantelo_sounds::engine
