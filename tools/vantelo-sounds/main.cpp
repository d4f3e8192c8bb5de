// vantelo-sounds: plays a scenario (a JSON file of timed calls on the library) offline or in
// real time, and writes what happened.
#include <cstdio>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "ScenarioParser.hpp"
#include "ScenarioRunner.hpp"

int main(int argc, char** argv) {
    using namespace vantelo_sounds::cli;

    CLI::App app{"Plays scenarios: timed calls on the vantelo_sounds library.", "vantelo-sounds"};
    app.require_subcommand(1);

    std::string scenarioPath;
    RunOptions options;
    std::string renderPath;
    std::string eventsPath;
    CLI::App* run = app.add_subcommand("run", "Play a scenario file.");
    run->add_option("scenario", scenarioPath, "The scenario (JSON).")->required();
    run->add_option("--render", renderPath, "Write the mix to this 48 kHz stereo float WAV file.");
    run->add_option("--events", eventsPath, "Write what happened to this file, as JSON lines.");
    run->add_flag("--realtime", options.realtime,
                  "Play through the sound device on the system clock instead of offline.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        // Usage mistakes are invalid input, like an invalid scenario.
        app.exit(error);
        return kExitInvalid;
    }
    if (!renderPath.empty()) {
        options.renderPath = renderPath;
    }
    if (!eventsPath.empty()) {
        options.eventsPath = eventsPath;
    }

    const auto parsed = ScenarioParser::parseFile(scenarioPath);
    if (!parsed) {
        std::fprintf(stderr, "%s\n", parsed.failure().detail.c_str());
        return kExitInvalid;
    }
    return runScenario(*parsed, options);
}
