#include "ScenarioParser.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vantelo_sounds::cli {
namespace {

constexpr const char* kName = "scenario.json";
constexpr const char* kFolder = "/scenes";

ScenarioParser::Result parse(const std::string& text) {
    return ScenarioParser::parseText(text, kName, kFolder);
}

/// A scenario of 5 s whose only step is `step` (a JSON object's members, without braces).
std::string withStep(const std::string& step) {
    return R"({"duration": 5, "steps": [ {"at": 0, "do": "shutup"}, {)" + step + "} ]}";
}

struct InvalidCase {
    const char* name;
    std::string text;
    /// The part of the message that says where: "steps[1].volume".
    const char* where;
    /// A phrase the message must carry.
    const char* what;
};

void PrintTo(const InvalidCase& invalid, std::ostream* out) {
    *out << invalid.name;
}

class ScenarioParserInvalidTest : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(ScenarioParserInvalidTest, NamesFileFieldAndProblemOnOneLine) {
    const auto& param = GetParam();
    const auto result = parse(param.text);
    ASSERT_FALSE(result.scenario.has_value()) << param.text;
    const std::string& message = result.error;
    EXPECT_EQ(message.rfind(std::string(kName) + ": ", 0), 0u) << message;
    EXPECT_NE(message.find(param.where), std::string::npos) << message;
    EXPECT_NE(message.find(param.what), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ScenarioParserInvalidTest,
    ::testing::Values(
        InvalidCase{"BadJson", R"({"duration": 5,})", "invalid JSON", "line 1"},
        InvalidCase{"TruncatedJson", R"({"duration": 5, "steps": [)", "invalid JSON",
                    "parse error"},
        InvalidCase{"EmptyFile", "", "invalid JSON", "end of input"},
        InvalidCase{"NumberOverflow", R"({"duration": 1e400})", "invalid JSON", "1e400"},
        InvalidCase{"TopLevelArray", "[1, 2]", "scenario.json: expected a JSON object", "array"},
        InvalidCase{"MissingDuration", R"({"steps": []})", "duration", "missing required field"},
        InvalidCase{"DurationText", R"({"duration": "6s"})", "duration", R"(got "6s")"},
        InvalidCase{"NegativeDuration", R"({"duration": -1})", "duration", "got -1"},
        InvalidCase{"HugeDuration", R"({"duration": 1e9})", "duration", "3600"},
        InvalidCase{"UnknownTopLevel", R"({"duration": 1, "durration": 2})", "durration",
                    "unknown field"},
        InvalidCase{"StepsNotArray", R"({"duration": 1, "steps": {}})", "steps", "an object"},
        InvalidCase{"StepNotObject", R"({"duration": 1, "steps": [3]})", "steps[0]", "got 3"},
        InvalidCase{"UnknownStep", withStep(R"("at": 1, "do": "jump")"), "steps[1].do",
                    R"(unknown step "jump")"},
        InvalidCase{"MissingDo", withStep(R"("at": 1)"), "steps[1].do", "missing"},
        InvalidCase{"DoNotText", withStep(R"("at": 1, "do": 7)"), "steps[1].do",
                    "expected a string, got 7"},
        InvalidCase{"MissingAt", withStep(R"("do": "shutup")"), "steps[1].at", "missing"},
        InvalidCase{"NegativeAt", withStep(R"("at": -0.5, "do": "shutup")"), "steps[1].at",
                    "got -0.5"},
        InvalidCase{"AtAfterEnd", withStep(R"("at": 7, "do": "shutup")"), "steps[1].at",
                    "after the scenario ends"},
        InvalidCase{"UnknownStepField", withStep(R"("at": 1, "do": "play", "file": "a.wav",
                    "colour": "red")"),
                    "steps[1].colour", R"(unknown field for a "play" step)"},
        InvalidCase{"FieldOfOtherStep", withStep(R"("at": 1, "do": "stop", "file": "a.wav",
                    "volume": 1)"),
                    "steps[1].volume", "unknown field"},
        InvalidCase{"VolumeText", withStep(R"("at": 1, "do": "play", "file": "a.wav",
                    "volume": "loud")"),
                    "steps[1].volume", R"(expected a number, got "loud")"},
        InvalidCase{"PanBeyondFloat", withStep(R"("at": 1, "do": "play", "file": "a.wav",
                    "pan": 1e39)"),
                    "steps[1].pan", "32-bit float"},
        InvalidCase{"LoopNumber", withStep(R"("at": 1, "do": "play", "file": "a.wav", "loop": 1)"),
                    "steps[1].loop", "expected true or false"},
        InvalidCase{"PlayWithoutFile", withStep(R"("at": 1, "do": "play")"), "steps[1].file",
                    "missing required field"},
        InvalidCase{"EmptyPath", withStep(R"("at": 1, "do": "play", "file": "")"), "steps[1].file",
                    "empty"},
        InvalidCase{"StopWithoutFile", withStep(R"("at": 1, "do": "stop")"), "steps[1].file",
                    "missing"},
        InvalidCase{"ResourceWithoutExt",
                    withStep(R"("at": 1, "do": "playResource", "name": "beep")"), "steps[1].ext",
                    "missing"},
        InvalidCase{"SpeakWithoutText", withStep(R"("at": 1, "do": "speak")"), "steps[1].text",
                    "missing"},
        InvalidCase{"SpeakNumber", withStep(R"("at": 1, "do": "speakBritish", "text": 3)"),
                    "steps[1].text", "expected a string"},
        InvalidCase{"TagNumber", withStep(R"("at": 1, "do": "speak", "text": "a", "tag": 3)"),
                    "steps[1].tag", "expected a string"},
        InvalidCase{"InstructionsWithoutList", withStep(R"("at": 1, "do": "instructions")"),
                    "steps[1].list", "missing"},
        InvalidCase{"InstructionWithoutText",
                    withStep(R"("at": 1, "do": "instructions", "list": [{"clip": "a.wav"}])"),
                    "steps[1].list[0].text", "missing"},
        InvalidCase{"InstructionUnknownField",
                    withStep(R"("at": 1, "do": "instructions", "list": [{"text": "a", "x": 1}])"),
                    "steps[1].list[0].x", "unknown field"},
        InvalidCase{"InterruptionWithoutType", withStep(R"("at": 1, "do": "interruption")"),
                    "steps[1].type", "missing"},
        InvalidCase{"InterruptionNegativeType",
                    withStep(R"("at": 1, "do": "interruption", "type": -1)"), "steps[1].type",
                    "whole number"},
        InvalidCase{"InterruptionFractionOptions",
                    withStep(R"("at": 1, "do": "interruption", "type": 0, "options": 1.5)"),
                    "steps[1].options", "whole number"},
        InvalidCase{"RecordingWithoutMaxDuration", withStep(R"("at": 1, "do": "startRecording")"),
                    "steps[1].maxDuration", "missing"},
        InvalidCase{"BadRecordPermission", R"({"duration": 1, "recordPermission": "maybe"})",
                    "recordPermission", R"(got "maybe")"},
        InvalidCase{"BadPermissionAnswer", R"({"duration": 1, "permissionAnswer": true})",
                    "permissionAnswer", "expected a string"},
        InvalidCase{"PermissionAnswerWord", R"({"duration": 1, "permissionAnswer": "yes"})",
                    "permissionAnswer", R"("grant" or "refuse")"},
        InvalidCase{"MicrophoneMixedForms",
                    R"({"duration": 1, "microphone": {"tone": 440, "file": "a.wav"}})",
                    "microphone.file", "unknown field"},
        InvalidCase{"MicrophoneEmpty", R"({"duration": 1, "microphone": {}})", "microphone",
                    "empty object"},
        InvalidCase{"MicrophoneSilenceFalse",
                    R"({"duration": 1, "microphone": {"silence": false}})", "microphone.silence",
                    "true"},
        InvalidCase{"MicrophoneToneAboveNyquist",
                    R"({"duration": 1, "microphone": {"tone": 30000}})", "microphone.tone",
                    "24000"},
        InvalidCase{"MicrophoneLoudTone",
                    R"({"duration": 1, "microphone": {"tone": 440, "amplitude": 2}})",
                    "microphone.amplitude", "from 0 to 1"},
        InvalidCase{"VoicesNotStrings", R"({"duration": 1, "voices": ["en-GB", 5]})", "voices[1]",
                    "expected a string"},
        InvalidCase{"LocalizationNotString", R"({"duration": 1, "localizations": {"en-GB": 1}})",
                    "localizations.en-GB", "expected a string"},
        InvalidCase{"LongValueShortened",
                    withStep(R"("at": 1, "do": "play", "file": "a.wav", "volume": ")" +
                             std::string(500, 'x') + R"(")"),
                    "steps[1].volume", "..."}),
    [](const ::testing::TestParamInfo<InvalidCase>& param) {
        return std::string(param.param.name);
    });

class ScenarioParserTest : public ::testing::Test {};

TEST_F(ScenarioParserTest, FullExampleKeepsEveryValueAndFileOrder) {
    const auto result = parse(R"({
      "duration": 6.0, "bundle": "assets", "localizations": {"en-GB": "fr-FR"},
      "voices": ["en-GB", "fr-FR"], "recordPermission": "denied", "permissionAnswer": "grant",
      "microphone": {"tone": 440.0, "amplitude": 0.25},
      "steps": [
        {"at": 2.0, "do": "play", "file": "sounds/a.wav", "pan": -1.0, "volume": 0.5,
         "loop": true, "queued": true, "tag": "a1"},
        {"at": 0.5, "do": "stop", "file": "/abs/../b.wav"},
        {"at": 0.5, "do": "playResource", "name": "beep", "ext": "wav"},
        {"at": 2.0, "do": "instructions", "list": [{"text": "Jump", "clip": "b.wav"}, {"text": "Duck"}]},
        {"at": 3.0, "do": "interruption", "type": 0, "options": 1},
        {"at": 4.1, "do": "startRecording", "maxDuration": 1.0, "tag": "r1", "comment": "mic"}
      ]})");
    ASSERT_TRUE(result.scenario.has_value()) << result.error;
    const Scenario& s = *result.scenario;
    EXPECT_EQ(s.duration, 6.0);
    EXPECT_EQ(s.bundle, "/scenes/assets");
    EXPECT_EQ(s.localizations->at("en-GB"), "fr-FR");
    EXPECT_EQ(s.voices, (std::vector<std::string>{"en-GB", "fr-FR"}));
    EXPECT_EQ(s.recordPermission, Scenario::RecordPermission::denied);
    EXPECT_TRUE(s.grantPermission);
    EXPECT_EQ(s.microphone.kind, MicrophoneSignal::Kind::tone);
    EXPECT_EQ(s.microphone.frequency, 440.0);
    EXPECT_EQ(s.microphone.amplitude, 0.25);

    ASSERT_EQ(s.steps.size(), 6u);
    const ScenarioStep& play = s.steps[0];
    EXPECT_EQ(play.action, ScenarioStep::Action::play);
    EXPECT_EQ(play.file, "/scenes/sounds/a.wav");
    EXPECT_EQ(play.pan, -1.0);
    EXPECT_EQ(play.volume, 0.5);
    EXPECT_TRUE(play.loop);
    EXPECT_TRUE(play.queued);
    EXPECT_EQ(play.tag, "a1");
    EXPECT_EQ(s.steps[1].file, "/b.wav");
    EXPECT_EQ(s.steps[2].name, "beep");
    EXPECT_EQ(s.steps[2].ext, "wav");
    const std::vector<ScenarioStep::Instruction> list{{"Jump", "/scenes/b.wav"},
                                                      {"Duck", std::nullopt}};
    EXPECT_EQ(s.steps[3].list, list);
    EXPECT_EQ(s.steps[4].type, 0u);
    EXPECT_EQ(s.steps[4].options, 1u);
    EXPECT_EQ(s.steps[5].maxDuration, 1.0);
    for (std::size_t i = 0; i < s.steps.size(); ++i) {
        EXPECT_EQ(s.steps[i].index, i);
    }
}

TEST_F(ScenarioParserTest, OmittedFieldsTakeTheirDefaults) {
    const auto result = parse(R"({"duration": 0, "steps": [
        {"at": 0, "do": "play", "file": "a.wav"}, {"at": 0, "do": "interruption", "type": 1}]})");
    ASSERT_TRUE(result.scenario.has_value()) << result.error;
    const Scenario& s = *result.scenario;
    EXPECT_EQ(s.bundle, kFolder);
    EXPECT_FALSE(s.localizations.has_value());
    EXPECT_FALSE(s.voices.has_value());
    EXPECT_EQ(s.recordPermission, Scenario::RecordPermission::undetermined);
    EXPECT_FALSE(s.grantPermission);
    EXPECT_EQ(s.microphone.kind, MicrophoneSignal::Kind::silence);
    EXPECT_EQ(s.steps[0].pan, 0.0);
    EXPECT_EQ(s.steps[0].volume, 0.75);
    EXPECT_FALSE(s.steps[0].loop);
    EXPECT_FALSE(s.steps[0].queued);
    EXPECT_FALSE(s.steps[0].tag.has_value());
    EXPECT_FALSE(s.steps[1].options.has_value());
}

TEST_F(ScenarioParserTest, EmptyVoiceListMeansNoVoiceRatherThanEveryVoice) {
    const auto result = parse(R"({"duration": 1, "voices": []})");
    ASSERT_TRUE(result.scenario.has_value()) << result.error;
    ASSERT_TRUE(result.scenario->voices.has_value());
    EXPECT_TRUE(result.scenario->voices->empty());
}

TEST_F(ScenarioParserTest, MicrophoneFileIsResolvedAgainstTheScenarioFolder) {
    const auto result = parse(R"({"duration": 1, "microphone": {"file": "mic/voice.wav"}})");
    ASSERT_TRUE(result.scenario.has_value()) << result.error;
    EXPECT_EQ(result.scenario->microphone.kind, MicrophoneSignal::Kind::file);
    EXPECT_EQ(result.scenario->microphone.path, "/scenes/mic/voice.wav");
}

TEST_F(ScenarioParserTest, FileThatCannotBeReadIsReportedWithItsName) {
    const auto missing = ScenarioParser::parseFile("/nonexistent/scenario.json");
    EXPECT_FALSE(missing.scenario.has_value());
    EXPECT_EQ(missing.error.rfind("/nonexistent/scenario.json: ", 0), 0u) << missing.error;

    const auto folder = ScenarioParser::parseFile(std::filesystem::temp_directory_path().string());
    EXPECT_FALSE(folder.scenario.has_value());
    EXPECT_NE(folder.error.find("not a regular file"), std::string::npos) << folder.error;
}

TEST_F(ScenarioParserTest, FileOnDiskResolvesPathsAgainstItsOwnFolder) {
    const auto dir =
        std::filesystem::temp_directory_path() / ("vantelo-parser-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto file = dir / "s.json";
    std::ofstream(file)
        << R"({"duration": 1, "steps": [{"at": 0, "do": "play", "file": "x.wav"}]})";
    const auto result = ScenarioParser::parseFile(file.string());
    std::filesystem::remove_all(dir);
    ASSERT_TRUE(result.scenario.has_value()) << result.error;
    EXPECT_EQ(result.scenario->steps[0].file, (dir / "x.wav").string());
    EXPECT_EQ(result.scenario->bundle, dir.string());
}

} // namespace
} // namespace vantelo_sounds::cli
