#include "engine/output/OutputError.hpp"

#include <string>
#include <vantelo_sounds/ErrorCategory.hpp>

namespace vantelo_sounds::engine {

namespace {

const char* describe(OutputError error) noexcept {
    switch (error) {
    case OutputError::deviceUnavailable:
        return "No sound device could be opened";
    case OutputError::manualWritesItsOwnFile:
        return "The offline output writes its own file; its mix cannot be recorded as well";
    case OutputError::notRecording:
        return "The mix is not being recorded";
    }
    return nullptr;
}

} // namespace

const std::error_category& outputErrorCategory() noexcept {
    static const EnumErrorCategory<OutputError> category("vantelo_sounds.OutputError", describe);
    return category;
}

std::error_code make_error_code(OutputError error) noexcept {
    return {static_cast<int>(error), outputErrorCategory()};
}

} // namespace vantelo_sounds::engine
