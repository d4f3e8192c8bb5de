// The real program, run as a subprocess on scenarios written next to generated sounds.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::cli {
namespace {

using nlohmann::json;

struct CliResult {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// A 48 kHz stereo float WAV as the program writes it.
struct Wav {
    int format = 0;
    int channels = 0;
    int rate = 0;
    int bits = 0;
    std::vector<float> samples; // interleaved

    std::size_t frames() const { return channels > 0 ? samples.size() / channels : 0; }

    /// RMS of one channel over [from, to) seconds.
    double rms(int channel, double from, double to) const {
        const auto first = static_cast<std::size_t>(from * rate);
        const auto last = std::min(frames(), static_cast<std::size_t>(to * rate));
        double sum = 0.0;
        for (std::size_t i = first; i < last; ++i) {
            const double s = samples[i * channels + channel];
            sum += s * s;
        }
        return last > first ? std::sqrt(sum / static_cast<double>(last - first)) : 0.0;
    }
};

std::uint32_t le32(const std::string& b, std::size_t at) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(b[at])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(b[at + 1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(b[at + 2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(b[at + 3])) << 24;
}

std::uint16_t le16(const std::string& b, std::size_t at) {
    return static_cast<std::uint16_t>(static_cast<unsigned char>(b[at]) |
                                      static_cast<unsigned char>(b[at + 1]) << 8);
}

Wav readWav(const std::string& path) {
    const std::string bytes = readFile(path);
    Wav wav;
    if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") != 0 || bytes.compare(8, 4, "WAVE") != 0) {
        ADD_FAILURE() << path << " is not a RIFF/WAVE file";
        return wav;
    }
    std::size_t at = 12;
    while (at + 8 <= bytes.size()) {
        const std::string id = bytes.substr(at, 4);
        const std::uint32_t size = le32(bytes, at + 4);
        const std::size_t body = at + 8;
        if (id == "fmt ") {
            wav.format = le16(bytes, body);
            wav.channels = le16(bytes, body + 2);
            wav.rate = static_cast<int>(le32(bytes, body + 4));
            wav.bits = le16(bytes, body + 14);
            if (wav.format == 0xFFFE && size >= 26) { // extensible: the sub-format says float
                wav.format = le16(bytes, body + 24);
            }
        } else if (id == "data") {
            const std::size_t length = std::min<std::size_t>(size, bytes.size() - body);
            wav.samples.resize(length / sizeof(float));
            std::memcpy(wav.samples.data(), bytes.data() + body,
                        wav.samples.size() * sizeof(float));
        }
        at = body + size + (size & 1u);
    }
    return wav;
}

class CliRunTest : public ::testing::Test {
protected:
    /// Writes `scenario` as dir/name and returns its path.
    std::string writeScenario(const std::string& text, const std::string& name = "scenario.json") {
        return mFiles.writeBytes(name, text);
    }

    /// Runs the program with `args`; standard output and error are kept apart.
    CliResult run(const std::vector<std::string>& args) {
        const std::string outPath = mFiles.path("stdout.txt");
        const std::string errPath = mFiles.path("stderr.txt");
        const pid_t child = ::fork();
        if (child == 0) {
            const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            ::dup2(out, STDOUT_FILENO);
            ::dup2(err, STDERR_FILENO);
            // Run from elsewhere than the scenario's folder, so that relative paths must be
            // resolved against the scenario, not the working directory.
            if (::chdir("/") != 0) {
                ::_exit(120);
            }
            ::alarm(60); // a hung program fails the test instead of hanging it
            std::vector<char*> argv{const_cast<char*>(VANTELO_SOUNDS_CLI)};
            for (const auto& arg : args) {
                argv.push_back(const_cast<char*>(arg.c_str()));
            }
            argv.push_back(nullptr);
            ::execv(VANTELO_SOUNDS_CLI, argv.data());
            ::_exit(127);
        }
        CliResult result;
        int status = 0;
        if (child > 0 && ::waitpid(child, &status, 0) == child) {
            result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        result.out = readFile(outPath);
        result.err = readFile(errPath);
        return result;
    }

    std::vector<json> readEvents(const std::string& path) {
        std::vector<json> events;
        for (const auto& line : splitLines(readFile(path))) {
            events.push_back(json::parse(line)); // throws, failing the test, on a bad line
        }
        return events;
    }

    test::SoundFixtures mFiles;
};

struct InvalidRun {
    const char* name;
    const char* scenario;
    const char* field;
};

void PrintTo(const InvalidRun& invalid, std::ostream* out) {
    *out << invalid.name;
}

class CliInvalidScenarioTest : public CliRunTest,
                               public ::testing::WithParamInterface<InvalidRun> {};

TEST_P(CliInvalidScenarioTest, ExitsWithTwoAndOneLineNamingFileAndField) {
    // The first step is valid and early: nothing may run before the whole file is checked.
    const std::string path = writeScenario(GetParam().scenario);
    const CliResult result = run({"run", path});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    const auto lines = splitLines(result.err);
    ASSERT_EQ(lines.size(), 1u) << result.err;
    EXPECT_EQ(lines[0].rfind(path + ": ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(GetParam().field), std::string::npos) << lines[0];
}

INSTANTIATE_TEST_SUITE_P(
    Table, CliInvalidScenarioTest,
    ::testing::Values(
        InvalidRun{"UnknownStep",
                   R"({"duration": 1, "steps": [{"at": 0, "do": "play", "file": "x.wav"},
                       {"at": 0.5, "do": "dance"}]})",
                   "steps[1].do"},
        InvalidRun{"MissingDuration", R"({"steps": [{"at": 0, "do": "shutup"}]})", "duration"},
        InvalidRun{"WrongType",
                   R"({"duration": 1, "steps": [{"at": 0, "do": "play", "file": "x.wav"},
                       {"at": 0, "do": "play", "file": "x.wav", "volume": "loud"}]})",
                   "steps[1].volume: expected a number, got \"loud\""},
        InvalidRun{
            "UnknownField",
            R"({"duration": 1, "steps": [{"at": 0, "do": "speak", "text": "a", "pitch": 2}]})",
            "steps[0].pitch"},
        InvalidRun{"BadJson", R"({"duration": 1, "steps": [)", "invalid JSON"},
        InvalidRun{"BadEnum", R"({"duration": 1, "recordPermission": "perhaps"})",
                   "recordPermission"}),
    [](const ::testing::TestParamInfo<InvalidRun>& param) {
        return std::string(param.param.name);
    });

TEST_F(CliRunTest, UsageMistakesAndMissingScenarioAreInvalidToo) {
    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"run"}).status, 2);
    EXPECT_EQ(run({"run", "a.json", "--bogus"}).status, 2);
    const CliResult missing = run({"run", mFiles.path("absent.json")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.out, "");
    EXPECT_NE(missing.err.find(mFiles.path("absent.json")), std::string::npos) << missing.err;
}

TEST_F(CliRunTest, OutputsThatCannotBeWrittenFailBeforeAnythingPlays) {
    const std::string path = writeScenario(
        R"({"duration": 0.5, "steps": [{"at": 0, "do": "play", "file": "nothing.wav"}]})");
    for (const char* option : {"--events", "--render"}) {
        const CliResult result = run({"run", path, option, mFiles.path("no/such/folder/out")});
        EXPECT_EQ(result.status, 1) << option;
        EXPECT_EQ(result.out, "") << option;
        EXPECT_NE(result.err.find(mFiles.path("no/such/folder/out")), std::string::npos)
            << result.err;
    }
}

TEST_F(CliRunTest, MissingSoundIsReportedByTheLibraryNotRefused) {
    const std::string path = writeScenario(
        R"({"duration": 0.5, "steps": [{"at": 0.1, "do": "play", "file": "nothing.wav"}]})");
    const CliResult result = run({"run", path});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto lines = splitLines(result.out);
    ASSERT_EQ(lines.size(), 2u) << result.out;
    EXPECT_EQ(lines[0].rfind("Failed 2 creating audio player for url file://" +
                                 mFiles.path("nothing.wav") + ": ",
                             0),
              0u)
        << lines[0];
    EXPECT_EQ(lines[1], "Sound is playing in channel 1");
}

TEST_F(CliRunTest, StepsRunByTimeAndInFileOrderAtEqualTimes) {
    const std::string path = writeScenario(R"({"duration": 1, "steps": [
        {"at": 0.5, "do": "play", "file": "c.wav"},
        {"at": 0.2, "do": "play", "file": "a.wav"},
        {"at": 0.2, "do": "play", "file": "b.wav"}]})");
    const CliResult result = run({"run", path});
    ASSERT_EQ(result.status, 0) << result.err;
    std::vector<std::string> files;
    for (const auto& line : splitLines(result.out)) {
        const auto slash = line.rfind('/');
        if (line.rfind("Failed 2", 0) == 0 && slash != std::string::npos) {
            files.push_back(line.substr(slash + 1, 5));
        }
    }
    EXPECT_EQ(files, (std::vector<std::string>{"a.wav", "b.wav", "c.wav"})) << result.out;
}

TEST_F(CliRunTest, EventsAreJsonLinesInTimeOrderMatchingTheConsole) {
    mFiles.tone("tone.wav", 1000.0, 0.5);
    mFiles.tone("hum.wav", 200.0, 0.1);
    const std::string path = writeScenario(R"({"duration": 1, "steps": [
        {"at": 0.25, "do": "play", "file": "tone.wav", "pan": -1, "volume": 1, "tag": "t1"},
        {"at": 0.3, "do": "play", "file": "nothing.wav"},
        {"at": 0.3, "do": "play", "file": "hum.wav", "loop": true, "tag": "hum"},
        {"at": 0.6, "do": "stop", "file": "hum.wav"}]})");
    const std::string eventsPath = mFiles.path("events.jsonl");
    const CliResult result = run({"run", path, "--events", eventsPath});
    ASSERT_EQ(result.status, 0) << result.err;

    const auto events = readEvents(eventsPath);
    std::vector<std::string> consoleLines;
    std::vector<json> others;
    double previous = 0.0;
    for (const auto& event : events) {
        ASSERT_TRUE(event["t"].is_number()) << event;
        EXPECT_GE(event["t"].get<double>(), previous) << event;
        previous = event["t"].get<double>();
        if (event["type"] == "console") {
            consoleLines.push_back(event["line"]);
        } else {
            json rest = event;
            rest["t"] = std::round(event["t"].get<double>() * 1000.0) / 1000.0; // to the ms
            others.push_back(rest);
        }
    }
    EXPECT_EQ(consoleLines, splitLines(result.out));

    const std::string tone = mFiles.path("tone.wav");
    const std::string hum = mFiles.path("hum.wav");
    // The failed file took no channel, so the loop plays on channel 2; the tone ends by itself
    // after its 0.5 s, the loop when it is stopped, and each tagged completion follows its end.
    const std::vector<json> expected{
        {{"t", 0.25}, {"type", "soundStart"}, {"channel", 1}, {"file", tone}},
        {{"t", 0.3}, {"type", "soundStart"}, {"channel", 2}, {"file", hum}},
        {{"t", 0.6}, {"type", "soundEnd"}, {"channel", 2}, {"file", hum}, {"reason", "stopped"}},
        {{"t", 0.6}, {"type", "completion"}, {"tag", "hum"}},
        {{"t", 0.75}, {"type", "soundEnd"}, {"channel", 1}, {"file", tone}, {"reason", "finished"}},
        {{"t", 0.75}, {"type", "completion"}, {"tag", "t1"}},
    };
    EXPECT_EQ(others, expected);
}

TEST_F(CliRunTest, ResourcesComeFromTheScenarioBundle) {
    std::filesystem::create_directories(mFiles.path("res"));
    mFiles.tone("res/ping.wav", 500.0, 0.1);
    const std::string path = writeScenario(R"({"duration": 0.5, "bundle": "res", "steps": [
        {"at": 0.1, "do": "playResource", "name": "ping", "ext": "wav", "tag": "p"}]})");
    const std::string eventsPath = mFiles.path("events.jsonl");
    const CliResult result = run({"run", path, "--events", eventsPath});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Sound is playing in channel 1\n");
    bool started = false;
    for (const auto& event : readEvents(eventsPath)) {
        if (event["type"] == "soundStart") {
            started = true;
            EXPECT_EQ(event["file"], mFiles.path("res/ping.wav"));
        }
    }
    EXPECT_TRUE(started);
}

TEST_F(CliRunTest, RenderIsStereoFloatAt48kOfExactlyTheDuration) {
    mFiles.tone("tone.wav", 1000.0, 0.5, 48000, 1, 0.5f);
    const std::string path = writeScenario(R"({"duration": 1.5, "steps": [
        {"at": 0.25, "do": "play", "file": "tone.wav", "pan": -1, "volume": 1}]})");
    const std::string wavPath = mFiles.path("mix.wav");
    const CliResult result = run({"run", path, "--render", wavPath});
    ASSERT_EQ(result.status, 0) << result.err;

    const Wav wav = readWav(wavPath);
    EXPECT_EQ(wav.format, 3); // IEEE float
    EXPECT_EQ(wav.channels, 2);
    EXPECT_EQ(wav.rate, 48000);
    EXPECT_EQ(wav.bits, 32);
    EXPECT_EQ(wav.frames(), 72000u);
    // Silence before the step, the tone hard left while it plays, silence after it ends.
    EXPECT_LT(wav.rms(0, 0.0, 0.24), 1e-6);
    EXPECT_NEAR(wav.rms(0, 0.3, 0.7), 0.5 / std::sqrt(2.0), 0.03);
    EXPECT_LT(wav.rms(1, 0.3, 0.7), 1e-3);
    EXPECT_LT(wav.rms(0, 0.8, 1.5), 1e-6);
}

// Sets an environment variable for the programs run in its lifetime (they inherit it).
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value)
        : mName(name) {
        if (const char* old = std::getenv(name)) {
            mOld = old;
        }
        ::setenv(name, value, 1);
    }
    ~ScopedEnv() {
        if (mOld) {
            ::setenv(mName.c_str(), mOld->c_str(), 1);
        } else {
            ::unsetenv(mName.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string mName;
    std::optional<std::string> mOld;
};

TEST_F(CliRunTest, RealTimeRenderRecordsWhatWasPlayedForTheDuration) {
    mFiles.tone("tone.wav", 1000.0, 0.2, 48000, 1, 0.5f);
    const std::string path = writeScenario(R"({"duration": 0.3, "steps": [
        {"at": 0, "do": "play", "file": "tone.wav", "pan": -1, "volume": 1}]})");
    const std::string wavPath = mFiles.path("played.wav");
    const ScopedEnv output("VANTELO_SOUNDS_OUTPUT", "null");
    const CliResult result = run({"run", path, "--realtime", "--render", wavPath});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err.find("render"), std::string::npos) << result.err;

    const Wav wav = readWav(wavPath);
    EXPECT_EQ(wav.format, 3);
    EXPECT_EQ(wav.channels, 2);
    EXPECT_EQ(wav.rate, 48000);
    EXPECT_EQ(wav.bits, 32);
    EXPECT_NEAR(static_cast<double>(wav.frames()), 14400.0, 1024.0);
    // The tone, hard left, takes about two thirds of the file (0.2 s of 0.3 s).
    EXPECT_NEAR(wav.rms(0, 0.0, 0.3), 0.5 / std::sqrt(2.0) * std::sqrt(2.0 / 3.0), 0.05);
    EXPECT_LT(wav.rms(1, 0.0, 0.3), 1e-3);
}

} // namespace
} // namespace vantelo_sounds::cli
