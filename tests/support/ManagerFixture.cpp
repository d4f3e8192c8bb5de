#include "support/ManagerFixture.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include "engine/output/ManualOutput.hpp"
#include "platform/AudioSystem.hpp"

namespace vantelo_sounds::test {

ManagerFixture::ManagerFixture() {
    std::filesystem::create_directories(sounds.path("caches"));
    mLoop = &RunLoop::resetMainManual();
    simulation::resetAudioSession();
    simulation::resetDefaultNotificationCenter();
    Bundle::main().setResourcePath(sounds.dir());
    Bundle::main().setLocalizations({});
    OutputConfig config;
    config.kind = OutputConfig::Kind::manual;
    AudioSystem& audio = AudioSystem::reset(config);
    if (auto* output = audio.engine().manualOutput()) {
        output->setCapture(&mMix);
    }
    Console::shared().setSink([this](std::string_view line) { note(std::string(line)); });
}

ManagerFixture::~ManagerFixture() {
    mManager.reset();
    if (auto* output = AudioSystem::shared().engine().manualOutput()) {
        output->setCapture(nullptr);
    }
    Console::shared().setSink({});
}

VTOSoundsManager& ManagerFixture::manager() {
    if (!mManager) {
        mManager = VTOSoundsManagerTestAccess::make();
    }
    return *mManager;
}

void ManagerFixture::advance(double seconds) {
    mLoop->advanceTo(mLoop->now() + vantelo_sounds::seconds(seconds));
}

PlaySoundSettings ManagerFixture::settingsFor(const std::string& path, float pan, float volume,
                                              bool queued, bool looped) {
    return PlaySoundSettings(FileURL::fileURLWithPath(path), SoundsPanType::fromRawValue(pan),
                             SoundsVolumeType::fromRawValue(volume), queued, looped);
}

Completion ManagerFixture::completionNoting(const std::string& tag) {
    const auto loopThread = std::this_thread::get_id();
    return [this, tag, loopThread] {
        EXPECT_EQ(std::this_thread::get_id(), loopThread) << "completion " << tag;
        EXPECT_EQ(completions(tag), 0) << "completion " << tag << " ran twice";
        note("done " + tag);
    };
}

void ManagerFixture::note(const std::string& entry) {
    char stamp[32];
    const double ms = std::chrono::duration<double, std::milli>(mLoop->now()).count();
    std::snprintf(stamp, sizeof stamp, "%.3fms ", ms);
    mLog.push_back(stamp + entry);
}

std::vector<std::string> ManagerFixture::entries() const {
    std::vector<std::string> plain;
    for (const auto& entry : mLog) {
        plain.push_back(entry.substr(entry.find(' ') + 1));
    }
    return plain;
}

int ManagerFixture::completions(const std::string& tag) const {
    const auto plain = entries();
    return static_cast<int>(std::count(plain.begin(), plain.end(), "done " + tag));
}

std::vector<std::string> ManagerFixture::consoleLines() const {
    std::vector<std::string> lines = entries();
    std::erase_if(lines, [](const std::string& entry) { return entry.rfind("done ", 0) == 0; });
    return lines;
}

} // namespace vantelo_sounds::test
