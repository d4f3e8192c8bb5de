// The audio session: refusals that change nothing, the stored microphone permission, and
// interruption notifications delivered through the main run loop.
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"
#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

using simulation::AudioSessionOperation;

class AudioSessionTest : public ::testing::Test {
protected:
    AudioSessionTest() {
        simulation::resetAudioSession();
        simulation::resetDefaultNotificationCenter();
    }
    ~AudioSessionTest() override { simulation::resetAudioSession(); }

    /// Asks for the permission, the prompt (if asked) answering `answer` (no value: the default
    /// prompt), and returns what arrived through the run loop.
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

    std::filesystem::path permissionFile() const {
        const auto exe = std::filesystem::read_symlink("/proc/self/exe").filename();
        return std::filesystem::path(config.path()) / "vantelo_sounds" / exe / "record-permission";
    }

    test::TempFolder config;
    test::ScopedEnv configHome{"XDG_CONFIG_HOME", config.path()};
    test::ScopedEnv noPreset{"VANTELO_SOUNDS_RECORD_PERMISSION", std::nullopt};
    RunLoop& loop = RunLoop::resetMainManual();
    AudioSession& session = AudioSession::sharedInstance();
    int prompts = 0;
};

struct RefusalCase : test::NamedCase {
    AudioSessionOperation refused;
};

class AudioSessionRefusalTest : public AudioSessionTest,
                                public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(AudioSessionRefusalTest, ARefusedCallReturnsTheErrorAndChangesNothingUntilLifted) {
    const bool categoryRefused = GetParam().refused == AudioSessionOperation::setCategory;
    const std::error_code busy = AudioSessionError::isBusy;
    simulation::refuseAudioSession(GetParam().refused, busy);

    EXPECT_EQ(session.setCategory(AudioSessionCategory::playback, AudioSessionMode::spokenAudio,
                                  kDefaultToSpeaker),
              categoryRefused ? busy : std::error_code{});
    EXPECT_EQ(session.setActive(true), categoryRefused ? std::error_code{} : busy);
    EXPECT_EQ(session.category(),
              categoryRefused ? AudioSessionCategory::soloAmbient : AudioSessionCategory::playback);
    EXPECT_EQ(session.mode(),
              categoryRefused ? AudioSessionMode::defaultMode : AudioSessionMode::spokenAudio);
    EXPECT_EQ(session.categoryOptions(), categoryRefused ? 0u : kDefaultToSpeaker);
    EXPECT_EQ(session.isActive(), categoryRefused);
    EXPECT_EQ(simulation::audioSessionCallCount(AudioSessionOperation::setCategory), 1);
    EXPECT_EQ(simulation::audioSessionCallCount(AudioSessionOperation::setActive), 1);

    simulation::refuseAudioSession(GetParam().refused, std::nullopt);
    EXPECT_FALSE(
        session.setCategory(AudioSessionCategory::record, AudioSessionMode::measurement, 0));
    EXPECT_FALSE(session.setActive(true));
    EXPECT_TRUE(session.isActive());

    simulation::refuseAudioSession(GetParam().refused, busy);
    simulation::resetAudioSession();
    EXPECT_EQ(session.category(), AudioSessionCategory::soloAmbient);
    EXPECT_EQ(simulation::audioSessionCallCount(AudioSessionOperation::setActive), 0);
    EXPECT_FALSE(
        session.setCategory(AudioSessionCategory::record, AudioSessionMode::measurement, 0));
    EXPECT_FALSE(session.setActive(true)) << "a reset lifts every refusal";
}

INSTANTIATE_TEST_SUITE_P(
    Operations, AudioSessionRefusalTest,
    ::testing::Values(RefusalCase{"category", AudioSessionOperation::setCategory},
                      RefusalCase{"activation", AudioSessionOperation::setActive}),
    test::CaseName());

TEST_F(AudioSessionTest, AnUndeterminedPermissionIsAskedOnceAndAfterAResetKeptInMemoryOnly) {
    EXPECT_EQ(session.recordPermission(), RecordPermission::undetermined);
    EXPECT_EQ(request(true), true);
    EXPECT_EQ(session.recordPermission(), RecordPermission::granted);
    EXPECT_EQ(request(false), true) << "a determined permission is not asked again";
    EXPECT_EQ(prompts, 1);
    EXPECT_FALSE(std::filesystem::exists(permissionFile()));
}

TEST_F(AudioSessionTest, AnswersAreStoredPerApplicationAndAGarbledWordIsUndetermined) {
    session.reloadRecordPermission();
    EXPECT_EQ(request(false), false);
    std::string word;
    std::getline(std::ifstream(permissionFile()), word);
    EXPECT_EQ(word, "denied");

    std::ofstream(permissionFile(), std::ios::trunc) << "granted\n";
    session.reloadRecordPermission();
    EXPECT_EQ(request(false), true);
    EXPECT_EQ(prompts, 1);

    std::ofstream(permissionFile(), std::ios::trunc) << "maybe\n";
    session.reloadRecordPermission();
    EXPECT_EQ(session.recordPermission(), RecordPermission::undetermined);
}

TEST_F(AudioSessionTest, APresetOrPretendedPermissionIsNeverWritten) {
    test::ScopedEnv preset{"VANTELO_SOUNDS_RECORD_PERMISSION", "undetermined"};
    session.reloadRecordPermission();
    EXPECT_EQ(request(true), true);
    EXPECT_EQ(prompts, 1);

    test::ScopedEnv denied{"VANTELO_SOUNDS_RECORD_PERMISSION", "denied"};
    session.reloadRecordPermission();
    EXPECT_EQ(request(true), false);

    simulation::setRecordPermission(RecordPermission::granted);
    EXPECT_EQ(request(false), true);
    EXPECT_EQ(prompts, 1);
    EXPECT_FALSE(std::filesystem::exists(permissionFile()));
}

TEST_F(AudioSessionTest, TheDefaultPromptRefusesWithoutATerminal) {
    if (::isatty(STDIN_FILENO)) {
        GTEST_SKIP() << "standard input is a terminal: the default prompt would ask";
    }
    EXPECT_EQ(request(std::nullopt), false);
    EXPECT_EQ(session.recordPermission(), RecordPermission::denied);
}

TEST_F(AudioSessionTest, InterruptionsArriveThroughTheRunLoopWithIntegerValues) {
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
    const auto& began = received[1].userInfo.value();
    EXPECT_EQ(std::any_cast<std::uint64_t>(began.at(kAudioSessionInterruptionTypeKey)), 1u);
    EXPECT_EQ(began.count(kAudioSessionInterruptionOptionKey), 0u);
}

} // namespace
} // namespace vantelo_sounds
