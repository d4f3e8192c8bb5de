#include "EventLog.hpp"

#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ErrorCaseName.hpp"

namespace vantelo_sounds::cli {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

std::vector<json> writtenLines(const EventLog& log) {
    std::ostringstream out;
    log.write(out);
    std::vector<json> lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) {
        lines.push_back(json::parse(line));
    }
    return lines;
}

class EventLogTest : public ::testing::Test {
protected:
    EventLog mLog;
};

TEST_F(EventLogTest, LinesAreSortedByTimeAndEqualTimesKeepTheirOrder) {
    mLog.console(Duration(2'000'000), "second");
    mLog.soundStart(Duration(1'999'990), 3, "/a.wav"); // the observer reports a little late
    mLog.console(Duration(2'000'000), "third");
    mLog.completion(Duration(0), "first");
    const auto lines = writtenLines(mLog);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["tag"], "first");
    EXPECT_EQ(lines[1]["type"], "soundStart");
    EXPECT_EQ(lines[2]["line"], "second");
    EXPECT_EQ(lines[3]["line"], "third");
}

TEST_F(EventLogTest, TimeIsInSecondsToTheMicrosecondAndComesFirst) {
    mLog.console(Duration(1'234'567'499), "x");
    std::ostringstream out;
    mLog.write(out);
    EXPECT_EQ(out.str(), "{\"t\":1.234567,\"type\":\"console\",\"line\":\"x\"}\n");
    EXPECT_EQ(EventLog::secondsOf(200ms), 0.2);
    EXPECT_EQ(EventLog::secondsOf(Duration(1'500)), 0.000002);
}

TEST_F(EventLogTest, AbsentValuesAreWrittenAsNull) {
    mLog.soundEnd(1s, std::nullopt, "/a.wav", "stopped");
    mLog.speechCompletion(1s, "s1", "Hello", std::nullopt);
    mLog.recordingCompletion(1s, "r1", std::nullopt, std::make_error_code(std::errc::io_error));
    mLog.permissionCompletion(1s, "p1", std::nullopt, std::nullopt);
    const auto lines = writtenLines(mLog);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(lines[0]["channel"].is_null());
    EXPECT_EQ(lines[0]["reason"], "stopped");
    EXPECT_TRUE(lines[1]["error"].is_null());
    EXPECT_EQ(lines[1]["text"], "Hello");
    EXPECT_TRUE(lines[2]["url"].is_null());
    EXPECT_EQ(lines[2]["error"],
              "generic:" + std::to_string(static_cast<int>(std::errc::io_error)));
    EXPECT_TRUE(lines[3]["granted"].is_null());
    EXPECT_TRUE(lines[3]["error"].is_null());
}

TEST_F(EventLogTest, BytesThatAreNotUtf8StillGiveValidJson) {
    mLog.console(0s, "Sound file not found: /tmp/\xff\xfe.wav");
    const auto lines = writtenLines(mLog);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0]["line"].get<std::string>().find("\xEF\xBF\xBD"), std::string::npos);
}

/// A category that names itself like the library's own error types.
class NamedCategory : public std::error_category {
public:
    explicit NamedCategory(const char* name)
        : mName(name) {}
    const char* name() const noexcept override { return mName; }
    std::string message(int) const override { return "test"; }

private:
    const char* mName;
};

struct CaseNameCase {
    const char* category;
    int value;
    const char* expected;
};

class ErrorCaseNameTest : public ::testing::TestWithParam<CaseNameCase> {};

TEST_P(ErrorCaseNameTest, NamesTheCase) {
    static NamedCategory sounds("vantelo_sounds.SoundsError");
    static NamedCategory recorder("vantelo_sounds.SoundRecorderError");
    static NamedCategory other("other.Error");
    const std::string name = GetParam().category;
    const std::error_category& category = name == sounds.name()     ? sounds
                                          : name == recorder.name() ? recorder
                                                                    : other;
    EXPECT_EQ(errorCaseName(std::error_code(GetParam().value, category)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ErrorCaseNameTest,
    ::testing::Values(
        CaseNameCase{"vantelo_sounds.SoundsError", 0,
                     "VoiceEngineIsUnavailableForSelectedLanguage"},
        CaseNameCase{"vantelo_sounds.SoundRecorderError", 0, "failedToGetAudioSession"},
        CaseNameCase{"vantelo_sounds.SoundRecorderError", 2, "permissionDenied"},
        CaseNameCase{"vantelo_sounds.SoundRecorderError", 4, "recordindFailed"},
        CaseNameCase{"vantelo_sounds.SoundRecorderError", 5, "vantelo_sounds.SoundRecorderError:5"},
        CaseNameCase{"vantelo_sounds.SoundsError", -1, "vantelo_sounds.SoundsError:-1"},
        CaseNameCase{"other.Error", 0, "other.Error:0"}));

} // namespace
} // namespace vantelo_sounds::cli
