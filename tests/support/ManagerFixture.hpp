#pragma once

#include <memory>
#include <string>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "support/ManagerTestAccess.hpp"
#include "support/OfflineAudio.hpp"
#include "support/ScopedEnv.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {

/// A manager of its own on a fresh platform: a manual run loop at time 0, a reset audio session
/// and default notification center, the manual output whose mix is kept in memory, a console
/// whose lines are kept, test sounds in a temporary folder and a caches folder of its own. Console
/// lines and completions go into one ordered log, each stamped with the loop time in milliseconds
/// ("12.5ms Sound is playing in channel 1").
class ManagerFixture : public ::testing::Test {
protected:
    ManagerFixture();
    ~ManagerFixture() override;

    VTOSoundsManager& manager();
    RunLoop& loop() { return *mLoop; }
    /// Moves the manual clock forward, rendering the mix and delivering everything due.
    void advance(double seconds);

    /// Settings for a file by the URL constructor.
    static PlaySoundSettings settingsFor(const std::string& path, float pan = 0.0f,
                                         float volume = 1.0f, bool queued = false,
                                         bool looped = false);
    /// A completion that logs "done <tag>" and checks that it runs once, on the loop's thread.
    Completion completionNoting(const std::string& tag);

    /// Log entries without their times, in order.
    std::vector<std::string> entries() const;
    /// Log entries with their times.
    const std::vector<std::string>& timedEntries() const { return mLog; }
    /// Number of times a completion tagged `tag` ran.
    int completions(const std::string& tag) const;
    /// Console lines only.
    std::vector<std::string> consoleLines() const;

    /// What was heard so far.
    OfflineAudio heard() const { return OfflineAudio(mMix); }
    static std::size_t frameAt(double seconds) {
        return static_cast<std::size_t>(seconds * 48000 + 0.5);
    }

    auto& table() { return VTOSoundsManagerTestAccess::table(manager()); }
    auto& playQueue() { return VTOSoundsManagerTestAccess::playQueue(manager()); }

    SoundFixtures sounds;

private:
    ScopedEnv mCacheHome{"XDG_CACHE_HOME", sounds.path("caches")};
    void note(const std::string& entry);

    RunLoop* mLoop = nullptr;
    std::unique_ptr<VTOSoundsManager> mManager;
    std::vector<std::string> mLog;
    std::vector<float> mMix;
};

} // namespace vantelo_sounds::test
