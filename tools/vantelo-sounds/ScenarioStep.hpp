#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantelo_sounds::cli {

/// One call on the manager at a given moment of a scenario. Only the fields that belong to the
/// step's action are meaningful; paths are already absolute.
struct ScenarioStep {
    enum class Action {
        play,
        playResource,
        stop,
        speak,
        speakBritish,
        shutup,
        instructions,
        interruption,
        requestPermissions,
        startRecording,
        stopRecording,
    };

    /// One entry of an `instructions` step: a text and, optionally, the clip that follows it.
    struct Instruction {
        std::string text;
        std::optional<std::string> clip;

        friend bool operator==(const Instruction&, const Instruction&) = default;
    };

    /// Position in the file's `steps` array, for messages.
    std::size_t index = 0;
    /// Scenario time at which the step runs, in seconds.
    double at = 0.0;
    Action action = Action::shutup;

    std::string file;     // play, stop
    std::string name;     // playResource
    std::string ext;      // playResource
    double pan = 0.0;     // play, playResource
    double volume = 0.75; // play, playResource
    bool loop = false;    // play, playResource
    bool queued = false;  // play, playResource
    std::optional<std::string> tag;
    std::string text;                     // speak, speakBritish
    std::vector<Instruction> list;        // instructions
    std::uint64_t type = 0;               // interruption
    std::optional<std::uint64_t> options; // interruption
    double maxDuration = 0.0;             // startRecording

    friend bool operator==(const ScenarioStep&, const ScenarioStep&) = default;
};

/// The name an action has in a scenario file ("playResource").
std::string_view actionName(ScenarioStep::Action action) noexcept;
/// The action a scenario file names, or none.
std::optional<ScenarioStep::Action> actionFromName(std::string_view name) noexcept;

} // namespace vantelo_sounds::cli
