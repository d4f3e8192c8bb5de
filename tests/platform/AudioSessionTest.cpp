// The audio session: refusals that change nothing, the stored microphone permission, and
// interruption notifications delivered through the main run loop.
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include <gtest/gtest.h>

#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

using simulation::AudioSessionOperation;

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

TEST_F(AudioSessionTest, ARefusedActivationChangesNothingUntilLiftedOrReset) {
    const std::error_code busy = AudioSessionError::isBusy;
    simulation::refuseAudioSession(AudioSessionOperation::setActive, busy);
    EXPECT_FALSE(session.setCategory(AudioSessionCategory::playback, AudioSessionMode::spokenAudio,
                                     kDefaultToSpeaker));
    EXPECT_EQ(session.setActive(true), busy);
    EXPECT_FALSE(session.isActive());
    EXPECT_EQ(simulation::audioSessionCallCount(AudioSessionOperation::setActive), 1);
    simulation::refuseAudioSession(AudioSessionOperation::setActive, std::nullopt);
    EXPECT_FALSE(session.setActive(true));
    EXPECT_TRUE(session.isActive());

    simulation::refuseAudioSession(AudioSessionOperation::setCategory, busy);
    simulation::resetAudioSession();
    EXPECT_EQ(session.category(), AudioSessionCategory::soloAmbient);
    EXPECT_FALSE(session.isActive());
    EXPECT_FALSE(
        session.setCategory(AudioSessionCategory::record, AudioSessionMode::measurement, 0));
    EXPECT_EQ(simulation::audioSessionCallCount(AudioSessionOperation::setActive), 0);
}

TEST_F(AudioSessionTest, APermissionIsAskedOnceAndStoredPerApplicationOnlyAfterAReload) {
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
    EXPECT_EQ(prompts, 2);
}

TEST_F(AudioSessionTest, APresetOrPretendedPermissionIsNeverAskedOrWritten) {
    test::ScopedEnv preset{"VANTELO_SOUNDS_RECORD_PERMISSION", "denied"};
    session.reloadRecordPermission();
    EXPECT_EQ(request(true), false);
    simulation::setRecordPermission(RecordPermission::granted);
    EXPECT_EQ(request(false), true);
    EXPECT_EQ(prompts, 0);
    EXPECT_EQ(storedWord(), "nothing");
}

TEST_F(AudioSessionTest, TheDefaultPromptRefusesWithoutATerminal) {
    if (::isatty(STDIN_FILENO)) {
        GTEST_SKIP() << "standard input is a terminal: the default prompt would ask";
    }
    EXPECT_EQ(request(std::nullopt), false);
}

TEST_F(AudioSessionTest, InterruptionsArriveThroughTheRunLoopWithIntegerValues) {
    simulation::resetDefaultNotificationCenter();
    std::vector<Notification> received;
    NotificationCenter::defaultCenter().addObserver(
        kAudioSessionInterruptionNotification,
        [&](const Notification& n) { received.push_back(n); });
    session.postInterruption(kAudioSessionInterruptionTypeEnded,
                             kAudioSessionInterruptionOptionShouldResume);
    session.postInterruption(kAudioSessionInterruptionTypeBegan, std::nullopt);
    EXPECT_TRUE(received.empty());
    loop.runOnce();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].object, &session);
    const auto& ended = received[0].userInfo.value();
    EXPECT_EQ(std::any_cast<std::uint64_t>(ended.at(kAudioSessionInterruptionTypeKey)), 0u);
    EXPECT_EQ(std::any_cast<std::uint64_t>(ended.at(kAudioSessionInterruptionOptionKey)), 1u);
    EXPECT_EQ(received[1].userInfo.value().count(kAudioSessionInterruptionOptionKey), 0u);
}

} // namespace
} // namespace vantelo_sounds
