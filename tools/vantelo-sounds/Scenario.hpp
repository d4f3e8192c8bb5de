#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MicrophoneSignal.hpp"
#include "ScenarioStep.hpp"

namespace vantelo_sounds::cli {

/// A checked scenario: what a game does to the library, and when. Paths are absolute.
struct Scenario {
    enum class RecordPermission { undetermined, denied, granted };

    /// The file as it was named on the command line, for messages.
    std::string sourceName;
    /// The folder that relative paths were resolved against.
    std::string folder;

    /// Scenario time at which the run ends, in seconds.
    double duration = 0.0;
    /// The application's resource folder.
    std::string bundle;
    std::optional<std::map<std::string, std::string>> localizations;
    /// Language codes that have a voice; absent means every installed voice.
    std::optional<std::vector<std::string>> voices;
    RecordPermission recordPermission = RecordPermission::undetermined;
    /// What the user answers when asked for the microphone.
    bool grantPermission = false;
    MicrophoneSignal microphone;
    /// In file order; the runner keeps that order for steps at equal times.
    std::vector<ScenarioStep> steps;
};

} // namespace vantelo_sounds::cli
