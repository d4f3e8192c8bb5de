// The platform recorder in real time: a paced signal and SDL's capture device (the dummy driver,
// which hears silence) through the pump thread, with the end delivered on the run loop.
#include <vantelo_sounds/platform/AudioRecorder.hpp>
#include <vantelo_sounds/platform/AudioRecorderError.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include <gtest/gtest.h>

#include "support/DecodedSound.hpp"
#include "support/NamedCase.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds::test {
namespace {

using Kind = simulation::Microphone::Kind;

class Ends final : public AudioRecorderDelegate {
public:
    void audioRecorderDidFinishRecording(AudioRecorder&, bool successfully) override {
        ++reports;
        finished = successfully;
    }
    void audioRecorderEncodeErrorDidOccur(AudioRecorder&,
                                          const std::optional<Failure>& failure) override {
        ++reports;
        error = failure ? failure->code : std::error_code{};
    }
    int reports = 0;
    std::optional<bool> finished;
    std::optional<std::error_code> error;
};

class AudioRecorderTest : public ::testing::Test {
protected:
    AudioRecorderTest() { simulation::setRecordPermission(RecordPermission::granted); }
    ~AudioRecorderTest() override {
        simulation::setMicrophone(std::nullopt);
        simulation::resetAudioSession();
        RunLoop::resetMainManual();
    }

    /// Records `seconds` in real time and pumps the loop until the end is reported.
    void record(double seconds) {
        auto made =
            AudioRecorder::create(FileURL::fileURLWithPath(path), {{kAudioSampleRateKey, 16000}});
        ASSERT_TRUE(made);
        std::shared_ptr<AudioRecorder> recorder = *made;
        recorder->setDelegate(ends);
        ASSERT_TRUE(recorder->recordForDuration(seconds));
        EXPECT_TRUE(recorder->isRecording());
        const Duration deadline = loop.now() + std::chrono::seconds(10);
        while (ends->reports == 0 && loop.now() < deadline) {
            loop.runUntil(loop.now() + std::chrono::milliseconds(20));
        }
        EXPECT_FALSE(recorder->isRecording());
        loop.runUntil(loop.now() + std::chrono::milliseconds(50));
        EXPECT_EQ(ends->reports, 1) << "exactly one end";
    }

    RunLoop& loop = RunLoop::resetMain(std::make_shared<SteadyClock>());
    TempFolder folder;
    std::string path = folder / "r.m4a";
    std::shared_ptr<Ends> ends = std::make_shared<Ends>();
};

TEST_F(AudioRecorderTest, ASignalMicrophoneIsRecordedForExactlyTheLengthAsked) {
    simulation::setMicrophone(simulation::Microphone{Kind::tone, 1000.0, 0.5, ""});
    record(0.3);
    EXPECT_EQ(ends->finished, true);
    const DecodedSound sound = decodeFile(path);
    EXPECT_NEAR(double(sound.frames()) / 48000.0, 0.3, 1024.0 / 16000.0);
    EXPECT_NEAR(sound.audio().zeroCrossingFrequency(0, 4800, 12000), 1000.0, 10.0);
}

TEST_F(AudioRecorderTest, TheDeviceHearingOnlyZerosIsReportedNotDeliveredAsAClip) {
    record(0.2); // SDL's dummy driver captures silence
    EXPECT_EQ(ends->error, AudioRecorderError::onlySilence);
}

struct SettingsRow : NamedCase {
    AudioRecorderSettings settings;
    bool accepted;
};

class RecorderSettingsTest : public ::testing::TestWithParam<SettingsRow> {};

TEST_P(RecorderSettingsTest, OnlySettingsItCanRecordAreAccepted) {
    const auto made =
        AudioRecorder::create(FileURL::fileURLWithPath("/tmp/x.m4a"), GetParam().settings);
    EXPECT_EQ(made.hasValue(), GetParam().accepted);
    if (!GetParam().accepted) {
        EXPECT_EQ(made.error(), AudioRecorderError::unsupportedSettings);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, RecorderSettingsTest,
    ::testing::Values(SettingsRow{"VoiceMemo",
                                  {{kAudioFormatIDKey, kAudioFormatMPEG4AAC},
                                   {kAudioSampleRateKey, 16000},
                                   {kAudioNumberOfChannelsKey, 1},
                                   {kAudioEncoderQualityKey, kAudioQualityHigh}},
                                  true},
                      SettingsRow{"Defaults", {}, true},
                      SettingsRow{"LinearPcm", {{kAudioFormatIDKey, 0x6C70636D}}, false},
                      SettingsRow{"RateTooLow", {{kAudioSampleRateKey, 4000}}, false},
                      SettingsRow{"RateTooHigh", {{kAudioSampleRateKey, 96000}}, false},
                      SettingsRow{"Stereo", {{kAudioNumberOfChannelsKey, 2}}, false},
                      SettingsRow{"QualityOutOfRange", {{kAudioEncoderQualityKey, 128}}, false}),
    CaseName{});

} // namespace
} // namespace vantelo_sounds::test
