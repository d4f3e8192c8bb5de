#include "ScenarioStep.hpp"

#include <array>
#include <utility>

namespace vantelo_sounds::cli {

namespace {

using Action = ScenarioStep::Action;

constexpr std::array<std::pair<Action, std::string_view>, 11> kActionNames{{
    {Action::play, "play"},
    {Action::playResource, "playResource"},
    {Action::stop, "stop"},
    {Action::speak, "speak"},
    {Action::speakBritish, "speakBritish"},
    {Action::shutup, "shutup"},
    {Action::instructions, "instructions"},
    {Action::interruption, "interruption"},
    {Action::requestPermissions, "requestPermissions"},
    {Action::startRecording, "startRecording"},
    {Action::stopRecording, "stopRecording"},
}};

} // namespace

std::string_view actionName(Action action) noexcept {
    for (const auto& [candidate, name] : kActionNames) {
        if (candidate == action) {
            return name;
        }
    }
    return "?";
}

std::optional<Action> actionFromName(std::string_view name) noexcept {
    for (const auto& [action, candidate] : kActionNames) {
        if (candidate == name) {
            return action;
        }
    }
    return std::nullopt;
}

} // namespace vantelo_sounds::cli
