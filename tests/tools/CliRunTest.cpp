// The real program, run as a subprocess on scenarios written next to generated sounds.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/DecodedSound.hpp"
#include "support/NamedCase.hpp"
#include "support/OfflineAudio.hpp"
#include "support/SoundFixtures.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds::cli {
namespace {

using nlohmann::json;
using test::DecodedSound;
using test::decodeFile;
using test::SoundFixtures;

struct CliResult {
    int status = -1;
    std::string out;
    std::string err;
};

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

class CliRunTest : public ::testing::Test {
protected:
    std::string writeScenario(const std::string& text) {
        return mFiles.writeBytes("scenario.json", text);
    }

    /// Runs the program with `args` from "/" (so that relative paths must be resolved against
    /// the scenario's folder), with the environment variable `env` ("NAME=value") if given.
    CliResult run(const std::vector<std::string>& args, const std::string& env = "") {
        std::string command = "cd / && " + env + " timeout 60 " + VANTELO_SOUNDS_CLI;
        for (const auto& arg : args) {
            command += " '" + arg + "'";
        }
        const std::string out = mFiles.path("stdout.txt");
        const std::string err = mFiles.path("stderr.txt");
        const int status = std::system((command + " >" + out + " 2>" + err).c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, SoundFixtures::readBytes(out),
                SoundFixtures::readBytes(err)};
    }

    /// Runs `scenario` with --events and --render (into mix.wav) and returns the events, times
    /// rounded to the millisecond (mTimes keeps them as written). Time never goes back from one
    /// line to the next.
    std::vector<json> events(const std::string& scenario, const std::string& env = "") {
        const std::string eventsPath = mFiles.path("events.jsonl");
        mLast = run({"run", writeScenario(scenario), "--events", eventsPath, "--render",
                     mFiles.path("mix.wav")},
                    env);
        EXPECT_EQ(mLast.status, 0) << mLast.err;
        std::vector<json> parsed;
        mTimes.clear();
        double previous = 0.0;
        for (const auto& line : splitLines(SoundFixtures::readBytes(eventsPath))) {
            parsed.push_back(json::parse(line)); // throws, failing the test, on a bad line
            const double t = parsed.back()["t"].get<double>();
            EXPECT_GE(t, previous) << line;
            previous = t;
            mTimes.push_back(t);
            parsed.back()["t"] = std::round(t * 1000.0) / 1000.0;
        }
        // Every run begins with the output it plays on, here the offline render into mix.wav;
        // the tests look at what follows.
        const json output{
            {"t", 0.0}, {"type", "output"}, {"name", "manual"}, {"device", mFiles.path("mix.wav")}};
        if (parsed.empty() || parsed.front() != output) {
            ADD_FAILURE() << "the first event is not " << output;
            return parsed;
        }
        parsed.erase(parsed.begin());
        mTimes.erase(mTimes.begin());
        return parsed;
    }

    static json consoleEvent(double t, const std::string& line) {
        return {{"t", t}, {"type", "console"}, {"line", line}};
    }
    json soundEvent(double t, const char* type, json channel, const char* file,
                    const char* reason = nullptr) {
        json event{{"t", t}, {"type", type}, {"channel", channel}, {"file", mFiles.path(file)}};
        if (reason != nullptr) {
            event["reason"] = reason;
        }
        return event;
    }

    SoundFixtures mFiles;
    CliResult mLast;            ///< the last run of events()
    std::vector<double> mTimes; ///< the unrounded times of the last events()
};

TEST_F(CliRunTest, InvalidScenariosUsageAndUnwritableOutputsFailBeforeAnythingRuns) {
    // The first step is valid and early: nothing may run before the whole file is checked.
    const std::string path = writeScenario(R"({"duration": 1, "steps": [
        {"at": 0, "do": "play", "file": "x.wav"}, {"at": 0.5, "do": "dance"}]})");
    const CliResult invalid = run({"run", path});
    EXPECT_EQ(invalid.status, 2);
    EXPECT_EQ(invalid.out, "");
    EXPECT_EQ(invalid.err.rfind(path + ": steps[1].do: unknown step \"dance\"", 0), 0u);
    EXPECT_EQ(splitLines(invalid.err).size(), 1u) << invalid.err;

    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"run", "a.json", "--bogus"}).status, 2);
    const CliResult missing = run({"run", mFiles.path("absent.json")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find(mFiles.path("absent.json")), std::string::npos) << missing.err;

    // Outputs that cannot be written fail with 1, before anything plays.
    const std::string valid = writeScenario(
        R"({"duration": 0.5, "steps": [{"at": 0, "do": "play", "file": "nothing.wav"}]})");
    const std::string out = mFiles.path("no/such/folder/out");
    for (const char* option : {"--events", "--render"}) {
        const CliResult result = run({"run", valid, option, out});
        EXPECT_EQ(result.status, 1) << option;
        EXPECT_EQ(result.out, "") << option;
        EXPECT_NE(result.err.find(out + ": cannot write the "), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("No such file or directory"), std::string::npos) << result.err;
    }
}

TEST_F(CliRunTest, EventsAreTheConsoleAndTheSoundsOnTheirChannelsInTimeThenFileOrder) {
    mFiles.tone("tone.wav", 1000.0, 0.5, 48000, 1, 0.5f);
    mFiles.tone("hum.wav", 200.0, 0.1);
    std::filesystem::create_directories(mFiles.path("res"));
    mFiles.tone("res/ping.wav", 500.0, 0.1);
    const auto logged = events(R"({"duration": 1, "bundle": "res", "steps": [
        {"at": 0.8, "do": "playResource", "name": "ping", "ext": "wav"},
        {"at": 0.25, "do": "play", "file": "tone.wav", "pan": -1, "volume": 1, "tag": "t1"},
        {"at": 0.3, "do": "play", "file": "nothing.wav"},
        {"at": 0.3, "do": "play", "file": "hum.wav", "loop": true, "tag": "hum"},
        {"at": 0.6, "do": "stop", "file": "hum.wav"}]})");
    std::vector<std::string> console;
    std::vector<json> sounds;
    for (const auto& event : logged) {
        if (event["type"] == "console") {
            console.push_back(event["line"]);
        } else {
            sounds.push_back(event);
        }
    }
    // Standard output is the console lines and nothing else; a file that cannot be opened is
    // the library's to report.
    EXPECT_EQ(console, splitLines(mLast.out));
    ASSERT_EQ(console.size(), 5u);
    EXPECT_EQ(console[1].rfind("Failed 2 creating audio player for url file://" +
                                   mFiles.path("nothing.wav") + ": ",
                               0),
              0u)
        << console[1];
    // The failed file took no channel, so the loop plays on channel 2; the tone ends by itself
    // after its 0.5 s, the loop when it is stopped, and each tagged completion follows its end.
    const std::vector<json> expected{
        soundEvent(0.25, "soundStart", 1, "tone.wav"),
        soundEvent(0.3, "soundStart", 2, "hum.wav"),
        soundEvent(0.6, "soundEnd", 2, "hum.wav", "stopped"),
        {{"t", 0.6}, {"type", "completion"}, {"tag", "hum"}},
        soundEvent(0.75, "soundEnd", 1, "tone.wav", "finished"),
        {{"t", 0.75}, {"type", "completion"}, {"tag", "t1"}},
        soundEvent(0.8, "soundStart", 1, "res/ping.wav"),
        soundEvent(0.9, "soundEnd", 1, "res/ping.wav", "finished"),
    };
    EXPECT_EQ(sounds, expected);

    // The mix (in the writer's format, OutputTest's) holds exactly the duration: silence before
    // the first step, the tone alone and hard left until the loop starts, silence after the end.
    const auto wav = test::WavFile::read(mFiles.path("mix.wav"));
    ASSERT_EQ(wav.frames(), 48000u);
    const test::OfflineAudio audio(wav.samples);
    EXPECT_EQ(audio.peak(0, 0, 12000), 0.0f);
    EXPECT_NEAR(audio.rms(0, 12240, 14400), 0.5 / std::sqrt(2.0), 0.03);
    EXPECT_EQ(audio.peak(1, 0, 14400), 0.0f);
    EXPECT_EQ(audio.peak(0, 43200), 0.0f);
}

TEST_F(CliRunTest, ASoundStartedInAFinishedHandlingIsLoggedBeforeThatHandlingsCompletion) {
    mFiles.tone("a.wav", 440.0, 0.5);
    mFiles.tone("b.wav", 660.0, 0.3);
    const auto logged = events(R"({"duration": 1, "steps": [
        {"at": 0.1, "do": "play", "file": "a.wav", "queued": true, "tag": "A"},
        {"at": 0.2, "do": "play", "file": "b.wav", "queued": true, "tag": "B"}]})");
    const std::vector<json> expected{
        soundEvent(0.1, "soundStart", 1, "a.wav"),
        consoleEvent(0.1, "Sound is playing in channel 1"),
        consoleEvent(0.2, "Sound is already playing, waiting... file://" + mFiles.path("b.wav")),
        soundEvent(0.6, "soundEnd", 1, "a.wav", "finished"),
        soundEvent(0.6, "soundStart", 1, "b.wav"),
        consoleEvent(0.6, "Sound is playing in channel 1"),
        {{"t", 0.6}, {"type", "completion"}, {"tag", "A"}},
        soundEvent(0.9, "soundEnd", 1, "b.wav", "finished"),
        {{"t", 0.9}, {"type", "completion"}, {"tag", "B"}},
    };
    EXPECT_EQ(logged, expected);
}

// The interruption step pauses both sounds before its notification is delivered; its end with
// should-resume brings back the loop only, and the paused one-shot never completes.
TEST_F(CliRunTest, AnInterruptionPausesEverySoundAndItsEndResumesTheLoop) {
    mFiles.tone("hum.wav", 200.0, 0.25);
    mFiles.tone("tone.wav", 440.0, 1.0);
    const auto logged = events(R"({"duration": 1.5, "steps": [
        {"at": 0.1, "do": "play", "file": "hum.wav", "loop": true},
        {"at": 0.1, "do": "play", "file": "tone.wav", "tag": "T"},
        {"at": 0.3, "do": "interruption", "type": 1},
        {"at": 0.6, "do": "interruption", "type": 0, "options": 1}]})");
    std::vector<json> seen;
    std::copy_if(logged.begin(), logged.end(), std::back_inserter(seen),
                 [](const json& event) { return event["type"] != "console"; });
    const json began{
        {"t", 0.3}, {"type", "interruption"}, {"interruption", 1}, {"options", nullptr}};
    const json ended{{"t", 0.6}, {"type", "interruption"}, {"interruption", 0}, {"options", 1}};
    const std::vector<json> expected{
        soundEvent(0.1, "soundStart", 1, "hum.wav"),
        soundEvent(0.1, "soundStart", 2, "tone.wav"),
        soundEvent(0.3, "soundPause", 1, "hum.wav"),
        soundEvent(0.3, "soundPause", 2, "tone.wav"),
        began,
        ended,
        soundEvent(0.6, "soundResume", 1, "hum.wav"),
    };
    EXPECT_EQ(seen, expected);
}

TEST_F(CliRunTest, ARecordingOfTheToneMicrophoneIsLoggedAndDecodesBackToTheTone) {
    const auto logged = events(R"({"duration": 1.0, "permissionAnswer": "grant",
        "microphone": {"tone": 440.0, "amplitude": 0.5}, "steps": [
        {"at": 0.0, "do": "requestPermissions", "tag": "p"},
        {"at": 0.1, "do": "startRecording", "maxDuration": 2.0, "tag": "r"},
        {"at": 0.6, "do": "stopRecording"}]})",
                               "XDG_CACHE_HOME=" + mFiles.dir());
    const std::string file = mFiles.path("tmpRecording.m4a");
    const std::vector<json> expected{
        {{"t", 0.0}, {"type", "completion"}, {"tag", "p"}, {"granted", true}, {"error", nullptr}},
        {{"t", 0.1}, {"type", "recordingStart"}, {"url", "file://" + file}},
        {{"t", 0.6}, {"type", "recordingEnd"}, {"url", "file://" + file}},
        {{"t", 0.6}, {"type", "completion"}, {"tag", "r"}, {"url", file}, {"error", nullptr}},
    };
    EXPECT_EQ(logged, expected);
    const DecodedSound sound = decodeFile(file);
    EXPECT_NEAR(double(sound.frames()) / 48000.0, 0.5, 1024.0 / 16000.0);
    EXPECT_NEAR(sound.audio().zeroCrossingFrequency(0, 4800, 19200), 440.0, 4.4);
}

TEST_F(CliRunTest, PlayersDroppedWhenEveryChannelIsTakenEndWithoutAChannel) {
    // 32 plays take every channel (8 per file, the most one file may have; 8 loop, 24 last one
    // second); the 33rd empties the table and is dropped. A later play takes channel 1 again.
    json steps = json::array();
    for (const char* file : {"loop.wav", "d.wav", "e.wav", "f.wav"}) {
        mFiles.tone(file, 300.0, 1.0);
        const bool loop = std::string(file) == "loop.wav";
        for (int i = 0; i < 8; ++i) {
            steps.push_back({{"at", 0.1}, {"do", "play"}, {"file", file}, {"loop", loop}});
        }
    }
    mFiles.tone("late.wav", 500.0, 0.2);
    steps.push_back({{"at", 0.2}, {"do", "play"}, {"file", "late.wav"}});
    steps.push_back({{"at", 0.3}, {"do", "play"}, {"file", "late.wav"}});
    const auto logged = events(json{{"duration", 1.5}, {"steps", steps}}.dump());

    // What follows the 32 starts and their console lines.
    const std::vector<json> after(logged.begin() + 64, logged.end());
    std::vector<json> expected{consoleEvent(0.2, "No more available audio players")};
    // The loops go with the table; the one-shots end later, on channels others may own by then.
    expected.insert(expected.end(), 8, soundEvent(0.2, "soundEnd", nullptr, "loop.wav", "stopped"));
    expected.push_back(soundEvent(0.3, "soundStart", 1, "late.wav"));
    expected.push_back(consoleEvent(0.3, "Sound is playing in channel 1"));
    expected.push_back(soundEvent(0.5, "soundEnd", 1, "late.wav", "finished"));
    for (const char* file : {"d.wav", "e.wav", "f.wav"}) {
        expected.insert(expected.end(), 8, soundEvent(1.1, "soundEnd", nullptr, file, "finished"));
    }
    EXPECT_EQ(after, expected);
}

// Speech, checked on the log, the gaps between two events to the frame (an event named "" stands
// for scenario time 0) and the render: sound between each start and its end, silence elsewhere.
struct SpeechCase : test::NamedCase {
    std::string scenario;
    std::vector<std::string> expected; ///< each event's type and other fields, without its time
    std::vector<std::tuple<std::string, std::string, double>> gaps; ///< from, to, seconds
};

/// "speechEnd One finished": the type and the other fields' values in the log's order; a file by
/// its name.
std::string summary(const json& event) {
    std::string text = event["type"];
    for (const char* key : {"tag", "channel", "line", "text", "file", "voice", "reason", "error"}) {
        if (event.contains(key)) {
            const json& value = event[key];
            text += " " + (key == std::string("file")
                               ? std::filesystem::path(value.get<std::string>()).filename().string()
                           : value.is_string() ? value.get<std::string>()
                                               : value.dump());
        }
    }
    return text;
}

class CliSpeechTest : public CliRunTest, public ::testing::WithParamInterface<SpeechCase> {};

TEST_P(CliSpeechTest, SpeechIsLoggedInCausalOrderAndHeardOnlyWhileItSounds) {
    mFiles.tone("clip.wav", 440.0, 0.3);
    const auto logged = events(GetParam().scenario);
    std::vector<std::string> summaries;
    std::transform(logged.begin(), logged.end(), std::back_inserter(summaries), summary);
    EXPECT_EQ(summaries, GetParam().expected);
    const auto timeOf = [&](const std::string& name) { // throws, failing the test, if not logged
        const auto at = std::find(summaries.begin(), summaries.end(), name) - summaries.begin();
        return name.empty() ? 0.0 : mTimes.at(static_cast<std::size_t>(at));
    };
    for (const auto& [from, to, seconds] : GetParam().gaps) {
        EXPECT_NEAR(timeOf(to) - timeOf(from), seconds, 0.5 / 48000) << to;
    }

    const auto wav = test::WavFile::read(mFiles.path("mix.wav"));
    const test::OfflineAudio audio(wav.samples);
    const auto loudest = [&](std::size_t first, std::size_t last) {
        return std::max(audio.peak(0, first, last), audio.peak(1, first, last));
    };
    std::size_t mark = 0; // the last start or end
    for (std::size_t i = 0; i < logged.size(); ++i) {
        const std::string type = logged[i]["type"];
        const auto frame = static_cast<std::size_t>(std::lround(mTimes[i] * 48000));
        if (type.ends_with("Start")) {
            EXPECT_EQ(loudest(mark, frame), 0.0f) << "before " << summaries[i];
            mark = frame;
        } else if (type.ends_with("End")) {
            EXPECT_GT(loudest(mark, frame), 0.05f) << summaries[i];
            mark = frame;
        }
    }
    EXPECT_EQ(loudest(mark, audio.frames()), 0.0f) << "after the last end";
}

// Shutup and a missing voice are SpeechTest's; here, what the program makes of the speech list.
INSTANTIATE_TEST_SUITE_P(
    Scenarios, CliSpeechTest,
    ::testing::Values(
        SpeechCase{
            "listedTextsTwoTenthsApart",
            R"({"duration": 2, "steps": [{"at": 0.1, "do": "speak", "text": "One", "tag": "s"},
                       {"at": 0.1, "do": "speak", "text": "Two"},
                       {"at": 0.1, "do": "speak", "text": "Three"}]})",
            {"console Speak text put into queue: One", "speechStart One en-GB",
             "console Speak text put into queue: Two", "console Speak text put into queue: Three",
             "speechEnd One finished", "console speechSynthesizer didFinish",
             "completion s One null", "speechStart Two en-GB", "speechEnd Two finished",
             "console speechSynthesizer didFinish", "completion s Two null",
             "speechStart Three en-GB", "speechEnd Three finished",
             "console speechSynthesizer didFinish", "completion s Three null"},
            {{"", "speechStart One en-GB", 0.1},
             {"speechEnd One finished", "speechStart Two en-GB", 0.2},
             {"speechEnd Two finished", "speechStart Three en-GB", 0.2}}},
        SpeechCase{"instructionClipBetweenTexts",
                   R"({"duration": 2, "steps": [{"at": 0.1, "do": "instructions", "list": [
                       {"text": "Jump", "clip": "clip.wav"}, {"text": "Duck"}]}]})",
                   {"speechStart Jump en-GB", "speechEnd Jump finished",
                    "console speechSynthesizer didFinish", "soundStart 1 clip.wav",
                    "console Sound is playing in channel 1", "soundEnd 1 clip.wav finished",
                    "speechStart Duck en-GB", "speechEnd Duck finished",
                    "console speechSynthesizer didFinish"},
                   {{"speechEnd Jump finished", "soundStart 1 clip.wav", 0.0},
                    {"soundEnd 1 clip.wav finished", "speechStart Duck en-GB", 0.0}}}),
    test::CaseName{});

// The tone's level and side in a real-time recording are OutputTest's; here, that the program
// records, padded to the duration. A second of room: under load the first block may wait long.
TEST_F(CliRunTest, RealTimeRenderRecordsWhatWasPlayedForTheDuration) {
    mFiles.tone("tone.wav", 1000.0, 0.2, 48000, 1, 0.5f);
    const std::string path = writeScenario(R"({"duration": 1.0, "steps": [
        {"at": 0, "do": "play", "file": "tone.wav", "pan": -1, "volume": 1}]})");
    const CliResult result = run({"run", path, "--realtime", "--render", mFiles.path("played.wav")},
                                 "VANTELO_SOUNDS_OUTPUT=null");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const auto wav = test::WavFile::read(mFiles.path("played.wav"));
    EXPECT_EQ(wav.frames(), 48000u);
    const test::OfflineAudio audio(wav.samples);
    EXPECT_GT(audio.rms(0), 0.05);
    EXPECT_LT(audio.rms(1), 1e-3);
}

} // namespace
} // namespace vantelo_sounds::cli
