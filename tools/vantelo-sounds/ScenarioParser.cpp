#include "ScenarioParser.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <span>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantelo_sounds::cli {

namespace {

using nlohmann::json;
using Action = ScenarioStep::Action;

/// Thrown inside the checker only; parseText turns it into the result's failure.
struct Invalid {
    std::string message;
};

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

const json* find(const json& object, std::string_view key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

/// Reads one JSON value of each kind a scenario holds, or fails with a message that says where
/// and what.
class Values {
public:
    Values(std::string sourceName, std::string folder)
        : mSourceName(std::move(sourceName))
        , mFolder(std::move(folder)) {}

    const std::string& folder() const { return mFolder; }

    [[noreturn]] void fail(const std::string& where, const std::string& what) const {
        throw Invalid{oneLine(mSourceName + ": " + (where.empty() ? "" : where + ": ") + what)};
    }

    /// A message is one line, whatever names the file holds: control characters (a field named
    /// "two\nlines", terminal escapes) are written as \n, \t or \xHH.
    static std::string oneLine(const std::string& text) {
        std::string line;
        line.reserve(text.size());
        for (const char c : text) {
            const auto byte = static_cast<unsigned char>(c);
            if (c == '\n') {
                line += "\\n";
            } else if (c == '\t') {
                line += "\\t";
            } else if (byte < 0x20 || byte == 0x7f) {
                static constexpr char kHex[] = "0123456789abcdef";
                line += "\\x";
                line += kHex[byte >> 4];
                line += kHex[byte & 0xf];
            } else {
                line += c;
            }
        }
        return line;
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

    double duration(const json& value, const std::string& where) const {
        const double result = number(value, where);
        if (result < 0.0 || result > ScenarioParser::kMaxDuration) {
            fail(where, "expected seconds from 0 to " + formatNumber(ScenarioParser::kMaxDuration) +
                            ", got " + describe(value));
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

    /// A file path, made absolute against the scenario's folder.
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

    Scenario::RecordPermission recordPermission(const json& value, const std::string& where) const {
        const std::string text = string(value, where);
        if (text == "undetermined") {
            return Scenario::RecordPermission::undetermined;
        }
        if (text == "denied") {
            return Scenario::RecordPermission::denied;
        }
        if (text == "granted") {
            return Scenario::RecordPermission::granted;
        }
        fail(where, "expected \"undetermined\", \"denied\" or \"granted\", got " + describe(value));
    }

    /// True when the user grants the permission.
    bool permissionAnswer(const json& value, const std::string& where) const {
        const std::string text = string(value, where);
        if (text != "grant" && text != "refuse") {
            fail(where, "expected \"grant\" or \"refuse\", got " + describe(value));
        }
        return text == "grant";
    }

    MicrophoneSignal microphone(const json& value, const std::string& where) const;
    std::vector<ScenarioStep::Instruction> instructions(const json& value,
                                                        const std::string& where) const;

private:
    std::string mSourceName;
    std::string mFolder;
};

// ---- The field tables -------------------------------------------------------------------------
// Each record a scenario holds (the file, a step of each kind, an instruction) has one table of
// the fields it accepts: the name, whether it is required, and how its value is read and where it
// goes. The same walk over the table refuses unknown fields, reports missing ones and reads the
// rest; a field that is absent keeps the record's default (ScenarioStep: pan 0, volume 0.75).

template <typename Record>
struct Field {
    using Store = void (*)(const Values&, const json& value, const std::string& where, Record&);
    std::string_view name;
    bool required;
    Store store; ///< nullptr: the caller reads it itself
};

constexpr bool kRequired = true;
constexpr bool kOptional = false;

template <typename Pointer>
struct MemberOf;
template <typename Record, typename T>
struct MemberOf<T Record::*> {
    using type = Record;
};

/// Reads the value with `read` and stores it in `member`.
template <auto member, auto read>
void store(const Values& values, const json& value, const std::string& where,
           typename MemberOf<decltype(member)>::type& record) {
    record.*member = (values.*read)(value, where);
}

/// Checks the value with `read` and keeps nothing (comments).
template <auto read, typename Record>
void check(const Values& values, const json& value, const std::string& where, Record&) {
    (void)(values.*read)(value, where);
}

using FileField = Field<Scenario>;
using StepField = Field<ScenarioStep>;
using InstructionField = Field<ScenarioStep::Instruction>;

constexpr std::array kFileFields{
    FileField{"duration", kRequired, store<&Scenario::duration, &Values::duration>},
    FileField{"bundle", kOptional, store<&Scenario::bundle, &Values::path>},
    FileField{"localizations", kOptional, store<&Scenario::localizations, &Values::stringMap>},
    FileField{"voices", kOptional, store<&Scenario::voices, &Values::stringList>},
    FileField{"recordPermission", kOptional,
              store<&Scenario::recordPermission, &Values::recordPermission>},
    FileField{"permissionAnswer", kOptional,
              store<&Scenario::grantPermission, &Values::permissionAnswer>},
    FileField{"microphone", kOptional, store<&Scenario::microphone, &Values::microphone>},
    FileField{"steps", kOptional, nullptr}, // after the others: a step's time needs the duration
    FileField{"comment", kOptional, check<&Values::string, Scenario>},
};

/// The fields of every step, read before those of its kind.
constexpr std::array kStepCommonFields{
    StepField{"at", kRequired, nullptr},
    StepField{"do", kRequired, nullptr},
    StepField{"comment", kOptional, check<&Values::string, ScenarioStep>},
};

constexpr StepField kFile{"file", kRequired, store<&ScenarioStep::file, &Values::path>};
constexpr StepField kText{"text", kRequired, store<&ScenarioStep::text, &Values::string>};
constexpr StepField kTag{"tag", kOptional, store<&ScenarioStep::tag, &Values::string>};
constexpr StepField kPan{"pan", kOptional, store<&ScenarioStep::pan, &Values::floatNumber>};
constexpr StepField kVolume{"volume", kOptional,
                            store<&ScenarioStep::volume, &Values::floatNumber>};
constexpr StepField kLoop{"loop", kOptional, store<&ScenarioStep::loop, &Values::boolean>};
constexpr StepField kQueued{"queued", kOptional, store<&ScenarioStep::queued, &Values::boolean>};

constexpr std::array kPlayFields{kFile, kPan, kVolume, kLoop, kQueued, kTag};
constexpr std::array kPlayResourceFields{
    StepField{"name", kRequired, store<&ScenarioStep::name, &Values::string>},
    StepField{"ext", kRequired, store<&ScenarioStep::ext, &Values::string>},
    kPan,
    kVolume,
    kLoop,
    kQueued,
    kTag,
};
constexpr std::array kStopFields{kFile};
constexpr std::array kSpeakFields{kText, kTag};
constexpr std::array kSpeakBritishFields{kText};
constexpr std::array kInstructionsFields{
    StepField{"list", kRequired, store<&ScenarioStep::list, &Values::instructions>},
};
constexpr std::array kInterruptionFields{
    StepField{"type", kRequired, store<&ScenarioStep::type, &Values::count>},
    StepField{"options", kOptional, store<&ScenarioStep::options, &Values::count>},
};
constexpr std::array kTagOnlyFields{kTag};
constexpr std::array kStartRecordingFields{
    StepField{"maxDuration", kRequired, store<&ScenarioStep::maxDuration, &Values::number>},
    kTag,
};

constexpr std::array kInstructionItemFields{
    InstructionField{"text", kRequired, store<&ScenarioStep::Instruction::text, &Values::string>},
    InstructionField{"clip", kOptional, store<&ScenarioStep::Instruction::clip, &Values::path>},
};

struct StepKind {
    Action action;
    std::span<const StepField> fields;
};

/// The fields of each kind of step besides the common ones; shutup and stopRecording take none.
constexpr std::array kStepKinds{
    StepKind{Action::play, kPlayFields},
    StepKind{Action::playResource, kPlayResourceFields},
    StepKind{Action::stop, kStopFields},
    StepKind{Action::speak, kSpeakFields},
    StepKind{Action::speakBritish, kSpeakBritishFields},
    StepKind{Action::instructions, kInstructionsFields},
    StepKind{Action::interruption, kInterruptionFields},
    StepKind{Action::requestPermissions, kTagOnlyFields},
    StepKind{Action::startRecording, kStartRecordingFields},
};

std::span<const StepField> stepFields(Action action) {
    const auto kind =
        std::find_if(kStepKinds.begin(), kStepKinds.end(),
                     [&](const StepKind& candidate) { return candidate.action == action; });
    return kind == kStepKinds.end() ? std::span<const StepField>() : kind->fields;
}

constexpr std::string_view kAllActions =
    "play, playResource, stop, speak, speakBritish, shutup, instructions, interruption, "
    "requestPermissions, startRecording, stopRecording";

/// Fails on the first member of `object` that none of `tables` names. `prefix` is the object's
/// place ("steps[2].", empty at the top) and `unknown` what the message calls such a field.
template <typename Record>
void refuseUnknownFields(const Values& values, const json& object, const std::string& prefix,
                         std::initializer_list<std::span<const Field<Record>>> tables,
                         const std::string& unknown) {
    const auto known = [&](const std::string& key) {
        return std::any_of(tables.begin(), tables.end(), [&](const auto& table) {
            return std::any_of(table.begin(), table.end(),
                               [&](const auto& field) { return field.name == key; });
        });
    };
    for (const auto& [key, value] : object.items()) {
        if (known(key)) {
            continue;
        }
        std::string names;
        for (const auto& table : tables) {
            for (const auto& field : table) {
                names += (names.empty() ? "" : ", ") + std::string(field.name);
            }
        }
        values.fail(prefix + key, unknown + " (known: " + names + ")");
    }
}

/// Reads the fields of `table` that the caller does not read itself, in the table's order.
template <typename Record>
void readFields(const Values& values, const json& object, const std::string& prefix,
                std::span<const Field<Record>> table, const std::string& missing, Record& record) {
    for (const auto& field : table) {
        if (field.store == nullptr) {
            continue;
        }
        const std::string where = prefix + std::string(field.name);
        if (const json* value = find(object, field.name)) {
            field.store(values, *value, where, record);
        } else if (field.required) {
            values.fail(where, missing);
        }
    }
}

MicrophoneSignal Values::microphone(const json& value, const std::string& where) const {
    const std::string forms =
        "expected {\"tone\": Hz, \"amplitude\": a}, {\"file\": path}, {\"silence\": true} or "
        "{\"device\": true}";
    if (!value.is_object()) {
        fail(where, forms + ", got " + describe(value));
    }
    const auto only = [&](std::initializer_list<std::string_view> allowed) {
        for (const auto& [key, field] : value.items()) {
            if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
                fail(where + "." + key, "unknown field here (" + forms + ")");
            }
        }
    };
    MicrophoneSignal signal;
    if (const json* tone = find(value, "tone")) {
        only({"tone", "amplitude"});
        signal.kind = MicrophoneSignal::Kind::tone;
        signal.frequency = number(*tone, where + ".tone");
        if (signal.frequency <= 0.0 || signal.frequency >= 24000.0) {
            fail(where + ".tone",
                 "expected a frequency above 0 and below 24000 Hz, got " + describe(*tone));
        }
        signal.amplitude = 0.5;
        if (const json* amplitude = find(value, "amplitude")) {
            signal.amplitude = number(*amplitude, where + ".amplitude");
            if (signal.amplitude < 0.0 || signal.amplitude > 1.0) {
                fail(where + ".amplitude",
                     "expected a number from 0 to 1, got " + describe(*amplitude));
            }
        }
    } else if (const json* file = find(value, "file")) {
        only({"file"});
        signal.kind = MicrophoneSignal::Kind::file;
        signal.path = path(*file, where + ".file");
    } else if (const json* silence = find(value, "silence")) {
        only({"silence"});
        if (!boolean(*silence, where + ".silence")) {
            fail(where + ".silence", "only {\"silence\": true} is meaningful");
        }
    } else if (const json* device = find(value, "device")) {
        only({"device"});
        if (!boolean(*device, where + ".device")) {
            fail(where + ".device", "only {\"device\": true} is meaningful");
        }
        signal.kind = MicrophoneSignal::Kind::device;
    } else {
        only({});
        fail(where, forms + ", got an empty object");
    }
    return signal;
}

std::vector<ScenarioStep::Instruction> Values::instructions(const json& value,
                                                            const std::string& where) const {
    if (!value.is_array()) {
        fail(where, "expected an array of {\"text\": ..., \"clip\": ...}, got " + describe(value));
    }
    std::vector<ScenarioStep::Instruction> result(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        const std::string itemWhere = where + "[" + std::to_string(i) + "]";
        if (!value[i].is_object()) {
            fail(itemWhere, "expected {\"text\": ..., \"clip\": ...}, got " + describe(value[i]));
        }
        const std::span<const InstructionField> fields = kInstructionItemFields;
        refuseUnknownFields(*this, value[i], itemWhere + ".", {fields}, "unknown field");
        readFields(*this, value[i], itemWhere + ".", fields, "missing required field", result[i]);
    }
    return result;
}

ScenarioStep readStep(const Values& values, const json& value, std::size_t index, double duration) {
    const std::string where = "steps[" + std::to_string(index) + "]";
    if (!value.is_object()) {
        values.fail(where, "expected a step object, got " + describe(value));
    }
    ScenarioStep step;
    step.index = index;

    const json* action = find(value, "do");
    if (action == nullptr) {
        values.fail(where + ".do", "missing required field");
    }
    const std::string actionText = values.string(*action, where + ".do");
    const auto parsedAction = actionFromName(actionText);
    if (!parsedAction) {
        values.fail(where + ".do", "unknown step " + describe(*action) +
                                       " (known: " + std::string(kAllActions) + ")");
    }
    step.action = *parsedAction;
    const std::span<const StepField> common = kStepCommonFields;
    const std::span<const StepField> fields = stepFields(step.action);
    const std::string kind = "for a \"" + actionText + "\" step";
    refuseUnknownFields(values, value, where + ".", {common, fields}, "unknown field " + kind);

    const json* at = find(value, "at");
    if (at == nullptr) {
        values.fail(where + ".at", "missing required field");
    }
    step.at = values.number(*at, where + ".at");
    if (step.at < 0.0) {
        values.fail(where + ".at", "expected a time >= 0, got " + describe(*at));
    }
    if (step.at > duration) {
        values.fail(where + ".at", "the step would run after the scenario ends (duration " +
                                       formatNumber(duration) + "), got " + describe(*at));
    }
    readFields(values, value, where + ".", common, "missing required field", step);
    readFields(values, value, where + ".", fields, "missing required field " + kind, step);
    return step;
}

Scenario readScenario(const Values& values, const json& root) {
    if (!root.is_object()) {
        values.fail("", "expected a JSON object at the top level, got " + describe(root));
    }
    const std::span<const FileField> fields = kFileFields;
    refuseUnknownFields(values, root, "", {fields}, "unknown field");
    Scenario scenario;
    scenario.folder = values.folder();
    scenario.bundle = values.folder();
    readFields(values, root, "", fields, "missing required field", scenario);
    if (const json* steps = find(root, "steps")) {
        if (!steps->is_array()) {
            values.fail("steps", "expected an array of steps, got " + describe(*steps));
        }
        for (std::size_t i = 0; i < steps->size(); ++i) {
            scenario.steps.push_back(readStep(values, (*steps)[i], i, scenario.duration));
        }
    }
    return scenario;
}

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

Expected<Scenario> ScenarioParser::parseFile(const std::string& path) {
    const auto unreadable = [&](const std::string& what) {
        return Expected<Scenario>(ScenarioError::unreadable, path + ": " + what);
    };
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error || !std::filesystem::exists(status)) {
        return unreadable("cannot read the scenario: no such file");
    }
    if (!std::filesystem::is_regular_file(status)) {
        return unreadable("cannot read the scenario: not a regular file");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return unreadable("cannot read the scenario: permission denied or unreadable");
    }
    std::string text;
    char buffer[65536];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        text.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (text.size() > kMaxFileSize) {
            return unreadable("the scenario is larger than " + std::to_string(kMaxFileSize) +
                              " bytes");
        }
    }
    if (in.bad()) {
        return unreadable("cannot read the scenario: read error");
    }
    const auto absolute = std::filesystem::absolute(path, error);
    const std::string folder =
        error ? std::string(".") : absolute.lexically_normal().parent_path().string();
    return parseText(text, path, folder);
}

Expected<Scenario> ScenarioParser::parseText(std::string_view text, const std::string& sourceName,
                                             const std::string& folder) {
    json root;
    try {
        root = json::parse(text.begin(), text.end());
    } catch (const json::exception& error) { // parse_error, or out_of_range for 1e400
        return Expected<Scenario>(ScenarioError::invalidJson,
                                  sourceName + ": invalid JSON: " + parseErrorText(error));
    }
    try {
        Scenario scenario = readScenario(Values(sourceName, folder), root);
        scenario.sourceName = sourceName;
        return scenario;
    } catch (const Invalid& invalid) {
        return Expected<Scenario>(ScenarioError::invalidScenario, invalid.message);
    }
}

} // namespace vantelo_sounds::cli
