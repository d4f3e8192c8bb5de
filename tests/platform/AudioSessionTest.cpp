// The audio session's microphone permission: asked once, answered through the run loop, stored
// per application.
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include <gtest/gtest.h>

#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

class AudioSessionTest : public ::testing::Test {
protected:
    AudioSessionTest() { simulation::resetAudioSession(); }
    ~AudioSessionTest() override { simulation::resetAudioSession(); }

    /// Asks for the permission, a prompt answering `answer` (no value: the default prompt), and
    /// returns what arrived through the run loop.
    std::optional<bool> request(std::optional<bool> answer) {
        if (answer) {
            session.setPermissionPrompt([this, answer] {
                ++prompts;
                return *answer;
            });
        }
        std::optional<bool> granted;
        session.requestRecordPermission([&](bool g) { granted = g; });
        EXPECT_FALSE(granted.has_value()) << "the answer comes through the run loop, not at once";
        loop.runOnce();
        return granted;
    }

    std::string permissionFile() const {
        const auto exe = std::filesystem::read_symlink("/proc/self/exe").filename().string();
        return config / ("vantelo_sounds/" + exe + "/record-permission");
    }
    std::string storedWord() const {
        std::string word = "nothing";
        std::getline(std::ifstream(permissionFile()), word);
        return word;
    }

    test::TempFolder config;
    test::ScopedEnv configHome{"XDG_CONFIG_HOME", config.path()};
    test::ScopedEnv noPreset{"VANTELO_SOUNDS_RECORD_PERMISSION", std::nullopt};
    RunLoop& loop = RunLoop::resetMainManual();
    AudioSession& session = AudioSession::sharedInstance();
    int prompts = 0;
};

TEST_F(AudioSessionTest, APermissionIsAskedOnceAndStoredPerApplicationUnlessPreset) {
    EXPECT_EQ(request(true), true);
    EXPECT_EQ(request(false), true) << "a determined permission is not asked again";
    EXPECT_EQ(storedWord(), "nothing") << "after a reset, answers stay in memory";

    session.reloadRecordPermission();
    EXPECT_EQ(request(false), false);
    EXPECT_EQ(storedWord(), "denied");
    std::ofstream(permissionFile(), std::ios::trunc) << "granted\n";
    session.reloadRecordPermission();
    EXPECT_EQ(request(false), true) << "the stored answer is read again";
    std::ofstream(permissionFile(), std::ios::trunc) << "maybe\n";
    session.reloadRecordPermission();
    EXPECT_EQ(session.recordPermission(), RecordPermission::undetermined);

    // A preset or pretended permission is never asked or written.
    test::ScopedEnv preset{"VANTELO_SOUNDS_RECORD_PERMISSION", "denied"};
    session.reloadRecordPermission();
    EXPECT_EQ(request(true), false);
    simulation::setRecordPermission(RecordPermission::granted);
    EXPECT_EQ(request(false), true);
    EXPECT_EQ(prompts, 2);
    EXPECT_EQ(storedWord(), "maybe");
}

TEST_F(AudioSessionTest, TheDefaultPromptRefusesWithoutATerminal) {
    if (::isatty(STDIN_FILENO)) {
        GTEST_SKIP() << "standard input is a terminal: the default prompt would ask";
    }
    EXPECT_EQ(request(std::nullopt), false);
}

} // namespace
} // namespace vantelo_sounds
