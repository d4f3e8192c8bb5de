// Any bytes as a scenario file, through the parser's text entry point: it must answer with a
// checked scenario or one line naming the file, never crash, hang or let a bad value through.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ScenarioParser.hpp"

namespace {

using vantelo_sounds::cli::Scenario;
using vantelo_sounds::cli::ScenarioParser;

constexpr const char* kSourceName = "fuzz.json";
constexpr const char* kFolder = "/scenarios";

[[noreturn]] void fault(const char* what) {
    std::fprintf(stderr, "scenario_fuzz: %s\n", what);
    std::abort();
}

bool isAbsolute(const std::string& path) {
    return !path.empty() && path.front() == '/';
}

void checkScenario(const Scenario& scenario) {
    if (!(scenario.duration >= 0.0 && scenario.duration <= ScenarioParser::kMaxDuration)) {
        fault("a scenario was accepted with a duration out of range");
    }
    if (!isAbsolute(scenario.bundle)) {
        fault("the bundle path is not absolute");
    }
    for (std::size_t i = 0; i < scenario.steps.size(); ++i) {
        const auto& step = scenario.steps[i];
        if (step.index != i) {
            fault("a step does not know its index");
        }
        if (!(step.at >= 0.0 && step.at <= scenario.duration)) {
            fault("a step runs outside the scenario's time");
        }
        if (!step.file.empty() && !isAbsolute(step.file)) {
            fault("a step's file path is not absolute");
        }
        for (const auto& instruction : step.list) {
            if (instruction.clip && !isAbsolute(*instruction.clip)) {
                fault("an instruction's clip path is not absolute");
            }
        }
    }
}

void checkError(const std::string& error) {
    if (error.rfind(std::string(kSourceName) + ": ", 0) != 0) {
        fault("an error does not start with the file's name");
    }
    if (error.find('\n') != std::string::npos) {
        fault("an error spans more than one line");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto result = ScenarioParser::parseText(text, kSourceName, kFolder);
    if (result) {
        checkScenario(result.value());
    } else {
        if (!result.error()) {
            fault("a refusal without an error code");
        }
        checkError(result.failure().detail);
    }
    return 0;
}
