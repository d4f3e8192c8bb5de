#include "ScenarioParser.hpp"

#include <string>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"

// Steps below name only the fields they set; the others keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace vantelo_sounds::cli {
namespace {

constexpr const char* kName = "scenario.json";
constexpr const char* kFolder = "/scenes";

Expected<Scenario> parse(const std::string& text) {
    return ScenarioParser::parseText(text, kName, kFolder);
}

/// A scenario of 5 s whose second step is `action` at 1 s with `fields` (JSON members).
std::string step(const std::string& action, const std::string& fields = "") {
    return R"({"duration": 5, "steps": [{"at": 0, "do": "shutup"}, {"at": 1, "do": ")" + action +
           "\"" + (fields.empty() ? "" : ", " + fields) + "}]}";
}

/// A scenario of 1 s with `fields` besides its duration.
std::string file(const std::string& fields) {
    return R"({"duration": 1, )" + fields + "}";
}

struct InvalidCase : vantelo_sounds::test::NamedCase {
    std::string text;
    const char* where; ///< the part of the message that says where: "steps[1].volume"
    const char* what;  ///< a phrase the message must carry
};

// clang-format off
const std::vector<InvalidCase> kInvalidCases{
    {"BadJson", R"({"duration": 5,})", "invalid JSON", "line 1"},
    {"NumberOverflow", R"({"duration": 1e400})", "invalid JSON", "1e400"},
    {"TopLevelArray", "[1, 2]", "scenario.json: expected a JSON object", "array"},
    {"MissingDuration", R"({"steps": []})", "duration", "missing required field"},
    {"HugeDuration", R"({"duration": 1e9})", "duration", "3600"},
    {"UnknownTopLevel", file(R"("durration": 2)"), "durration", "unknown field"},
    {"StepNotObject", file(R"("steps": [3])"), "steps[0]", "got 3"},
    {"UnknownStep", step("jump"), "steps[1].do", R"(unknown step "jump")"},
    {"DoNotText", R"({"duration": 5, "steps": [{"at": 1, "do": 7}]})", "steps[0].do",
     "expected a string, got 7"},
    {"NegativeAt", R"({"duration": 5, "steps": [{"at": -0.5, "do": "shutup"}]})", "steps[0].at",
     "got -0.5"},
    {"AtAfterEnd", R"({"duration": 5, "steps": [{"at": 7, "do": "shutup"}]})", "steps[0].at",
     "after the scenario ends"},
    {"FieldOfOtherStep", step("stop", R"("file": "a.wav", "volume": 1)"), "steps[1].volume",
     R"(unknown field for a "stop" step)"},
    {"VolumeText", step("play", R"("file": "a.wav", "volume": "loud")"), "steps[1].volume",
     R"(expected a number, got "loud")"},
    {"PanBeyondFloat", step("play", R"("file": "a.wav", "pan": 1e39)"), "steps[1].pan",
     "32-bit float"},
    {"LoopNumber", step("play", R"("file": "a.wav", "loop": 1)"), "steps[1].loop",
     "expected true or false"},
    {"PlayWithoutFile", step("play"), "steps[1].file", "missing required field"},
    {"EmptyPath", step("play", R"("file": "")"), "steps[1].file", "empty"},
    {"InstructionWithoutText", step("instructions", R"("list": [{"clip": "a.wav"}])"),
     "steps[1].list[0].text", "missing"},
    {"InterruptionFractionOptions", step("interruption", R"("type": 0, "options": 1.5)"),
     "steps[1].options", "whole number"},
    {"BadRecordPermission", file(R"("recordPermission": "maybe")"), "recordPermission",
     R"(got "maybe")"},
    {"MicrophoneMixedForms", file(R"("microphone": {"tone": 440, "file": "a.wav"})"),
     "microphone.file", "unknown field"},
    {"MicrophoneEmpty", file(R"("microphone": {})"), "microphone", "empty object"},
    {"MicrophoneSilenceFalse", file(R"("microphone": {"silence": false})"), "microphone.silence",
     "true"},
    {"MicrophoneToneAboveNyquist", file(R"("microphone": {"tone": 30000})"), "microphone.tone",
     "24000"},
    {"VoicesNotStrings", file(R"("voices": ["en-GB", 5])"), "voices[1]", "expected a string"},
    {"FieldNameWithANewline", R"({"duration": 1, "two\nlines": 0})", "two\\nlines", "unknown"},
    {"LongValueShortened",
     step("play", R"("file": "a.wav", "volume": ")" + std::string(500, 'x') + "\""),
     "steps[1].volume", "..."},
};
// clang-format on

class ScenarioParserInvalidTest : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(ScenarioParserInvalidTest, NamesFileFieldAndProblemOnOneLine) {
    const auto& param = GetParam();
    const auto result = parse(param.text);
    ASSERT_FALSE(result) << param.text;
    const std::string& message = result.failure().detail;
    EXPECT_EQ(message.rfind(std::string(kName) + ": ", 0), 0u) << message;
    EXPECT_NE(message.find(param.where), std::string::npos) << message;
    EXPECT_NE(message.find(param.what), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
    const bool json = std::string(param.where) == "invalid JSON";
    EXPECT_EQ(result.error(), json ? ScenarioError::invalidJson : ScenarioError::invalidScenario);
}

INSTANTIATE_TEST_SUITE_P(Table, ScenarioParserInvalidTest, ::testing::ValuesIn(kInvalidCases),
                         vantelo_sounds::test::CaseName());

TEST(ScenarioParserTest, FullExampleKeepsEveryValueAndFileOrder) {
    const auto result = parse(R"({
      "duration": 6.0, "bundle": "assets", "localizations": {"en-GB": "fr-FR"},
      "voices": ["en-GB", "fr-FR"], "recordPermission": "denied", "permissionAnswer": "grant",
      "microphone": {"tone": 440.0, "amplitude": 0.25},
      "steps": [
        {"at": 2.0, "do": "play", "file": "sounds/a.wav", "volume": 0.5, "queued": true},
        {"at": 0.5, "do": "stop", "file": "/abs/../b.wav"},
        {"at": 0.5, "do": "playResource", "name": "beep", "ext": "wav"},
        {"at": 2.0, "do": "instructions",
         "list": [{"text": "Jump", "clip": "b.wav"}, {"text": "Duck"}]},
        {"at": 3.0, "do": "interruption", "type": 0, "options": 1},
        {"at": 4.1, "do": "startRecording", "maxDuration": 1.0, "tag": "r1", "comment": "mic"}
      ]})");
    ASSERT_TRUE(result) << result.failure().detail;
    const Scenario& s = *result;
    EXPECT_EQ(s.duration, 6.0);
    EXPECT_EQ(s.bundle, "/scenes/assets");
    EXPECT_EQ(s.localizations->at("en-GB"), "fr-FR");
    EXPECT_EQ(s.voices, (std::vector<std::string>{"en-GB", "fr-FR"}));
    EXPECT_EQ(s.recordPermission, Scenario::RecordPermission::denied);
    EXPECT_TRUE(s.grantPermission);
    EXPECT_EQ(s.microphone, (MicrophoneSignal{MicrophoneSignal::Kind::tone, 440.0, 0.25, ""}));

    using Action = ScenarioStep::Action;
    const std::vector<ScenarioStep> steps{
        {.index = 0,
         .at = 2.0,
         .action = Action::play,
         .file = "/scenes/sounds/a.wav",
         .volume = 0.5,
         .queued = true},
        {.index = 1, .at = 0.5, .action = Action::stop, .file = "/b.wav"},
        {.index = 2, .at = 0.5, .action = Action::playResource, .name = "beep", .ext = "wav"},
        {.index = 3,
         .at = 2.0,
         .action = Action::instructions,
         .list = {{"Jump", "/scenes/b.wav"}, {"Duck", std::nullopt}}},
        {.index = 4, .at = 3.0, .action = Action::interruption, .options = 1},
        {.index = 5, .at = 4.1, .action = Action::startRecording, .tag = "r1", .maxDuration = 1.0}};
    EXPECT_EQ(s.steps, steps);
}

TEST(ScenarioParserTest, OmittedFieldsTakeTheirDefaultsAndAnEmptyVoiceListIsKept) {
    const auto result = parse(R"({"duration": 0, "voices": [], "microphone": {"file": "m.wav"},
        "steps": [{"at": 0, "do": "play", "file": "a.wav"}]})");
    ASSERT_TRUE(result) << result.failure().detail;
    EXPECT_EQ(result->bundle, kFolder);
    EXPECT_EQ(result->voices, std::vector<std::string>{}); // no voice, unlike an absent list
    EXPECT_EQ(result->microphone.path, "/scenes/m.wav");
    const ScenarioStep play{.action = ScenarioStep::Action::play, .file = "/scenes/a.wav"};
    EXPECT_EQ(result->steps, std::vector<ScenarioStep>{play});     // pan 0, volume 0.75
    EXPECT_FALSE(parse(R"({"duration": 1})")->voices.has_value()); // every installed voice
}

} // namespace
} // namespace vantelo_sounds::cli
