// The recorder on the manual clock, the microphone hearing a 440 Hz tone: what the file holds, when
// the completion runs, and every refusal with its console line.
#include <filesystem>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include <gtest/gtest.h>

#include "SDK/SoundRecorderError.hpp"
#include "support/DecodedSound.hpp"
#include "support/ManagerFixture.hpp"
#include "support/NamedCase.hpp"

namespace vantelo_sounds::test {
namespace {

using Kind = simulation::Microphone::Kind;
constexpr double kAacFrameSeconds = 1024.0 / 16000.0;

class SoundRecorderTest : public ManagerFixture {
protected:
    SoundRecorderTest() {
        simulation::setMicrophone(simulation::Microphone{Kind::tone, 440.0, 0.5, ""});
        simulation::setRecordPermission(RecordPermission::granted);
    }
    ~SoundRecorderTest() override { simulation::setMicrophone(std::nullopt); }

    VTOSoundRecorder& recorder() { return VTOSoundsManagerTestAccess::recorder(manager()); }
    std::string recordingPath() const { return sounds.path("caches") + "/tmpRecording.m4a"; }

    /// Logs "done <tag> <path>" or "done <tag> error <case>" and checks that it runs once.
    RecordingCompletion noting(const std::string& tag) {
        return [this, tag](const std::optional<FileURL>& url,
                           const std::optional<std::error_code>& error) {
            EXPECT_EQ(completions(tag), 0) << tag << " ran twice";
            EXPECT_NE(url.has_value(), error.has_value()) << tag;
            note("done " + tag);
            note(url ? url->path() : "error " + std::to_string(error->value()));
        };
    }
    static std::string errorEntry(SoundRecorderError error) {
        return "error " + std::to_string(static_cast<int>(error));
    }

    /// The file decodes as AAC, 16 kHz mono, holding the tone for `seconds` (to an AAC frame).
    void expectToneFile(double seconds) {
        const DecodedSound sound = decodeFile(recordingPath());
        EXPECT_EQ(sound.info.codec, "aac");
        EXPECT_EQ(sound.info.sourceRate, 16000);
        EXPECT_EQ(sound.info.sourceChannels, 1);
        EXPECT_NEAR(static_cast<double>(sound.frames()) / 48000.0, seconds, kAacFrameSeconds);
        const std::size_t tail = sound.frames() - frameAt(0.1);
        EXPECT_NEAR(sound.audio().zeroCrossingFrequency(0, frameAt(0.1), tail), 440.0, 4.4);
        EXPECT_NEAR(sound.audio().rms(0, frameAt(0.1), tail), 0.5 / std::sqrt(2.0), 0.05);
    }
};

TEST_F(SoundRecorderTest, RecordsTheMicrophoneForMaxDurationIntoTheCachesFile) {
    manager().startRecording(1.0, noting("r1"));
    EXPECT_TRUE(recorder().recorder->isRecording());
    EXPECT_EQ(AudioSession::sharedInstance().category(), AudioSessionCategory::playAndRecord);
    EXPECT_EQ(AudioSession::sharedInstance().categoryOptions(), kDefaultToSpeaker);
    EXPECT_TRUE(AudioSession::sharedInstance().isActive());
    advance(0.999);
    EXPECT_EQ(completions("r1"), 0);
    advance(1.0);
    EXPECT_EQ(timedEntries(),
              (std::vector<std::string>{"1000.000ms done r1", "1000.000ms " + recordingPath()}));
    EXPECT_FALSE(recorder().recorder->isRecording());
    EXPECT_DOUBLE_EQ(recorder().maxRecordDuration, 1.0);
    expectToneFile(1.0);
}

TEST_F(SoundRecorderTest, StopEndsTheRecordingWithTheFileAndALaterStopDoesNothing) {
    manager().startRecording(5.0, noting("r1"));
    advance(0.6);
    manager().stopRecording();
    advance(0.01);
    EXPECT_EQ(entries(), (std::vector<std::string>{"done r1", recordingPath()}));
    expectToneFile(0.6);
    manager().stopRecording();
    advance(1.0);
    EXPECT_EQ(entries().size(), 2u) << "a stop with nothing recording prints and calls nothing";
}

TEST_F(SoundRecorderTest, ASecondStartOrphansTheFirstCompletionAndRecordsAfresh) {
    manager().startRecording(1.0, noting("r1"));
    advance(0.3);
    manager().startRecording(0.5, noting("r2"));
    advance(2.0);
    EXPECT_EQ(timedEntries(),
              (std::vector<std::string>{"800.000ms done r2", "800.000ms " + recordingPath()}));
    expectToneFile(0.5);
}

TEST_F(SoundRecorderTest, AnInterruptionEndsTheRecordingKeepingWhatWasCaptured) {
    manager().startRecording(2.0, noting("r1"));
    advance(0.5);
    AudioSession::sharedInstance().postInterruption(kAudioSessionInterruptionTypeBegan,
                                                    std::nullopt);
    advance(0.1);
    EXPECT_EQ(entries(), (std::vector<std::string>{"done r1", recordingPath()}));
    expectToneFile(0.5);
}

TEST_F(SoundRecorderTest, AFailedCategoryChangeIsSaidAndTheRecordingStillHappens) {
    (void)manager(); // made first: its own session set-up is not what is refused here
    simulation::refuseAudioSession(simulation::AudioSessionOperation::setCategory,
                                   AudioSessionError::incompatibleCategory);
    manager().startRecording(0.5, noting("r1"));
    advance(1.0);
    EXPECT_EQ(entries(), (std::vector<std::string>{
                             "start recording Error Domain=vantelo_sounds.AudioSessionError "
                             "Code=560161140 \"The audio session refused the category\"",
                             "done r1", recordingPath()}));
}

// What the platform recorder reports as an encoding error: printed, then recordindFailed.
TEST_F(SoundRecorderTest, ASilentMicrophoneOrAnUnwritableFileEndsInRecordindFailed) {
    simulation::setMicrophone(simulation::Microphone{Kind::silence, 0, 0, ""});
    manager().startRecording(0.5, noting("silent"));
    advance(1.0);
    sounds.writeBytes("not-a-folder", "x");
    recorder().recorder =
        *AudioRecorder::create(FileURL::fileURLWithPath(sounds.path("not-a-folder/r.m4a")),
                               recorder().recorder->settings());
    manager().startRecording(0.5, noting("unwritable"));
    advance(1.0);
    const auto log = entries();
    ASSERT_EQ(log.size(), 6u);
    EXPECT_EQ(log[0], "The microphone gave only silence: it may be muted or blocked");
    EXPECT_EQ(log[2], errorEntry(SoundRecorderError::recordindFailed));
    EXPECT_EQ(log[3].rfind("The recording could not be written: Not a directory", 0), 0u) << log[3];
    EXPECT_EQ(log[5], errorEntry(SoundRecorderError::recordindFailed));
}

TEST_F(SoundRecorderTest, AnEncodeErrorWithoutAValueIsSaidAndALaterFinishFindsNoCompletion) {
    VTORecorderHandler handler;
    int calls = 0;
    handler.completion = [&](bool successfully) {
        ++calls;
        EXPECT_FALSE(successfully);
    };
    AudioRecorder& platform = *recorder().recorder;
    handler.audioRecorderEncodeErrorDidOccur(platform, std::nullopt);
    handler.audioRecorderDidFinishRecording(platform, true);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(entries(), std::vector<std::string>{"audio recorder encode error did occur"});
}

// ---- refused starts -------------------------------------------------------------------------

struct RefusalRow : NamedCase {
    std::function<void(VTOSoundRecorder&)> arrange;
    const char* line;
    SoundRecorderError error;
};

class StartRefusalTest : public SoundRecorderTest,
                         public ::testing::WithParamInterface<RefusalRow> {};

TEST_P(StartRefusalTest, SaysWhyCompletesAtOnceAndStillDeletesTheFileAndTakesTheDuration) {
    manager().startRecording(0.2, noting("first"));
    advance(0.5);
    ASSERT_TRUE(std::filesystem::exists(recordingPath()));
    GetParam().arrange(recorder());
    manager().startRecording(7.5, noting("refused"));
    EXPECT_EQ(entries(), (std::vector<std::string>{"done first", recordingPath(), GetParam().line,
                                                   "done refused", errorEntry(GetParam().error)}));
    EXPECT_FALSE(std::filesystem::exists(recordingPath()));
    EXPECT_DOUBLE_EQ(recorder().maxRecordDuration, 7.5);
}

INSTANTIATE_TEST_SUITE_P(
    Table, StartRefusalTest,
    ::testing::Values(
        RefusalRow{"NoAudioSession", [](VTOSoundRecorder& r) { r.recordingSession = nullptr; },
                   "Failed to get AVAudioSession", SoundRecorderError::failedToGetAudioSession},
        RefusalRow{"NoPlatformRecorder", [](VTOSoundRecorder& r) { r.recorder.reset(); },
                   "Failed to get AVAudioRecorder", SoundRecorderError::failedToGetAudioRecorder},
        RefusalRow{
            "PermissionDenied",
            [](VTOSoundRecorder&) { simulation::setRecordPermission(RecordPermission::denied); },
            "AVAudioSession permission denied", SoundRecorderError::permissionDenied},
        RefusalRow{"PermissionUndetermined",
                   [](VTOSoundRecorder&) {
                       simulation::setRecordPermission(RecordPermission::undetermined);
                   },
                   "AVAudioSession permission undetermined",
                   SoundRecorderError::permissionUndetermined}),
    CaseName{});

// ---- permission requests --------------------------------------------------------------------

struct PermissionRow : NamedCase {
    std::optional<RecordPermission> permission; // no value: the recorder holds no session
    bool userGrants;
    std::vector<std::string> expected;
};

class PermissionRequestTest : public SoundRecorderTest,
                              public ::testing::WithParamInterface<PermissionRow> {};

TEST_P(PermissionRequestTest, AnswersOnlyWhatWasUndeterminedOrThatThereIsNoSession) {
    if (GetParam().permission) {
        simulation::setRecordPermission(*GetParam().permission);
    } else {
        recorder().recordingSession = nullptr;
    }
    const bool grants = GetParam().userGrants;
    AudioSession::sharedInstance().setPermissionPrompt([grants] { return grants; });
    manager().requestPermissions(
        [this](const std::optional<bool>& granted, const std::optional<std::error_code>& error) {
            note("granted " + (granted ? std::to_string(*granted) : std::string("none")) +
                 " error " + (error ? std::to_string(error->value()) : std::string("none")));
        });
    advance(0.1);
    EXPECT_EQ(entries(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PermissionRequestTest,
    ::testing::Values(PermissionRow{"NoAudioSession",
                                    std::nullopt,
                                    true,
                                    {"Failed to get AVAudioSession", "granted 0 error 0"}},
                      PermissionRow{"UndeterminedUserGrants",
                                    RecordPermission::undetermined,
                                    true,
                                    {"granted 1 error none"}},
                      PermissionRow{"UndeterminedUserRefuses",
                                    RecordPermission::undetermined,
                                    false,
                                    {"AVAudioSession permission denied", "granted none error 2"}},
                      PermissionRow{"AlreadyGranted", RecordPermission::granted, true, {}},
                      PermissionRow{"AlreadyDenied", RecordPermission::denied, true, {}}),
    CaseName{});

} // namespace
} // namespace vantelo_sounds::test
