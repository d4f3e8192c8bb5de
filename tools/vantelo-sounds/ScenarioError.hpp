#pragma once

#include <system_error>

namespace vantelo_sounds::cli {

/// Why a scenario cannot run, under the category "vantelo_sounds.ScenarioError". The failure's
/// detail is the one line to show: the file, where in it, and what is wrong.
enum class ScenarioError {
    unreadable = 1,  ///< the file is missing, not a regular file, unreadable or too large
    invalidJson,     ///< the text is not JSON
    invalidScenario, ///< JSON, but a field is unknown, missing, of the wrong type or out of range
};

const std::error_category& scenarioErrorCategory() noexcept;
std::error_code make_error_code(ScenarioError error) noexcept;

} // namespace vantelo_sounds::cli

template <>
struct std::is_error_code_enum<vantelo_sounds::cli::ScenarioError> : std::true_type {};
