#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "engine/output/ManualOutput.hpp"
#include "platform/AudioSystem.hpp"
#include "support/ManagerTestAccess.hpp"
#include "support/OfflineAudio.hpp"
#include "support/ScopedEnv.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {

/// A manager of its own on a fresh platform: a manual run loop at time 0, a reset audio session
/// and default notification center, the manual output whose mix is kept in memory, a console
/// whose lines are kept, test sounds in a temporary folder and a caches folder of its own. Console
/// lines and completions go into one ordered log, each stamped with the loop time in milliseconds
/// ("12.500ms Sound is playing in channel 1"). A real-time fixture has the steady clock and the
/// null output instead, and hears nothing.
class ManagerFixture : public ::testing::Test {
protected:
    explicit ManagerFixture(bool realTime = false)
        : mLoop(realTime ? RunLoop::resetMain(std::make_shared<SteadyClock>())
                         : RunLoop::resetMainManual()) {
        std::filesystem::create_directories(sounds.path("caches"));
        simulation::resetAudioSession();
        simulation::resetDefaultNotificationCenter();
        Bundle::main().setResourcePath(sounds.dir());
        Bundle::main().setLocalizations({});
        using Kind = OutputConfig::Kind;
        AudioSystem& audio =
            AudioSystem::reset(OutputConfig{realTime ? Kind::null : Kind::manual, {}});
        if (auto* output = audio.engine().manualOutput()) {
            output->setCapture(&mMix);
        }
        Console::shared().setSink([this](std::string_view line) { note(std::string(line)); });
    }
    ~ManagerFixture() override {
        mManager.reset();
        Console::shared().setSink({});
        simulation::resetAudioSession();
        RunLoop::resetMainManual();
        AudioSystem::reset(OutputConfig{OutputConfig::Kind::manual, {}}); // lets go of mMix
    }

    VTOSoundsManager& manager() {
        if (!mManager) {
            mManager = VTOSoundsManagerTestAccess::make();
        }
        return *mManager;
    }
    /// Moves the manual clock forward, rendering the mix and delivering everything due.
    void advance(double seconds) {
        mLoop.advanceTo(mLoop.now() + vantelo_sounds::seconds(seconds));
    }

    /// Settings for a file by the URL constructor.
    static PlaySoundSettings settingsFor(const std::string& path, float pan = 0.0f,
                                         float volume = 1.0f, bool queued = false,
                                         bool looped = false) {
        return PlaySoundSettings(FileURL::fileURLWithPath(path), SoundsPanType::fromRawValue(pan),
                                 SoundsVolumeType::fromRawValue(volume), queued, looped);
    }
    /// A completion that logs "done <tag>" and checks that it runs once, on the loop's thread.
    Completion completionNoting(const std::string& tag) {
        return [this, tag, loopThread = std::this_thread::get_id()] {
            EXPECT_EQ(std::this_thread::get_id(), loopThread) << "completion " << tag;
            EXPECT_EQ(completions(tag), 0) << "completion " << tag << " ran twice";
            note("done " + tag);
        };
    }

    /// Log entries without their times, in order.
    std::vector<std::string> entries() const {
        std::vector<std::string> plain;
        for (const auto& entry : mLog) {
            plain.push_back(entry.substr(entry.find(' ') + 1));
        }
        return plain;
    }
    /// Log entries with their times.
    const std::vector<std::string>& timedEntries() const { return mLog; }
    /// Number of times a completion tagged `tag` ran.
    int completions(const std::string& tag) const {
        const auto plain = entries();
        return static_cast<int>(std::count(plain.begin(), plain.end(), "done " + tag));
    }

    /// What was heard so far.
    OfflineAudio heard() const { return OfflineAudio(mMix); }
    static std::size_t frameAt(double seconds) {
        return static_cast<std::size_t>(seconds * 48000 + 0.5);
    }

    static std::string playingIn(int channel) {
        return "Sound is playing in channel " + std::to_string(channel);
    }
    auto& table() { return VTOSoundsManagerTestAccess::table(manager()); }
    auto& playQueue() { return VTOSoundsManagerTestAccess::playQueue(manager()); }

    SoundFixtures sounds;

    /// Adds an entry to the log, stamped with the loop time.
    void note(const std::string& entry) {
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%.3fms ",
                      std::chrono::duration<double, std::milli>(mLoop.now()).count());
        mLog.push_back(stamp + entry);
    }

private:
    ScopedEnv mCacheHome{"XDG_CACHE_HOME", sounds.path("caches")};
    RunLoop& mLoop;
    std::unique_ptr<VTOSoundsManager> mManager;
    std::vector<std::string> mLog;
    std::vector<float> mMix;
};

} // namespace vantelo_sounds::test
