#include "ScenarioError.hpp"

#include <string>

namespace vantelo_sounds::cli {

namespace {

class ScenarioErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "vantelo_sounds.ScenarioError"; }
    std::string message(int value) const override {
        switch (static_cast<ScenarioError>(value)) {
        case ScenarioError::unreadable:
            return "The scenario file cannot be read";
        case ScenarioError::invalidJson:
            return "The scenario is not valid JSON";
        case ScenarioError::invalidScenario:
            return "The scenario is invalid";
        }
        return "Unknown scenario error " + std::to_string(value);
    }
};

} // namespace

const std::error_category& scenarioErrorCategory() noexcept {
    static const ScenarioErrorCategory category;
    return category;
}

std::error_code make_error_code(ScenarioError error) noexcept {
    return {static_cast<int>(error), scenarioErrorCategory()};
}

} // namespace vantelo_sounds::cli
