#include "ScenarioParser.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantelo_sounds::cli {

namespace {

using nlohmann::json;
using Action = ScenarioStep::Action;

/// Thrown inside the checker only; parseText turns it into the result's message.
struct Invalid {
    std::string message;
};

struct FieldRule {
    std::string_view name;
    bool required;
};

/// The fields each step accepts besides `at`, `do` and `comment`, and which of them it needs.
const std::vector<FieldRule>& stepFields(Action action) {
    static const std::vector<FieldRule> kSoundOptions{
        {"pan", false}, {"volume", false}, {"loop", false}, {"queued", false}, {"tag", false}};
    static const auto kPlay = [] {
        std::vector<FieldRule> rules{{"file", true}};
        rules.insert(rules.end(), kSoundOptions.begin(), kSoundOptions.end());
        return rules;
    }();
    static const auto kPlayResource = [] {
        std::vector<FieldRule> rules{{"name", true}, {"ext", true}};
        rules.insert(rules.end(), kSoundOptions.begin(), kSoundOptions.end());
        return rules;
    }();
    static const std::vector<FieldRule> kStop{{"file", true}};
    static const std::vector<FieldRule> kSpeak{{"text", true}, {"tag", false}};
    static const std::vector<FieldRule> kSpeakBritish{{"text", true}};
    static const std::vector<FieldRule> kNone{};
    static const std::vector<FieldRule> kInstructions{{"list", true}};
    static const std::vector<FieldRule> kInterruption{{"type", true}, {"options", false}};
    static const std::vector<FieldRule> kTagOnly{{"tag", false}};
    static const std::vector<FieldRule> kStartRecording{{"maxDuration", true}, {"tag", false}};

    switch (action) {
    case Action::play:
        return kPlay;
    case Action::playResource:
        return kPlayResource;
    case Action::stop:
        return kStop;
    case Action::speak:
        return kSpeak;
    case Action::speakBritish:
        return kSpeakBritish;
    case Action::instructions:
        return kInstructions;
    case Action::interruption:
        return kInterruption;
    case Action::requestPermissions:
        return kTagOnly;
    case Action::startRecording:
        return kStartRecording;
    case Action::shutup:
    case Action::stopRecording:
        break;
    }
    return kNone;
}

constexpr std::string_view kStepCommonFields[] = {"at", "do", "comment"};
constexpr std::string_view kTopLevelFields[] = {
    "duration",         "bundle",     "localizations", "voices", "recordPermission",
    "permissionAnswer", "microphone", "steps",         "comment"};
constexpr std::string_view kAllActions =
    "play, playResource, stop, speak, speakBritish, shutup, instructions, interruption, "
    "requestPermissions, startRecording, stopRecording";

/// A short picture of a JSON value for messages: scalars as written, containers by kind.
std::string describe(const json& value) {
    switch (value.type()) {
    case json::value_t::object:
        return "an object";
    case json::value_t::array:
        return "an array";
    case json::value_t::null:
        return "null";
    default:
        break;
    }
    std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    constexpr std::size_t kMaxShown = 40;
    if (text.size() > kMaxShown) {
        text = text.substr(0, kMaxShown) + "...";
    }
    return text;
}

std::string formatNumber(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

std::string joinNames(const std::vector<std::string_view>& names) {
    std::string joined;
    for (const auto& name : names) {
        if (!joined.empty()) {
            joined += ", ";
        }
        joined += name;
    }
    return joined;
}

class Checker {
public:
    Checker(std::string sourceName, std::string folder)
        : mSourceName(std::move(sourceName))
        , mFolder(std::move(folder)) {}

    Scenario check(const json& root) {
        if (!root.is_object()) {
            fail("", "expected a JSON object at the top level, got " + describe(root));
        }
        for (const auto& [key, value] : root.items()) {
            if (std::find(std::begin(kTopLevelFields), std::end(kTopLevelFields), key) ==
                std::end(kTopLevelFields)) {
                fail(key, "unknown field (known: " +
                              joinNames({std::begin(kTopLevelFields), std::end(kTopLevelFields)}) +
                              ")");
            }
        }

        Scenario scenario;
        scenario.sourceName = mSourceName;
        scenario.folder = mFolder;
        scenario.bundle = mFolder;

        const json* duration = find(root, "duration");
        if (duration == nullptr) {
            fail("duration", "missing required field");
        }
        scenario.duration = number(*duration, "duration");
        if (scenario.duration < 0.0 || scenario.duration > ScenarioParser::kMaxDuration) {
            fail("duration", "expected seconds from 0 to " +
                                 formatNumber(ScenarioParser::kMaxDuration) + ", got " +
                                 describe(*duration));
        }
        if (const json* bundle = find(root, "bundle")) {
            scenario.bundle = path(*bundle, "bundle");
        }
        if (const json* localizations = find(root, "localizations")) {
            scenario.localizations = stringMap(*localizations, "localizations");
        }
        if (const json* voices = find(root, "voices")) {
            scenario.voices = stringList(*voices, "voices");
        }
        if (const json* permission = find(root, "recordPermission")) {
            scenario.recordPermission = recordPermission(*permission);
        }
        if (const json* answer = find(root, "permissionAnswer")) {
            const std::string text = string(*answer, "permissionAnswer");
            if (text != "grant" && text != "refuse") {
                fail("permissionAnswer",
                     "expected \"grant\" or \"refuse\", got " + describe(*answer));
            }
            scenario.grantPermission = text == "grant";
        }
        if (const json* microphone = find(root, "microphone")) {
            scenario.microphone = microphoneSignal(*microphone);
        }
        if (const json* comment = find(root, "comment")) {
            string(*comment, "comment");
        }
        if (const json* steps = find(root, "steps")) {
            if (!steps->is_array()) {
                fail("steps", "expected an array of steps, got " + describe(*steps));
            }
            for (std::size_t i = 0; i < steps->size(); ++i) {
                scenario.steps.push_back(step((*steps)[i], i, scenario.duration));
            }
        }
        return scenario;
    }

    [[noreturn]] void fail(const std::string& where, const std::string& what) const {
        throw Invalid{mSourceName + ": " + (where.empty() ? "" : where + ": ") + what};
    }

private:
    static const json* find(const json& object, std::string_view key) {
        const auto it = object.find(key);
        return it == object.end() ? nullptr : &*it;
    }

    double number(const json& value, const std::string& where) const {
        if (!value.is_number()) {
            fail(where, "expected a number, got " + describe(value));
        }
        return value.get<double>();
    }

    /// A number that fits a 32-bit float (pan and volume travel as floats).
    double floatNumber(const json& value, const std::string& where) const {
        const double result = number(value, where);
        if (std::fabs(result) > static_cast<double>(std::numeric_limits<float>::max())) {
            fail(where,
                 "expected a number within the range of a 32-bit float, got " + describe(value));
        }
        return result;
    }

    std::uint64_t count(const json& value, const std::string& where) const {
        // A literal without sign, fraction or exponent is the only form nlohmann keeps unsigned.
        if (!value.is_number_unsigned()) {
            fail(where, "expected a whole number >= 0, got " + describe(value));
        }
        return value.get<std::uint64_t>();
    }

    bool boolean(const json& value, const std::string& where) const {
        if (!value.is_boolean()) {
            fail(where, "expected true or false, got " + describe(value));
        }
        return value.get<bool>();
    }

    std::string string(const json& value, const std::string& where) const {
        if (!value.is_string()) {
            fail(where, "expected a string, got " + describe(value));
        }
        return value.get<std::string>();
    }

    std::string path(const json& value, const std::string& where) const {
        const std::string text = string(value, where);
        if (text.empty()) {
            fail(where, "expected a file path, got an empty string");
        }
        if (text.find('\0') != std::string::npos) {
            fail(where, "a file path cannot contain a NUL character");
        }
        std::filesystem::path resolved(text);
        if (resolved.is_relative()) {
            resolved = std::filesystem::path(mFolder) / resolved;
        }
        return resolved.lexically_normal().string();
    }

    std::map<std::string, std::string> stringMap(const json& value,
                                                 const std::string& where) const {
        if (!value.is_object()) {
            fail(where, "expected an object of strings, got " + describe(value));
        }
        std::map<std::string, std::string> result;
        for (const auto& [key, text] : value.items()) {
            result[key] = string(text, where + "." + key);
        }
        return result;
    }

    std::vector<std::string> stringList(const json& value, const std::string& where) const {
        if (!value.is_array()) {
            fail(where, "expected an array of strings, got " + describe(value));
        }
        std::vector<std::string> result;
        for (std::size_t i = 0; i < value.size(); ++i) {
            result.push_back(string(value[i], where + "[" + std::to_string(i) + "]"));
        }
        return result;
    }

    Scenario::RecordPermission recordPermission(const json& value) const {
        const std::string text = string(value, "recordPermission");
        if (text == "undetermined") {
            return Scenario::RecordPermission::undetermined;
        }
        if (text == "denied") {
            return Scenario::RecordPermission::denied;
        }
        if (text == "granted") {
            return Scenario::RecordPermission::granted;
        }
        fail("recordPermission",
             "expected \"undetermined\", \"denied\" or \"granted\", got " + describe(value));
    }

    MicrophoneSignal microphoneSignal(const json& value) const {
        const std::string forms =
            "expected {\"tone\": Hz, \"amplitude\": a}, {\"file\": path} or {\"silence\": true}";
        if (!value.is_object()) {
            fail("microphone", forms + ", got " + describe(value));
        }
        const auto only = [&](std::initializer_list<std::string_view> allowed) {
            for (const auto& [key, field] : value.items()) {
                if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
                    fail("microphone." + key, "unknown field here (" + forms + ")");
                }
            }
        };
        MicrophoneSignal signal;
        if (const json* tone = find(value, "tone")) {
            only({"tone", "amplitude"});
            signal.kind = MicrophoneSignal::Kind::tone;
            signal.frequency = number(*tone, "microphone.tone");
            if (signal.frequency <= 0.0 || signal.frequency >= 24000.0) {
                fail("microphone.tone",
                     "expected a frequency above 0 and below 24000 Hz, got " + describe(*tone));
            }
            signal.amplitude = 0.5;
            if (const json* amplitude = find(value, "amplitude")) {
                signal.amplitude = number(*amplitude, "microphone.amplitude");
                if (signal.amplitude < 0.0 || signal.amplitude > 1.0) {
                    fail("microphone.amplitude",
                         "expected a number from 0 to 1, got " + describe(*amplitude));
                }
            }
        } else if (const json* file = find(value, "file")) {
            only({"file"});
            signal.kind = MicrophoneSignal::Kind::file;
            signal.path = path(*file, "microphone.file");
        } else if (const json* silence = find(value, "silence")) {
            only({"silence"});
            if (!boolean(*silence, "microphone.silence")) {
                fail("microphone.silence", "only {\"silence\": true} is meaningful");
            }
        } else {
            only({});
            fail("microphone", forms + ", got an empty object");
        }
        return signal;
    }

    ScenarioStep step(const json& value, std::size_t index, double duration) const {
        const std::string where = "steps[" + std::to_string(index) + "]";
        if (!value.is_object()) {
            fail(where, "expected a step object, got " + describe(value));
        }
        ScenarioStep result;
        result.index = index;

        const json* action = find(value, "do");
        if (action == nullptr) {
            fail(where + ".do", "missing required field");
        }
        const std::string actionText = string(*action, where + ".do");
        const auto parsedAction = actionFromName(actionText);
        if (!parsedAction) {
            fail(where + ".do", "unknown step " + describe(*action) +
                                    " (known: " + std::string(kAllActions) + ")");
        }
        result.action = *parsedAction;

        const auto& rules = stepFields(result.action);
        for (const auto& [key, field] : value.items()) {
            const bool common =
                std::find(std::begin(kStepCommonFields), std::end(kStepCommonFields), key) !=
                std::end(kStepCommonFields);
            const bool known =
                std::any_of(rules.begin(), rules.end(),
                            [&k = key](const FieldRule& rule) { return rule.name == k; });
            if (!common && !known) {
                std::vector<std::string_view> names{std::begin(kStepCommonFields),
                                                    std::end(kStepCommonFields)};
                for (const auto& rule : rules) {
                    names.push_back(rule.name);
                }
                fail(where + "." + key, "unknown field for a \"" + actionText +
                                            "\" step (known: " + joinNames(names) + ")");
            }
        }

        const json* at = find(value, "at");
        if (at == nullptr) {
            fail(where + ".at", "missing required field");
        }
        result.at = number(*at, where + ".at");
        if (result.at < 0.0) {
            fail(where + ".at", "expected a time >= 0, got " + describe(*at));
        }
        if (result.at > duration) {
            fail(where + ".at", "the step would run after the scenario ends (duration " +
                                    formatNumber(duration) + "), got " + describe(*at));
        }
        for (const auto& rule : rules) {
            if (rule.required && find(value, rule.name) == nullptr) {
                fail(where + "." + std::string(rule.name),
                     "missing required field for a \"" + actionText + "\" step");
            }
        }
        readFields(value, where, result);
        return result;
    }

    /// Reads every field present; the caller has already refused fields the action does not take.
    void readFields(const json& value, const std::string& where, ScenarioStep& step) const {
        const auto field = [&](std::string_view name) {
            return where + "." + std::string(name);
        };
        if (const json* v = find(value, "comment")) {
            string(*v, field("comment"));
        }
        if (const json* v = find(value, "file")) {
            step.file = path(*v, field("file"));
        }
        if (const json* v = find(value, "name")) {
            step.name = string(*v, field("name"));
        }
        if (const json* v = find(value, "ext")) {
            step.ext = string(*v, field("ext"));
        }
        if (const json* v = find(value, "pan")) {
            step.pan = floatNumber(*v, field("pan"));
        }
        if (const json* v = find(value, "volume")) {
            step.volume = floatNumber(*v, field("volume"));
        }
        if (const json* v = find(value, "loop")) {
            step.loop = boolean(*v, field("loop"));
        }
        if (const json* v = find(value, "queued")) {
            step.queued = boolean(*v, field("queued"));
        }
        if (const json* v = find(value, "tag")) {
            step.tag = string(*v, field("tag"));
        }
        if (const json* v = find(value, "text")) {
            step.text = string(*v, field("text"));
        }
        if (const json* v = find(value, "list")) {
            step.list = instructions(*v, field("list"));
        }
        if (const json* v = find(value, "type")) {
            step.type = count(*v, field("type"));
        }
        if (const json* v = find(value, "options")) {
            step.options = count(*v, field("options"));
        }
        if (const json* v = find(value, "maxDuration")) {
            step.maxDuration = number(*v, field("maxDuration"));
        }
    }

    std::vector<ScenarioStep::Instruction> instructions(const json& value,
                                                        const std::string& where) const {
        if (!value.is_array()) {
            fail(where,
                 "expected an array of {\"text\": ..., \"clip\": ...}, got " + describe(value));
        }
        std::vector<ScenarioStep::Instruction> result;
        for (std::size_t i = 0; i < value.size(); ++i) {
            const std::string itemWhere = where + "[" + std::to_string(i) + "]";
            const json& item = value[i];
            if (!item.is_object()) {
                fail(itemWhere, "expected {\"text\": ..., \"clip\": ...}, got " + describe(item));
            }
            for (const auto& [key, field] : item.items()) {
                if (key != "text" && key != "clip") {
                    fail(itemWhere + "." + key, "unknown field (known: text, clip)");
                }
            }
            const json* text = find(item, "text");
            if (text == nullptr) {
                fail(itemWhere + ".text", "missing required field");
            }
            ScenarioStep::Instruction instruction;
            instruction.text = string(*text, itemWhere + ".text");
            if (const json* clip = find(item, "clip")) {
                instruction.clip = path(*clip, itemWhere + ".clip");
            }
            result.push_back(std::move(instruction));
        }
        return result;
    }

    std::string mSourceName;
    std::string mFolder;
};

/// nlohmann's messages start with an identifier ("[json.exception.parse_error.101] "); the rest
/// says where and what.
std::string parseErrorText(const json::exception& error) {
    std::string text = error.what();
    if (!text.empty() && text.front() == '[') {
        const auto end = text.find("] ");
        if (end != std::string::npos) {
            text.erase(0, end + 2);
        }
    }
    return text;
}

} // namespace

ScenarioParser::Result ScenarioParser::parseFile(const std::string& path) {
    const auto failure = [&](const std::string& what) {
        return Result{std::nullopt, path + ": " + what};
    };
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error || !std::filesystem::exists(status)) {
        return failure("cannot read the scenario: no such file");
    }
    if (!std::filesystem::is_regular_file(status)) {
        return failure("cannot read the scenario: not a regular file");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return failure("cannot read the scenario: permission denied or unreadable");
    }
    std::string text;
    char buffer[65536];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        text.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (text.size() > kMaxFileSize) {
            return failure("the scenario is larger than " + std::to_string(kMaxFileSize) +
                           " bytes");
        }
    }
    if (in.bad()) {
        return failure("cannot read the scenario: read error");
    }
    const auto absolute = std::filesystem::absolute(path, error);
    const std::string folder =
        error ? std::string(".") : absolute.lexically_normal().parent_path().string();
    return parseText(text, path, folder);
}

ScenarioParser::Result ScenarioParser::parseText(std::string_view text,
                                                 const std::string& sourceName,
                                                 const std::string& folder) {
    json root;
    try {
        root = json::parse(text.begin(), text.end());
    } catch (const json::exception& error) { // parse_error, or out_of_range for 1e400
        return Result{std::nullopt, sourceName + ": invalid JSON: " + parseErrorText(error)};
    }
    try {
        return Result{Checker(sourceName, folder).check(root), {}};
    } catch (const Invalid& invalid) {
        return Result{std::nullopt, invalid.message};
    }
}

} // namespace vantelo_sounds::cli
