// The manager's creation: its fields, the audio-session set-up and its two refusal paths, the
// voices, and the one shared instance under concurrent first use.
#include <thread>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include <gtest/gtest.h>

#include "support/ManagerFixture.hpp"
#include "support/NamedCase.hpp"

namespace vantelo_sounds {
namespace {

using Access = VTOSoundsManagerTestAccess;
using simulation::AudioSessionOperation;

class ManagerCreationTest : public test::ManagerFixture {
protected:
    ManagerCreationTest() {
        simulation::setAvailableLanguages(std::vector<std::string>{"en-GB", "fr-FR"});
    }
    ~ManagerCreationTest() override { simulation::setAvailableLanguages(std::nullopt); }

    AudioSession& session = AudioSession::sharedInstance();
};

TEST_F(ManagerCreationTest, SetsUpThePlaybackSessionMixingWithOthersAndPrintsNothing) {
    auto manager = Access::make();
    EXPECT_EQ(session.category(), AudioSessionCategory::playback);
    EXPECT_EQ(session.mode(), AudioSessionMode::defaultMode);
    EXPECT_EQ(session.categoryOptions(), kInterruptSpokenAudioAndMixWithOthers);
    EXPECT_TRUE(session.isActive());
    EXPECT_EQ(Access::syntesizer(*manager).delegate(), manager.get());
    EXPECT_TRUE(entries().empty());
    // A manager that is gone hears no more interruptions (AddressSanitizer watches that).
    manager.reset();
    session.postInterruption(kAudioSessionInterruptionTypeEnded,
                             kAudioSessionInterruptionOptionShouldResume);
    RunLoop::main().runOnce();
}

struct RefusalCase : test::NamedCase {
    AudioSessionOperation refused;
    AudioSessionError error;
    int activations;
};

class ManagerSessionRefusalTest : public ManagerCreationTest,
                                  public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(ManagerSessionRefusalTest, PrintsOneSoundErrorLineAndTheManagerStillWorks) {
    const std::error_code error = GetParam().error;
    simulation::refuseAudioSession(GetParam().refused, error);
    auto manager = Access::make();
    EXPECT_EQ(simulation::audioSessionCallCount(AudioSessionOperation::setActive),
              GetParam().activations)
        << "no activation is attempted after a refused category";
    EXPECT_FALSE(session.isActive());
    bool completed = false;
    Access::playSound(*manager, std::nullopt, [&] { completed = true; });
    EXPECT_TRUE(completed) << "a request without settings completes at once";
    EXPECT_EQ(entries(), std::vector<std::string>{"SOUND ERROR: " + error.message()});
    EXPECT_TRUE(Access::table(*manager).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, ManagerSessionRefusalTest,
    ::testing::Values(RefusalCase{"category", AudioSessionOperation::setCategory,
                                  AudioSessionError::incompatibleCategory, 0},
                      RefusalCase{"activation", AudioSessionOperation::setActive,
                                  AudioSessionError::isBusy, 1}),
    test::CaseName());

TEST_F(ManagerCreationTest, TheVoiceFollowsTheBundlesLocalizationOfEnGBAndMayBeMissing) {
    using Languages = std::pair<std::string, std::string>;
    const auto languages = [](VTOSoundsManager& m) {
        const auto& voice = Access::voice(m);
        const auto& british = Access::britishVoice(m);
        return Languages(voice ? voice->language() : "none",
                         british ? british->language() : "none");
    };
    EXPECT_EQ(languages(*Access::make()), Languages("en-GB", "en-GB"));
    Bundle::main().setLocalizations({{"en-GB", "fr-FR"}});
    EXPECT_EQ(languages(*Access::make()), Languages("fr-FR", "en-GB"));
    simulation::setAvailableLanguages(std::vector<std::string>{});
    EXPECT_EQ(languages(*Access::make()), Languages("none", "none"));
    EXPECT_TRUE(entries().empty()) << "a missing voice is reported only when speech is asked for";
}

TEST_F(ManagerCreationTest, SharedFromEightThreadsIsOneManagerAndOneErrorLineAtMost) {
    simulation::refuseAudioSession(AudioSessionOperation::setCategory,
                                   AudioSessionError::incompatibleCategory);
    std::vector<VTOSoundsManager*> seen(8);
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = &VTOSoundsManager::shared(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(seen, std::vector<VTOSoundsManager*>(8, &VTOSoundsManager::shared()));
    // One line when this process made the manager just now; none when an earlier test did.
    EXPECT_LE(entries().size(), 1u);
}

} // namespace
} // namespace vantelo_sounds
