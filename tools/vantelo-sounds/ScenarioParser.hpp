#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Scenario.hpp"

namespace vantelo_sounds::cli {

/// Reads a scenario file and checks all of it before anything runs: JSON syntax, known fields and
/// steps, required fields, types, ranges and enumerations. The first problem found becomes one
/// line that names the file, the step and the field, e.g.
/// `scenario.json: steps[3].volume: expected a number, got "loud"`.
class ScenarioParser {
public:
    struct Result {
        std::optional<Scenario> scenario;
        /// Empty when `scenario` is set.
        std::string error;
    };

    /// Longest run a scenario may ask for, in seconds: an offline render of it stays a few
    /// gigabytes at most.
    static constexpr double kMaxDuration = 3600.0;
    /// Largest scenario file read, in bytes.
    static constexpr std::size_t kMaxFileSize = 16 * 1024 * 1024;

    /// Reads the file at `path`; relative paths in it are resolved against its folder.
    static Result parseFile(const std::string& path);

    /// Checks `text`. `sourceName` names the file in messages; `folder` (absolute) is where
    /// relative paths start.
    static Result parseText(std::string_view text, const std::string& sourceName,
                            const std::string& folder);
};

} // namespace vantelo_sounds::cli
