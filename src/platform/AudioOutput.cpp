#include <vantelo_sounds/platform/AudioOutput.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

#include "engine/output/ManualOutput.hpp"
#include "engine/output/OutputError.hpp"
#include "platform/AudioSystem.hpp"

namespace vantelo_sounds {

namespace {

/// The engine's failures in the platform's words; errno failures pass unchanged.
Failure toPlatform(Failure failure) {
    if (failure.code.category() != engine::outputErrorCategory()) {
        return failure;
    }
    switch (static_cast<engine::OutputError>(failure.code.value())) {
    case engine::OutputError::deviceUnavailable:
        failure.code = AudioOutputError::deviceUnavailable;
        break;
    case engine::OutputError::manualWritesItsOwnFile:
        failure.code = AudioOutputError::offlineWritesItsOwnFile;
        break;
    case engine::OutputError::notRecording:
        failure.code = AudioOutputError::notRecording;
        break;
    }
    return failure;
}

Expected<void> toPlatform(const Expected<void>& result) {
    return result ? Expected<void>() : Expected<void>(toPlatform(result.failure()));
}

OutputConfig::Kind configKind(AudioOutput::Kind kind) {
    switch (kind) {
    case AudioOutput::Kind::device:
        return OutputConfig::Kind::sdl;
    case AudioOutput::Kind::null:
        return OutputConfig::Kind::null;
    case AudioOutput::Kind::wavFile:
        return OutputConfig::Kind::wav;
    case AudioOutput::Kind::offline:
        return OutputConfig::Kind::manual;
    case AudioOutput::Kind::automatic:
        break;
    }
    return OutputConfig::Kind::automatic;
}

} // namespace

Expected<void> AudioOutput::select(Kind kind, const std::string& wavPath) {
    const bool offline = kind == Kind::offline;
    if (offline != RunLoop::main().isManual()) {
        return make_error_code(offline ? AudioOutputError::needsManualClock
                                       : AudioOutputError::needsRealTimeClock);
    }
    if (kind == Kind::wavFile && wavPath.empty()) {
        return Expected<void>(std::make_error_code(std::errc::invalid_argument),
                              "a WAV file output needs the file's path");
    }
    return toPlatform(
        AudioSystem::reset(OutputConfig{configKind(kind), wavPath}).engine().startResult());
}

Expected<void> AudioOutput::selectFromEnvironment() {
    return toPlatform(AudioSystem::reset(OutputConfig::fromEnvironment()).engine().startResult());
}

std::string AudioOutput::name() {
    return AudioSystem::shared().outputName();
}

std::string AudioOutput::device() {
    return AudioSystem::shared().engine().outputDevice();
}

Expected<void> AudioOutput::status() {
    return toPlatform(AudioSystem::shared().engine().startResult());
}

Expected<void> AudioOutput::startRecordingMix(const std::string& path,
                                              std::optional<Duration> maxDuration) {
    const std::uint64_t maxFrames =
        maxDuration ? AudioSystem::frameOfTime(*maxDuration) : engine::MixTap::kNoLimit;
    return toPlatform(AudioSystem::shared().startRecordingMix(path, maxFrames));
}

Expected<AudioOutput::Recording> AudioOutput::stopRecordingMix(Duration padTo) {
    auto stopped = AudioSystem::shared().stopRecordingMix(AudioSystem::frameOfTime(padTo));
    if (!stopped) {
        return toPlatform(stopped.failure());
    }
    return Recording{stopped->framesWritten, stopped->droppedFrames};
}

bool AudioOutput::isRecordingMix() {
    return AudioSystem::shared().engine().isRecordingMix();
}

Expected<void> AudioOutput::finishRender() {
    engine::ManualOutput* output = AudioSystem::shared().engine().manualOutput();
    if (output == nullptr) {
        return make_error_code(AudioOutputError::notOffline);
    }
    return output->finishFile();
}

} // namespace vantelo_sounds
