#include "EventLog.hpp"

#include <sstream>
#include <string>
#include <system_error>
#include <vantelo_sounds/SoundsError.hpp>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ErrorCaseName.hpp"

namespace vantelo_sounds::cli {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class EventLogTest : public ::testing::Test {
protected:
    std::vector<json> lines() const {
        std::vector<json> parsed;
        std::istringstream in(mOut.str());
        for (std::string line; std::getline(in, line);) {
            parsed.push_back(json::parse(line));
        }
        return parsed;
    }

    std::ostringstream mOut;
    EventLog mLog{&mOut};
};

TEST_F(EventLogTest, EachEventIsWrittenAtOnceInOrderAndTimeNeverGoesBack) {
    mLog.setOrigin(1s);
    mLog.console(Duration(3'234'567'499), "first");
    EXPECT_EQ(mOut.str(), "{\"t\":2.234567,\"type\":\"console\",\"line\":\"first\"}\n");
    mLog.soundStart(Duration(3'234'560'000), 3, "/a.wav"); // a sound's frame time, a little behind
    mLog.completion(500ms, "before the origin");
    const auto written = lines();
    ASSERT_EQ(written.size(), 3u);
    EXPECT_EQ(written[1]["type"], "soundStart");
    EXPECT_EQ(written[1]["t"], 2.234567);
    EXPECT_EQ(written[2]["t"], 2.234567);
}

TEST_F(EventLogTest, AbsentValuesAreNullAndBytesThatAreNotUtf8StillGiveJson) {
    mLog.soundEnd(1s, std::nullopt, "/a.wav", "stopped");
    mLog.speechCompletion(1s, "s1", "Hello", std::nullopt);
    mLog.recordingCompletion(1s, "r1", std::nullopt, std::make_error_code(std::errc::io_error));
    mLog.permissionCompletion(1s, "p1", std::nullopt, std::nullopt);
    mLog.console(1s, "Sound file not found: /tmp/\xff\xfe.wav");
    const auto written = lines();
    ASSERT_EQ(written.size(), 5u);
    EXPECT_TRUE(written[0]["channel"].is_null());
    EXPECT_TRUE(written[1]["error"].is_null());
    EXPECT_TRUE(written[2]["url"].is_null());
    EXPECT_EQ(written[2]["error"],
              "generic:" + std::to_string(static_cast<int>(std::errc::io_error)));
    EXPECT_TRUE(written[3]["granted"].is_null());
    EXPECT_NE(written[4]["line"].get<std::string>().find("\xEF\xBF\xBD"), std::string::npos);
}

// Only the edges: a case of the library's own category, and values beyond its cases, which keep
// their category's name.
TEST(ErrorCaseNameTest, NamesTheLibrarysCasesAndKeepsAnyOtherErrorReadable) {
    EXPECT_EQ(errorCaseName(SoundsError::VoiceEngineIsUnavailableForSelectedLanguage),
              "VoiceEngineIsUnavailableForSelectedLanguage");
    EXPECT_EQ(errorCaseName({1, soundsErrorCategory()}), "vantelo_sounds.SoundsError:1");
    EXPECT_EQ(errorCaseName({-1, soundsErrorCategory()}), "vantelo_sounds.SoundsError:-1");
}

} // namespace
} // namespace vantelo_sounds::cli
