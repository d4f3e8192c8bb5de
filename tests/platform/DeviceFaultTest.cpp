// Devices that misbehave, on the manual clock: a fault-injecting device is unplugged, refuses to
// open, stalls, takes its time to close and comes back in another format, while the manager plays.
#include <dirent.h>
#include <unistd.h>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

#include <gtest/gtest.h>

#include "engine/output/FaultInjectingDevice.hpp"
#include "support/ManagerFixture.hpp"

// The sanitizers keep freed memory in quarantine, so the process's size says nothing under them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VANTELO_MEMORY_IS_MEASURABLE 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VANTELO_MEMORY_IS_MEASURABLE 0
#endif
#endif
#ifndef VANTELO_MEMORY_IS_MEASURABLE
#define VANTELO_MEMORY_IS_MEASURABLE 1
#endif

namespace vantelo_sounds::test {
namespace {

std::size_t entriesIn(const char* folder) {
    std::size_t count = 0;
    if (DIR* dir = opendir(folder)) {
        while (readdir(dir) != nullptr) {
            ++count;
        }
        closedir(dir);
    }
    return count;
}

std::size_t residentBytes() {
    long pages = 0;
    long resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(statm);
    }
    return static_cast<std::size_t>(resident) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

class DeviceFaultTest : public ManagerFixture, private PlaybackObserver {
protected:
    DeviceFaultTest() {
        AudioSystem::reset(device->makeOutput());
        setPlaybackObserver(this);
        mObserver = NotificationCenter::defaultCenter().addObserver(
            kAudioSessionInterruptionNotification, [this](const Notification& notification) {
                const auto& info = *notification.userInfo;
                const bool began =
                    std::any_cast<std::uint64_t>(info.at(kAudioSessionInterruptionTypeKey)) == 1;
                note(began ? "began" : "ended, may resume");
            });
    }
    ~DeviceFaultTest() override {
        NotificationCenter::defaultCenter().removeObserver(mObserver);
        setPlaybackObserver(nullptr);
    }

    /// Log entries that are not console lines, with their times.
    std::vector<std::string> happenings() const {
        std::vector<std::string> kept;
        for (const auto& entry : timedEntries()) {
            if (entry.find("Sound is playing") == std::string::npos) {
                kept.push_back(entry);
            }
        }
        return kept;
    }
    /// What the device played, as a mix.
    OfflineAudio deviceHeard() const { return OfflineAudio(device->heard()); }

    std::shared_ptr<engine::FaultInjectingDevice> device = engine::FaultInjectingDevice::make();

private:
    void playerStarted(const AudioPlayer&, Duration) override {}
    void playerEnded(const AudioPlayer&, EndReason, Duration) override {}
    void outputChanged(const std::string& name, const std::string&, Duration) override {
        note("output " + name);
    }

    NotificationCenter::ObserverId mObserver = 0;
};

// Unplugged at 0.4 s in the middle of a one-second sound and plugged back at 1.2 s: nothing
// pauses, the one-shot ends at 1.000 s as it would have and completes once, the session posts
// "began" and then "ended" with should-resume, and the loop is heard on the device again. The
// device was tried at 0.65 and 1.15 s, so the third try, a second later, finds it.
TEST_F(DeviceFaultTest, ASoundOutlivesItsDeviceAndCompletesOnceOnTime) {
    manager().play(settingsFor(sounds.tone("loop.wav", 300, 0.5), -1, 1, false, true));
    manager().play(settingsFor(sounds.tone("once.wav", 700, 1.0), 1, 1), completionNoting("once"));
    testing::internal::CaptureStderr();
    advance(0.4);
    device->unplug();
    advance(0.8);
    device->plugIn();
    advance(1.8);
    const std::string said = testing::internal::GetCapturedStderr();

    EXPECT_EQ(happenings(), (std::vector<std::string>{
                                "400.000ms output null", "400.000ms began", "1000.000ms done once",
                                "2200.000ms output fault", "2200.000ms ended, may resume"}));
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2) << said;
    EXPECT_TRUE(table().at(1).first->isPlaying());
    // The device heard both sounds until it went, then nothing until it came back; the loop
    // plays on it after that, and the one-shot has ended.
    const OfflineAudio heard = deviceHeard();
    EXPECT_GT(heard.rms(0, frameAt(0.1), frameAt(0.4)), 0.2);
    EXPECT_GT(heard.rms(1, frameAt(0.1), frameAt(0.4)), 0.2);
    EXPECT_EQ(heard.frames(), frameAt(0.4) + frameAt(0.8));
    const std::size_t back = frameAt(0.4); // the frames after the device's return
    EXPECT_GT(heard.rms(0, back, back + frameAt(0.5)), 0.2);
    EXPECT_LT(heard.peak(1, back), 1e-6f);
}

// A device that refuses to open a hundred times is tried with back-off, never in a busy loop, and
// said once; when it opens at last, sound comes back as from any loss.
TEST_F(DeviceFaultTest, AHundredRefusedReopeningsAreSaidOnceAndBackedOff) {
    manager().play(settingsFor(sounds.tone("loop.wav", 300, 0.5), 0, 1, false, true));
    device->failOpens(100);
    testing::internal::CaptureStderr();
    device->unplug();
    device->plugIn();
    advance(150);
    EXPECT_LT(device->failedOpens(), 100) << "at most one try every two seconds";
    advance(100);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(device->failedOpens(), 100);
    EXPECT_EQ(device->opens(), 2);
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2) << said;
    const auto happened = happenings();
    ASSERT_EQ(happened.size(), 4u);
    EXPECT_EQ(happened[3].substr(happened[3].find(' ')), " ended, may resume");
    EXPECT_GT(deviceHeard().rms(0, deviceHeard().frames() - 4800), 0.1);
}

// A device that stops asking for sound is given up after two seconds, like one that went away;
// its close blocks, but the run loop goes on (sounds end and complete), and the next device is
// opened only once the old one has closed, in the format the device now has.
TEST_F(DeviceFaultTest, AStalledDeviceIsGivenUpWithoutWaitingForItToClose) {
    manager().play(settingsFor(sounds.tone("loop.wav", 300, 0.5), 0, 1, false, true));
    device->setStalled(true);
    device->holdCloses(true);
    advance(2.5);
    EXPECT_EQ(happenings(),
              (std::vector<std::string>{"2000.000ms output null", "2000.000ms began"}));
    manager().play(settingsFor(sounds.tone("once.wav", 700, 0.2)), completionNoting("once"));
    advance(1.0);
    EXPECT_EQ(completions("once"), 1) << "the loop is not held up by a device closing";
    EXPECT_EQ(device->closes(), 0);
    EXPECT_EQ(device->opens(), 1);

    device->setStalled(false);
    device->setFormat({4096, 1});
    device->holdCloses(false);
    advance(1.0);
    EXPECT_EQ(device->closes(), 1);
    EXPECT_EQ(device->opens(), 2);
    EXPECT_EQ(happenings().back().substr(happenings().back().find(' ')), " ended, may resume");
    // The mono device hears the centred loop, in blocks of its own size.
    const OfflineAudio heard = deviceHeard();
    EXPECT_NEAR(heard.rms(0, heard.frames() - 9600), heard.rms(1, heard.frames() - 9600), 1e-6);
    EXPECT_GT(heard.rms(0, heard.frames() - 9600), 0.1);
}

// Unplugged and plugged back a thousand times while a loop plays: the threads, the open files
// and the memory of the process stay as they were.
TEST_F(DeviceFaultTest, AThousandRemovalsLeaveNoThreadNoFileAndNoMemoryBehind) {
    device->keepWhatIsHeard(false);
    manager().play(settingsFor(sounds.tone("loop.wav", 300, 0.5), 0, 1, false, true));
    const auto cycle = [&] {
        device->unplug();
        advance(0.25);
        device->plugIn();
        advance(0.5);
    };
    const auto cycles = [&](int count) {
        testing::internal::CaptureStderr(); // two lines a cycle
        for (int i = 0; i < count; ++i) {
            cycle();
        }
        (void)testing::internal::GetCapturedStderr();
    };
    cycles(20); // the worker thread is made, allocators warm up
    const std::size_t threads = entriesIn("/proc/self/task");
    const std::size_t files = entriesIn("/proc/self/fd");
    const std::size_t memory = residentBytes();
    cycles(1000);
    EXPECT_EQ(device->opens(), 1 + 1020);
    EXPECT_EQ(device->closes(), 1020);
    EXPECT_EQ(entriesIn("/proc/self/task"), threads);
    EXPECT_EQ(entriesIn("/proc/self/fd"), files);
    if (VANTELO_MEMORY_IS_MEASURABLE) {
        EXPECT_LT(residentBytes(), memory + (std::size_t{1} << 20)) << "grew by at most 1 MiB";
    }
    EXPECT_TRUE(table().at(1).first->isPlaying());
    EXPECT_EQ(AudioSystem::shared().engine().renderedFrame(), frameAt(765)) << "the mix went on";
}

} // namespace
} // namespace vantelo_sounds::test
