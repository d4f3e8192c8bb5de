// The manager's creation: its fields, the audio-session set-up and its two refusal paths, the
// voices, and the one shared instance under concurrent first use.
#include <mutex>
#include <set>
#include <thread>
#include <vantelo_sounds/VTOSoundRecorder.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

#include <gtest/gtest.h>

#include "support/ManagerTestAccess.hpp"

namespace vantelo_sounds {
namespace {

using Access = VTOSoundsManagerTestAccess;

class ManagerCreationTest : public ::testing::Test {
protected:
    ManagerCreationTest() {
        RunLoop::resetMainManual();
        AudioSession::resetSharedForTesting();
        NotificationCenter::resetDefaultForTesting();
        Bundle::main().setLocalizations({});
        SpeechSynthesisVoice::setAvailableLanguagesForTesting(
            std::vector<std::string>{"en-GB", "fr-FR"});
        Console::shared().setSink([this](std::string_view line) {
            std::lock_guard lock(mMutex);
            lines.emplace_back(line);
        });
    }
    ~ManagerCreationTest() override {
        Console::shared().setSink({});
        SpeechSynthesisVoice::setAvailableLanguagesForTesting(std::nullopt);
    }

    AudioSession& session = AudioSession::sharedInstance();
    std::vector<std::string> lines;

private:
    std::mutex mMutex;
};

TEST_F(ManagerCreationTest, StartsEmptyWithThePlaybackSessionActive) {
    auto manager = Access::make();
    EXPECT_TRUE(Access::table(*manager).empty());
    EXPECT_TRUE(Access::playQueue(*manager).empty());
    EXPECT_TRUE(Access::thingsNeedToBeSaid(*manager).empty());
    EXPECT_TRUE(Access::instructionQueue(*manager).empty());
    EXPECT_TRUE(Access::textCurrentlySpoken(*manager).empty());
    EXPECT_FALSE(Access::isSpeaking(*manager));
    EXPECT_FALSE(Access::hasSpeakCompletion(*manager));
    EXPECT_EQ(Access::accessQueue(*manager).label(), "SynchronizedPlayQueueAccess");
    EXPECT_EQ(Access::syntesizer(*manager).delegate(), manager.get());
    auto* recorder = dynamic_cast<VTOSoundRecorder*>(&Access::soundRecorder(*manager));
    ASSERT_NE(recorder, nullptr);
    EXPECT_EQ(recorder->maxRecordDuration(), 2.5);

    EXPECT_EQ(session.category(), AudioSessionCategory::playback);
    EXPECT_EQ(session.mode(), AudioSessionMode::defaultMode);
    EXPECT_EQ(session.categoryOptions(), 0x11u);
    EXPECT_TRUE(session.isActive());
    EXPECT_TRUE(lines.empty());
}

struct RefusalCase {
    const char* name;
    AudioSessionOperation refused;
    int expectedActivations;
};

class ManagerSessionRefusalTest : public ManagerCreationTest,
                                  public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(ManagerSessionRefusalTest, PrintsOneSoundErrorLineAndStillWorks) {
    const auto error = make_error_code(GetParam().refused == AudioSessionOperation::setCategory
                                           ? AudioSessionError::incompatibleCategory
                                           : AudioSessionError::isBusy);
    session.setRefusal(GetParam().refused, error);
    auto manager = Access::make();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "SOUND ERROR: " + error.message());
    // No activation is attempted after a refused category.
    EXPECT_EQ(session.callCount(AudioSessionOperation::setActive), GetParam().expectedActivations);
    EXPECT_FALSE(session.isActive());
    // Still usable: a request without settings completes at once.
    bool completed = false;
    Access::playSound(*manager, std::nullopt, [&] { completed = true; });
    EXPECT_TRUE(completed);
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, ManagerSessionRefusalTest,
    ::testing::Values(RefusalCase{"category", AudioSessionOperation::setCategory, 0},
                      RefusalCase{"activation", AudioSessionOperation::setActive, 1}),
    [](const auto& p) { return std::string(p.param.name); });

TEST_F(ManagerCreationTest, VoicesFollowTheBundlesLocalizationOfEnGB) {
    {
        auto manager = Access::make();
        ASSERT_TRUE(Access::voice(*manager));
        ASSERT_TRUE(Access::britishVoice(*manager));
        EXPECT_EQ(Access::voice(*manager)->language(), "en-GB");
        EXPECT_EQ(Access::britishVoice(*manager)->language(), "en-GB");
    }
    Bundle::main().setLocalizations({{"en-GB", "fr-FR"}});
    auto localized = Access::make();
    ASSERT_TRUE(Access::voice(*localized));
    EXPECT_EQ(Access::voice(*localized)->language(), "fr-FR");
    EXPECT_EQ(Access::britishVoice(*localized)->language(), "en-GB");
}

TEST_F(ManagerCreationTest, MissingVoicesAreLeftAbsentWithoutAMessage) {
    SpeechSynthesisVoice::setAvailableLanguagesForTesting(std::vector<std::string>{});
    auto manager = Access::make();
    EXPECT_FALSE(Access::voice(*manager));
    EXPECT_FALSE(Access::britishVoice(*manager));
    EXPECT_TRUE(lines.empty());
}

TEST_F(ManagerCreationTest, SharedFromEightThreadsIsOneManagerAndOneErrorLineAtMost) {
    session.setRefusal(AudioSessionOperation::setCategory,
                       make_error_code(AudioSessionError::incompatibleCategory));
    std::mutex mutex;
    std::set<VTOSoundsManager*> seen;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            VTOSoundsManager* manager = &VTOSoundsManager::shared();
            std::lock_guard lock(mutex);
            seen.insert(manager);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_EQ(&VTOSoundsManager::shared(), *seen.begin());
    // One line when this process made the manager just now; none when an earlier test did.
    EXPECT_LE(lines.size(), 1u);
}

TEST_F(ManagerCreationTest, InterruptionNotificationsReachTheManagerUntilItGoesAway) {
    auto manager = Access::make();
    // A looping player would be resumed; with an empty table the notification must simply be
    // taken without effect, and after the manager is gone nobody may be called.
    session.postInterruption(0, 1);
    RunLoop::main().runOnce();
    manager.reset();
    session.postInterruption(0, 1);
    RunLoop::main().runOnce();
    SUCCEED();
}

} // namespace
} // namespace vantelo_sounds
