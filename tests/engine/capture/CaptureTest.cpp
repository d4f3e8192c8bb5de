// Recording faults at the engine: bad samples, a microphone that fails or goes away, an encoder
// that falls behind, a full disk. Each ends in a complete file and one outcome that says so.
#include <cmath>
#include <csignal>
#include <future>
#include <limits>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "engine/capture/CaptureError.hpp"
#include "engine/capture/CapturePump.hpp"
#include "engine/capture/CaptureSource.hpp"
#include "engine/capture/RecordingFile.hpp"
#include "engine/capture/SignalCapture.hpp"
#include "engine/rt/FrameRing.hpp"
#include "support/DecodedSound.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::CaptureError;
using engine::RecordingOutcome;
using Reason = RecordingOutcome::Reason;

constexpr int kRate = 16000;

/// A microphone that delivers `frames` frames of a tone the moment it starts, then either goes
/// quiet or reports itself lost; or fails to open.
class ScriptedSource final : public engine::CaptureSource {
public:
    std::size_t frames = 0;
    bool loseAfterwards = false;
    bool failToOpen = false;

    const char* name() const noexcept override { return "scripted"; }
    int rate() const noexcept override { return kRate; }
    Expected<void> start(engine::FrameRing& ring) override {
        if (failToOpen) {
            return Expected<void>(CaptureError::deviceUnavailable, "unplugged");
        }
        std::vector<float> tone(frames);
        for (std::size_t i = 0; i < frames; ++i) {
            tone[i] = 0.5f * static_cast<float>(std::sin(2.0 * M_PI * 500.0 * double(i) / kRate));
        }
        ring.push(tone.data(), tone.size());
        mLost = loseAfterwards;
        return {};
    }
    void stop() noexcept override {}
    bool lost() const noexcept override { return mLost; }

private:
    bool mLost = false;
};

class CaptureTest : public ::testing::Test {
protected:
    std::unique_ptr<engine::RecordingFile> file(double limitSeconds, std::string path = {}) {
        engine::RecordingFile::Settings settings;
        settings.path = path.empty() ? folder / "r.m4a" : path;
        settings.inputRate = kRate;
        settings.limitFrames = static_cast<std::uint64_t>(limitSeconds * kRate);
        auto made = engine::RecordingFile::create(settings);
        EXPECT_TRUE(made) << made.failure().describe();
        return made ? std::move(*made) : nullptr;
    }

    /// Runs a pump on `source` until it ends by itself (or `stopAfterStart`), returning its
    /// outcome.
    RecordingOutcome pump(std::unique_ptr<ScriptedSource> source, double limitSeconds,
                          bool stopAfterStart = false) {
        std::promise<RecordingOutcome> ended;
        engine::CapturePump pump(std::move(source), file(limitSeconds),
                                 [&](const RecordingOutcome& o) { ended.set_value(o); });
        pump.start();
        if (stopAfterStart) {
            pump.stop();
        }
        auto future = ended.get_future();
        EXPECT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        return future.get();
    }

    static std::unique_ptr<ScriptedSource> source(std::size_t frames, bool lose = false,
                                                  bool fail = false) {
        auto s = std::make_unique<ScriptedSource>();
        s->frames = frames;
        s->loseAfterwards = lose;
        s->failToOpen = fail;
        return s;
    }

    TempFolder folder;
};

TEST_F(CaptureTest, NonFiniteAndOutOfRangeSamplesAreMadeSafeBeforeTheEncoder) {
    auto recording = file(1.0);
    std::vector<float> samples(kRate / 2, 0.25f);
    samples[10] = std::numeric_limits<float>::quiet_NaN();
    samples[20] = std::numeric_limits<float>::infinity();
    samples[30] = -7.0f;
    ASSERT_TRUE(recording->append(samples.data(), samples.size()));
    ASSERT_TRUE(recording->finish());
    EXPECT_EQ(recording->repairedSamples(), 3u);
    const DecodedSound sound = decodeFile(folder / "r.m4a");
    EXPECT_TRUE(sound.audio().allFiniteAndInRange());
    EXPECT_NEAR(double(sound.frames()) / 48000.0, 0.5, 1024.0 / kRate);
}

TEST_F(CaptureTest, AMicrophoneLostMidRecordingLeavesACompleteFileOfWhatWasCaptured) {
    const RecordingOutcome outcome = pump(source(kRate / 2, true), 3.0);
    EXPECT_EQ(outcome.reason, Reason::deviceLost);
    EXPECT_TRUE(outcome.result) << outcome.result.failure().describe();
    EXPECT_DOUBLE_EQ(outcome.seconds, 0.5);
    const DecodedSound sound = decodeFile(folder / "r.m4a");
    EXPECT_NEAR(sound.audio().zeroCrossingFrequency(0, 4800, 19200), 500.0, 5.0);
}

TEST_F(CaptureTest, FailuresAreReportedNeverPassedOffAsGoodClips) {
    EXPECT_EQ(pump(source(0, false, true), 1.0).result.error(), CaptureError::deviceUnavailable);
    EXPECT_EQ(pump(source(0, true), 1.0).result.error(), CaptureError::deviceLost);
    // More than the ring holds at once: what the encoder could not take in time is said.
    const RecordingOutcome behind = pump(source(kRate * 5), 6.0, true);
    EXPECT_EQ(behind.result.error(), CaptureError::fellBehind);
    EXPECT_GT(behind.droppedFrames, 0u);
    EXPECT_DOUBLE_EQ(behind.seconds, 5.0)
        << "lost sound is kept as a gap, so the rest stays in time";
}

TEST_F(CaptureTest, AFullDiskIsAWriteErrorWithItsErrno) {
    engine::RecordingFile::Settings settings;
    settings.path = "/dev/full";
    settings.inputRate = kRate;
    settings.limitFrames = kRate;
    auto made = engine::RecordingFile::create(settings);
    std::error_code error = made ? std::error_code{} : made.error();
    if (made) {
        std::vector<float> samples(kRate, 0.25f);
        auto appended = (*made)->append(samples.data(), samples.size());
        const auto finished = (*made)->finish();
        error = !appended ? appended.error() : finished.error();
    }
    EXPECT_EQ(error, std::errc::no_space_on_device);
}

// A process killed while it records leaves a file that plays all but its last fragment. The child
// appends the tone in 20 ms blocks and says after each how much it has appended; the parent kills
// it at a different moment each time and decodes what is on disk.
TEST_F(CaptureTest, AProcessKilledWhileRecordingLeavesAFileMissingAtMostItsLastFragment) {
    constexpr std::size_t kBlock = 960; // 20 ms at 48 kHz, as often as the pump writes
    double worstLoss = 0.0;
    for (int reports = 25; reports <= 100; reports += 15) {
        const std::string path = folder / ("killed" + std::to_string(reports) + ".m4a");
        int pipeEnds[2];
        ASSERT_EQ(::pipe(pipeEnds), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(pipeEnds[0]);
            engine::RecordingFile::Settings settings;
            settings.path = path;
            settings.inputRate = 48000;
            settings.limitFrames = 48000 * 60;
            auto recording = engine::RecordingFile::create(settings);
            const auto tone = engine::SignalCapture::tone(440.0, 0.5);
            std::vector<float> block(kBlock);
            for (std::uint64_t appended = 0; recording;) {
                tone->read(block.data(), block.size());
                if (!(*recording)->append(block.data(), block.size())) {
                    break;
                }
                appended += kBlock;
                if (::write(pipeEnds[1], &appended, sizeof appended) != sizeof appended) {
                    break;
                }
            }
            ::_exit(1);
        }
        ::close(pipeEnds[1]);
        std::uint64_t appended = 0;
        for (int i = 0; i < reports; ++i) {
            ASSERT_EQ(::read(pipeEnds[0], &appended, sizeof appended), ssize_t(sizeof appended));
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ::close(pipeEnds[0]);
        const DecodedSound sound = decodeFile(path);
        // A cut-off file keeps the encoder's priming, which is not recorded sound.
        const double kept = double(sound.frames()) / 48000.0 - 1024.0 / 16000.0;
        const double loss = double(appended) / 48000.0 - kept;
        EXPECT_LE(loss, 0.25) << "killed after " << appended << " frames";
        worstLoss = std::max(worstLoss, loss);
    }
    RecordProperty("worst_loss_ms", std::to_string(std::lround(worstLoss * 1000)));
    std::printf("worst loss over the kills: %.0f ms\n", worstLoss * 1000);
}

} // namespace
} // namespace vantelo_sounds::test
