// The audio session: refusals that change nothing, the stored microphone permission, and
// interruption notifications delivered through the main run loop.
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "platform/TestFolders.hpp"

namespace vts = vantelo_sounds;
using vts::AudioSession;
using vts::AudioSessionCategory;
using vts::AudioSessionError;
using vts::AudioSessionMode;
using vts::AudioSessionOperation;
using vts::RecordPermission;

namespace {

class AudioSessionTest : public ::testing::Test {
protected:
    vts::testing::TempFolder config;
    vts::testing::ScopedEnv configHome{"XDG_CONFIG_HOME", config.path()};
    vts::testing::ScopedEnv noPreset{"VANTELO_SOUNDS_RECORD_PERMISSION", std::nullopt};
    vts::RunLoop& loop = vts::RunLoop::resetMainManual();
    AudioSession& session = AudioSession::sharedInstance();
    int prompts = 0;

    AudioSessionTest() {
        AudioSession::resetSharedForTesting();
        vts::NotificationCenter::resetDefaultForTesting();
    }
    ~AudioSessionTest() override {
        AudioSession::resetSharedForTesting();
        vts::NotificationCenter::resetDefaultForTesting();
    }

    void answerPrompt(bool answer) {
        session.setPermissionPrompt([this, answer] {
            ++prompts;
            return answer;
        });
    }

    std::filesystem::path permissionFile() const {
        const auto exe = std::filesystem::read_symlink("/proc/self/exe").filename();
        return std::filesystem::path(config.path()) / "vantelo_sounds" / exe / "record-permission";
    }

    std::optional<bool> request() {
        std::optional<bool> answer;
        session.requestRecordPermission([&](bool granted) { answer = granted; });
        EXPECT_FALSE(answer.has_value()) << "the answer comes through the run loop, not at once";
        loop.runOnce();
        return answer;
    }
};

// ---- category and activation -----------------------------------------------------------------

struct RefusalCase {
    const char* name;
    AudioSessionOperation refused;
    AudioSessionError error;
};

class AudioSessionRefusalTest : public AudioSessionTest,
                                public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(AudioSessionRefusalTest, ARefusedCallReturnsTheErrorAndChangesNothing) {
    const RefusalCase& c = GetParam();
    session.setRefusal(c.refused, make_error_code(c.error));

    const std::error_code categoryResult = session.setCategory(
        AudioSessionCategory::playback, AudioSessionMode::spokenAudio, vts::kDefaultToSpeaker);
    const std::error_code activeResult = session.setActive(true);

    const bool categoryRefused = c.refused == AudioSessionOperation::setCategory;
    EXPECT_EQ(categoryResult, categoryRefused ? make_error_code(c.error) : std::error_code{});
    EXPECT_EQ(activeResult, categoryRefused ? std::error_code{} : make_error_code(c.error));
    EXPECT_EQ(session.category(),
              categoryRefused ? AudioSessionCategory::soloAmbient : AudioSessionCategory::playback);
    EXPECT_EQ(session.mode(),
              categoryRefused ? AudioSessionMode::defaultMode : AudioSessionMode::spokenAudio);
    EXPECT_EQ(session.categoryOptions(), categoryRefused ? 0u : vts::kDefaultToSpeaker);
    EXPECT_EQ(session.isActive(), categoryRefused);
    EXPECT_EQ(session.callCount(AudioSessionOperation::setCategory), 1);
    EXPECT_EQ(session.callCount(AudioSessionOperation::setActive), 1);

    session.setRefusal(c.refused, std::nullopt);
    EXPECT_FALSE(session.setCategory(AudioSessionCategory::playAndRecord,
                                     AudioSessionMode::defaultMode, vts::kDefaultToSpeaker));
    EXPECT_FALSE(session.setActive(true));
    EXPECT_TRUE(session.isActive());
}

INSTANTIATE_TEST_SUITE_P(
    Operations, AudioSessionRefusalTest,
    ::testing::Values(RefusalCase{"category", AudioSessionOperation::setCategory,
                                  AudioSessionError::incompatibleCategory},
                      RefusalCase{"activation", AudioSessionOperation::setActive,
                                  AudioSessionError::isBusy},
                      RefusalCase{"priority", AudioSessionOperation::setActive,
                                  AudioSessionError::insufficientPriority}),
    [](const auto& p) { return std::string(p.param.name); });

TEST_F(AudioSessionTest, ErrorsNeverReadAsSuccessAndDescribeThemselves) {
    for (auto e : {AudioSessionError::incompatibleCategory, AudioSessionError::isBusy,
                   AudioSessionError::insufficientPriority}) {
        const std::error_code code = e;
        EXPECT_TRUE(code) << code.value();
        EXPECT_FALSE(code.message().empty());
    }
    const std::error_code refused = AudioSessionError::incompatibleCategory;
    EXPECT_EQ(vts::errorDescription(refused), "Error Domain=vantelo_sounds.AudioSessionError "
                                              "Code=560161140 \"The audio session refused the "
                                              "category\"");
    EXPECT_EQ(vts::localizedDescription(refused), "The audio session refused the category");
}

TEST_F(AudioSessionTest, ResetClearsRefusalsAndState) {
    session.setRefusal(AudioSessionOperation::setActive,
                       make_error_code(AudioSessionError::isBusy));
    ASSERT_FALSE(
        session.setCategory(AudioSessionCategory::record, AudioSessionMode::measurement, 0));
    AudioSession::resetSharedForTesting();
    EXPECT_EQ(session.category(), AudioSessionCategory::soloAmbient);
    EXPECT_EQ(session.callCount(AudioSessionOperation::setCategory), 0);
    EXPECT_FALSE(session.setActive(true));
}

// ---- record permission ---------------------------------------------------------------------

TEST_F(AudioSessionTest, UndeterminedAsksOnceThenRemembersInMemoryOnly) {
    EXPECT_EQ(session.recordPermission(), RecordPermission::undetermined);
    answerPrompt(true);
    EXPECT_EQ(request(), true);
    EXPECT_EQ(session.recordPermission(), RecordPermission::granted);
    answerPrompt(false);
    EXPECT_EQ(request(), true) << "a determined permission is not asked again";
    EXPECT_EQ(prompts, 1);
    EXPECT_FALSE(std::filesystem::exists(permissionFile())) << "tests' answers are not stored";
}

TEST_F(AudioSessionTest, AnswersPersistPerApplicationInTheConfigFolder) {
    session.reloadRecordPermission();
    answerPrompt(false);
    EXPECT_EQ(request(), false);
    std::ifstream stored(permissionFile());
    std::string word;
    std::getline(stored, word);
    EXPECT_EQ(word, "denied");

    std::ofstream(permissionFile(), std::ios::trunc) << "granted\n";
    session.reloadRecordPermission();
    EXPECT_EQ(session.recordPermission(), RecordPermission::granted);
    EXPECT_EQ(request(), true);
    EXPECT_EQ(prompts, 1);
}

TEST_F(AudioSessionTest, AGarbledStoredWordCountsAsUndetermined) {
    std::filesystem::create_directories(permissionFile().parent_path());
    std::ofstream(permissionFile()) << "maybe\n";
    session.reloadRecordPermission();
    EXPECT_EQ(session.recordPermission(), RecordPermission::undetermined);
}

TEST_F(AudioSessionTest, TheEnvironmentPresetsThePermissionAndNothingIsWritten) {
    vts::testing::ScopedEnv preset{"VANTELO_SOUNDS_RECORD_PERMISSION", "undetermined"};
    session.reloadRecordPermission();
    answerPrompt(true);
    EXPECT_EQ(request(), true);
    EXPECT_EQ(prompts, 1);
    EXPECT_FALSE(std::filesystem::exists(permissionFile()));

    vts::testing::ScopedEnv denied{"VANTELO_SOUNDS_RECORD_PERMISSION", "denied"};
    session.reloadRecordPermission();
    EXPECT_EQ(session.recordPermission(), RecordPermission::denied);
    EXPECT_EQ(request(), false);
    EXPECT_EQ(prompts, 1);
}

TEST_F(AudioSessionTest, PermissionValuesAreTheFourCharacterCodes) {
    EXPECT_EQ(static_cast<std::uint32_t>(RecordPermission::undetermined), 0x756E6474u); // undt
    EXPECT_EQ(static_cast<std::uint32_t>(RecordPermission::denied), 0x64656E79u);       // deny
    EXPECT_EQ(static_cast<std::uint32_t>(RecordPermission::granted), 0x67726E74u);      // grnt
}

TEST_F(AudioSessionTest, TheDefaultPromptRefusesWithoutATerminal) {
    if (::isatty(STDIN_FILENO)) {
        GTEST_SKIP() << "standard input is a terminal: the default prompt would ask";
    }
    EXPECT_EQ(request(), false);
    EXPECT_EQ(session.recordPermission(), RecordPermission::denied);
}

// ---- interruptions -------------------------------------------------------------------------

TEST_F(AudioSessionTest, InterruptionsArriveThroughTheRunLoopWithIntegerValues) {
    std::vector<vts::Notification> received;
    vts::NotificationCenter::defaultCenter().addObserver(
        vts::kAudioSessionInterruptionNotification,
        [&](const vts::Notification& n) { received.push_back(n); });

    session.postInterruption(vts::kAudioSessionInterruptionTypeEnded,
                             vts::kAudioSessionInterruptionOptionShouldResume);
    session.postInterruption(vts::kAudioSessionInterruptionTypeBegan, std::nullopt);
    EXPECT_TRUE(received.empty());
    loop.runOnce();

    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].object, &session);
    const auto& ended = received[0].userInfo.value();
    EXPECT_EQ(std::any_cast<std::uint64_t>(ended.at(vts::kAudioSessionInterruptionTypeKey)), 0u);
    EXPECT_EQ(std::any_cast<std::uint64_t>(ended.at(vts::kAudioSessionInterruptionOptionKey)), 1u);
    const auto& began = received[1].userInfo.value();
    EXPECT_EQ(std::any_cast<std::uint64_t>(began.at(vts::kAudioSessionInterruptionTypeKey)), 1u);
    EXPECT_EQ(began.count(vts::kAudioSessionInterruptionOptionKey), 0u);
}

TEST_F(AudioSessionTest, OddNotificationsPassThroughUntouched) {
    std::vector<vts::Notification> received;
    vts::NotificationCenter::defaultCenter().addObserver(
        "", [&](const vts::Notification& n) { received.push_back(n); });
    session.postNotification({vts::kAudioSessionInterruptionNotification, nullptr,
                              std::map<std::string, std::any>{
                                  {vts::kAudioSessionInterruptionTypeKey, std::string("0")}}});
    session.postNotification({vts::kAudioSessionInterruptionNotification, nullptr, std::nullopt});
    loop.runOnce();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(
        std::any_cast<std::string>(received[0].userInfo->at(vts::kAudioSessionInterruptionTypeKey)),
        "0");
    EXPECT_FALSE(received[1].userInfo.has_value());
}

} // namespace
