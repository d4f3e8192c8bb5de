#include "support/ManagerFixture.hpp"

#include <cstdio>
#include <filesystem>
#include <map>
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

double ManagerFixture::nowSeconds() const {
    return std::chrono::duration<double>(mLoop->now()).count();
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
    std::snprintf(stamp, sizeof stamp, "%.3fms ", nowSeconds() * 1000.0);
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
    int count = 0;
    for (const auto& entry : entries()) {
        count += entry == "done " + tag ? 1 : 0;
    }
    return count;
}

std::vector<std::string> ManagerFixture::consoleLines() const {
    std::vector<std::string> lines;
    for (const auto& entry : entries()) {
        if (entry.rfind("done ", 0) != 0) {
            lines.push_back(entry);
        }
    }
    return lines;
}

} // namespace vantelo_sounds::test
