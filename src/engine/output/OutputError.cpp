#include "engine/output/OutputError.hpp"

#include <string>

namespace vantelo_sounds::engine {

namespace {

class OutputErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "vantelo_sounds.OutputError"; }
    std::string message(int value) const override {
        switch (static_cast<OutputError>(value)) {
        case OutputError::deviceUnavailable:
            return "No sound device could be opened";
        case OutputError::manualWritesItsOwnFile:
            return "The offline output writes its own file; its mix cannot be recorded as well";
        case OutputError::notRecording:
            return "The mix is not being recorded";
        }
        return "Unknown output error " + std::to_string(value);
    }
};

} // namespace

const std::error_category& outputErrorCategory() noexcept {
    static const OutputErrorCategory category;
    return category;
}

std::error_code make_error_code(OutputError error) noexcept {
    return {static_cast<int>(error), outputErrorCategory()};
}

} // namespace vantelo_sounds::engine
