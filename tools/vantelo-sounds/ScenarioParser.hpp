#pragma once

#include <string>
#include <string_view>
#include <vantelo_sounds/Expected.hpp>

#include "Scenario.hpp"
#include "ScenarioError.hpp"

namespace vantelo_sounds::cli {

/// Reads a scenario file and checks all of it before anything runs: JSON syntax, known fields and
/// steps, required fields, types, ranges and enumerations. The first problem found fails with a
/// ScenarioError whose detail is one line that names the file, the step and the field, e.g.
/// `scenario.json: steps[3].volume: expected a number, got "loud"`.
class ScenarioParser {
public:
    /// Longest run a scenario may ask for, in seconds: an offline render of it stays a few
    /// gigabytes at most.
    static constexpr double kMaxDuration = 3600.0;
    /// Largest scenario file read, in bytes.
    static constexpr std::size_t kMaxFileSize = 16 * 1024 * 1024;

    /// Reads the file at `path`; relative paths in it are resolved against its folder.
    static Expected<Scenario> parseFile(const std::string& path);

    /// Checks `text`. `sourceName` names the file in messages; `folder` (absolute) is where
    /// relative paths start.
    static Expected<Scenario> parseText(std::string_view text, const std::string& sourceName,
                                        const std::string& folder);
};

} // namespace vantelo_sounds::cli
