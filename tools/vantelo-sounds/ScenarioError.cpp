#include "ScenarioError.hpp"

#include <string>
#include <vantelo_sounds/ErrorCategory.hpp>

namespace vantelo_sounds::cli {

namespace {

const char* describe(ScenarioError error) noexcept {
    switch (error) {
    case ScenarioError::unreadable:
        return "The scenario file cannot be read";
    case ScenarioError::invalidJson:
        return "The scenario is not valid JSON";
    case ScenarioError::invalidScenario:
        return "The scenario is invalid";
    }
    return nullptr;
}

} // namespace

const std::error_category& scenarioErrorCategory() noexcept {
    static const EnumErrorCategory<ScenarioError> category("vantelo_sounds.ScenarioError",
                                                           describe);
    return category;
}

std::error_code make_error_code(ScenarioError error) noexcept {
    return {static_cast<int>(error), scenarioErrorCategory()};
}

} // namespace vantelo_sounds::cli
