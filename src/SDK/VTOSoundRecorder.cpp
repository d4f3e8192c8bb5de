#include <filesystem>
#include <vantelo_sounds/VTOSoundRecorder.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>
#include <vantelo_sounds/platform/FileManager.hpp>
#include <vantelo_sounds/platform/SearchPaths.hpp>

#include "SoundRecorderError.hpp"

namespace vantelo_sounds {

namespace {

void say(std::string_view line) {
    Console::shared().print(line);
}

// The caches folder; with no home folder at all, the system's temporary folder stands in for it.
std::string cachesFolder() {
    const auto caches = SearchPaths::cachesDirectories();
    if (!caches.empty()) {
        return caches.front();
    }
    std::error_code error;
    const std::string temporary = std::filesystem::temp_directory_path(error).string();
    return error || temporary.empty() ? "/tmp" : temporary;
}

const AudioRecorderSettings& recorderSettings() {
    static const AudioRecorderSettings settings{
        {kAudioFormatIDKey, kAudioFormatMPEG4AAC},
        {kAudioSampleRateKey, 16000},
        {kAudioNumberOfChannelsKey, 1},
        {kAudioEncoderQualityKey, kAudioQualityHigh},
    };
    return settings;
}

} // namespace

void VTORecorderHandler::audioRecorderDidFinishRecording(AudioRecorder&, bool successfully) {
    // Cleared before it runs: whatever it does, it cannot run twice.
    auto run = std::move(completion);
    completion = nullptr;
    if (run) {
        run(successfully);
    }
}

void VTORecorderHandler::audioRecorderEncodeErrorDidOccur(AudioRecorder&,
                                                          const std::optional<Failure>& error) {
    say(error ? error->describe() : "audio recorder encode error did occur");
    auto run = std::move(completion);
    completion = nullptr;
    if (run) {
        run(false);
    }
}

VTOSoundRecorder::VTOSoundRecorder(double duration)
    : maxRecordDuration(duration)
    , recordFilePath(FileURL::fileURLWithPath(cachesFolder() + "/tmpRecording.m4a")) {
    // A file left from an earlier run goes; its absence is no error.
    (void)FileManager::defaultManager().removeItemAtURL(recordFilePath);
    recordingSession = &AudioSession::sharedInstance();
    // A recorder that cannot be made is never tried again: every start then says so.
    if (auto made = AudioRecorder::create(recordFilePath, recorderSettings())) {
        recorder = std::move(*made);
    }
}

void VTOSoundRecorder::requestPermissions(PermissionCompletion completion) {
    if (recordingSession == nullptr) {
        say("Failed to get AVAudioSession");
        if (completion) {
            completion(false, std::error_code(SoundRecorderError::failedToGetAudioSession));
        }
        return;
    }
    // Asked only while undecided; an answer given before calls nothing.
    if (recordingSession->recordPermission() != RecordPermission::undetermined) {
        return;
    }
    recordingSession->requestRecordPermission([completion](bool granted) {
        if (granted) {
            if (completion) {
                completion(true, std::nullopt);
            }
            return;
        }
        say("AVAudioSession permission denied");
        if (completion) {
            completion(std::nullopt, std::error_code(SoundRecorderError::permissionDenied));
        }
    });
}

void VTOSoundRecorder::startRecording(std::optional<double> maxDuration,
                                      RecordingCompletion completion) {
    const auto fail = [&completion](const char* line, SoundRecorderError error) {
        say(line);
        if (completion) {
            completion(std::nullopt, std::error_code(error));
        }
    };
    // Both happen before any check: a refused start still replaces the duration and deletes the
    // previous recording.
    if (maxDuration) {
        maxRecordDuration = *maxDuration;
    }
    (void)FileManager::defaultManager().removeItemAtURL(recordFilePath);
    if (recordingSession == nullptr) {
        fail("Failed to get AVAudioSession", SoundRecorderError::failedToGetAudioSession);
        return;
    }
    if (!recorder) {
        fail("Failed to get AVAudioRecorder", SoundRecorderError::failedToGetAudioRecorder);
        return;
    }
    switch (recordingSession->recordPermission()) {
    case RecordPermission::denied:
        fail("AVAudioSession permission denied", SoundRecorderError::permissionDenied);
        return;
    case RecordPermission::undetermined:
        fail("AVAudioSession permission undetermined", SoundRecorderError::permissionUndetermined);
        return;
    case RecordPermission::granted:
        break;
    }

    // The end step holds the file's URL rather than the recorder, so that it keeps nothing
    // alive, and a report that would come after the recorder went away still completes with the
    // file it names.
    recorderHandler = std::make_shared<VTORecorderHandler>();
    recorderHandler->completion = [completion, url = recordFilePath](bool successfully) {
        if (!completion) {
            return;
        }
        if (successfully) {
            completion(url, std::nullopt);
        } else {
            completion(std::nullopt, std::error_code(SoundRecorderError::recordindFailed));
        }
    };
    recorder->setDelegate(recorderHandler);

    std::error_code error = AudioSession::sharedInstance().setCategory(
        AudioSessionCategory::playAndRecord, AudioSessionMode::defaultMode, kDefaultToSpeaker);
    if (!error && recordingSession != nullptr) {
        error = recordingSession->setActive(true, 0);
    }
    if (error) {
        say("start recording " + errorDescription(error)); // and the recording still starts
    }
    (void)recorder->prepareToRecord();
    (void)recorder->recordForDuration(maxRecordDuration);
}

void VTOSoundRecorder::stopRecording() {
    if (!recorder) {
        say("Failed to get AVAudioRecorder");
        return;
    }
    if (recorder->isRecording()) {
        recorder->stop();
    }
}

} // namespace vantelo_sounds
