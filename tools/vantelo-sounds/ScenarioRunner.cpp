#include "ScenarioRunner.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <signal.h>
#include <string>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/AudioOutput.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>
#include <vector>

#include "EventLog.hpp"
#include "PlaybackEvents.hpp"

namespace vantelo_sounds::cli {

namespace {

Duration now() {
    return RunLoop::main().now();
}

const char* permissionWord(Scenario::RecordPermission permission) {
    switch (permission) {
    case Scenario::RecordPermission::denied:
        return "denied";
    case Scenario::RecordPermission::granted:
        return "granted";
    case Scenario::RecordPermission::undetermined:
        break;
    }
    return "undetermined";
}

RecordPermission platformPermission(Scenario::RecordPermission permission) {
    switch (permission) {
    case Scenario::RecordPermission::denied:
        return RecordPermission::denied;
    case Scenario::RecordPermission::granted:
        return RecordPermission::granted;
    case Scenario::RecordPermission::undetermined:
        break;
    }
    return RecordPermission::undetermined;
}

/// Everything the library reads at the manager's creation, and the microphone, as the scenario
/// says. Runs before the manager is first used.
void setUpPlatform(const Scenario& scenario) {
    Bundle::main().setResourcePath(scenario.bundle);
    if (scenario.localizations) {
        Bundle::main().setLocalizations(*scenario.localizations);
    }
    simulation::setAvailableLanguages(scenario.voices);

    // The scenario decides the permission; presetting it through the environment as well keeps
    // a run from ever writing the user's stored answer.
    ::setenv("VANTELO_SOUNDS_RECORD_PERMISSION", permissionWord(scenario.recordPermission), 1);
    AudioSession& session = AudioSession::sharedInstance();
    simulation::setRecordPermission(platformPermission(scenario.recordPermission));
    const bool answer = scenario.grantPermission;
    session.setPermissionPrompt([answer] { return answer; });

    // Recordings hear this signal (or the capture device) from now on.
    simulation::setMicrophone(scenario.microphone);
}

/// Makes the step's call on the manager, at the step's moment.
void perform(const ScenarioStep& step, EventLog& log) {
    VTOSoundsManager& manager = VTOSoundsManager::shared();
    const auto soundSettings = [&](const FileURL& url) {
        return PlaySoundSettings(url, SoundsPanType::fromRawValue(static_cast<float>(step.pan)),
                                 SoundsVolumeType::fromRawValue(static_cast<float>(step.volume)),
                                 step.queued, step.loop);
    };
    const auto playWithTag = [&](const PlaySoundSettings& settings) {
        if (step.tag) {
            manager.play(settings, [&log, tag = *step.tag] { log.completion(now(), tag); });
        } else {
            manager.play(settings);
        }
    };
    const std::string tag = step.tag.value_or("");

    switch (step.action) {
    case ScenarioStep::Action::play:
        playWithTag(soundSettings(FileURL::fileURLWithPath(step.file)));
        break;
    case ScenarioStep::Action::playResource:
        playWithTag(PlaySoundSettings::custom(
            step.name, step.ext, step.loop,
            SoundsVolumeType::fromRawValue(static_cast<float>(step.volume)),
            SoundsPanType::fromRawValue(static_cast<float>(step.pan)), step.queued));
        break;
    case ScenarioStep::Action::stop:
        manager.stop(soundSettings(FileURL::fileURLWithPath(step.file)));
        break;
    case ScenarioStep::Action::speak:
        if (step.tag) {
            manager.speak(step.text, [&log, tag](const std::string& text,
                                                 const std::optional<std::error_code>& error) {
                log.speechCompletion(now(), tag, text, error);
            });
        } else {
            manager.speak(step.text);
        }
        break;
    case ScenarioStep::Action::speakBritish:
        manager.speakInBritishEnglish(step.text);
        break;
    case ScenarioStep::Action::shutup:
        manager.shutup();
        break;
    case ScenarioStep::Action::instructions: {
        std::vector<SoundInstruction> instructions;
        instructions.reserve(step.list.size());
        for (const auto& item : step.list) {
            std::optional<FileURL> clip;
            if (item.clip) {
                clip = FileURL::fileURLWithPath(*item.clip);
            }
            instructions.emplace_back(item.text, clip);
        }
        manager.play(instructions);
        break;
    }
    case ScenarioStep::Action::interruption:
        AudioSession::sharedInstance().postInterruption(step.type, step.options);
        break;
    case ScenarioStep::Action::requestPermissions:
        manager.requestPermissions(
            [&log, tag, tagged = step.tag.has_value()](
                const std::optional<bool>& granted, const std::optional<std::error_code>& error) {
                if (tagged) {
                    log.permissionCompletion(now(), tag, granted, error);
                }
            });
        break;
    case ScenarioStep::Action::startRecording:
        manager.startRecording(step.maxDuration, [&log, tag, tagged = step.tag.has_value()](
                                                     const std::optional<FileURL>& url,
                                                     const std::optional<std::error_code>& error) {
            if (tagged) {
                log.recordingCompletion(
                    now(), tag, url ? std::optional<std::string>(url->path()) : std::nullopt,
                    error);
            }
        });
        break;
    case ScenarioStep::Action::stopRecording:
        manager.stopRecording();
        break;
    }
}

/// Standard output carries the library's console lines and nothing else; each is also an event,
/// written after the sound starts that led to it.
class ConsoleCapture {
public:
    ConsoleCapture(EventLog& log, PlaybackEvents* playback) {
        Console::shared().setSink([&log, playback](std::string_view line) {
            std::fwrite(line.data(), 1, line.size(), stdout);
            std::fputc('\n', stdout);
            std::fflush(stdout);
            if (playback != nullptr) {
                playback->consoleLine(line);
            }
            log.console(now(), line);
        });
    }
    ~ConsoleCapture() { Console::shared().setSink({}); }
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;
};

std::atomic<RunLoop*> gInterruptedLoop{nullptr};
volatile std::sig_atomic_t gStopSignal = 0;

extern "C" void stopOnSignal(int signal) {
    gStopSignal = signal;
    if (RunLoop* loop = gInterruptedLoop.load()) {
        loop->stop(); // an atomic store and an eventfd write: safe in a signal handler
    }
}

/// In a real-time run, Ctrl-C (or SIGTERM) ends the scenario early so that what was played is
/// still written out; a second one kills the program as usual.
class StopOnSignal {
public:
    explicit StopOnSignal(RunLoop& loop) {
        gInterruptedLoop.store(&loop);
        struct sigaction action {};
        action.sa_handler = stopOnSignal;
        action.sa_flags = SA_RESETHAND;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGINT, &action, &mOldInt);
        ::sigaction(SIGTERM, &action, &mOldTerm);
    }
    ~StopOnSignal() {
        ::sigaction(SIGINT, &mOldInt, nullptr);
        ::sigaction(SIGTERM, &mOldTerm, nullptr);
        gInterruptedLoop.store(nullptr);
    }
    StopOnSignal(const StopOnSignal&) = delete;
    StopOnSignal& operator=(const StopOnSignal&) = delete;

private:
    struct sigaction mOldInt {};
    struct sigaction mOldTerm {};
};

/// Why a file could not be written, for a line that already starts with its path.
std::string reason(const Failure& failure, const std::string& path) {
    return failure.detail.empty() || failure.detail == path ? failure.code.message()
                                                            : failure.describe();
}

/// Offline, the render is the offline output's own file. In real time the output is the sound
/// device when one opens, else the null output (VANTELO_SOUNDS_OUTPUT may say otherwise), and the
/// render is recorded from what it plays.
Expected<void> selectOutput(const RunOptions& options) {
    if (options.realtime) {
        (void)AudioOutput::selectFromEnvironment(); // a failed device is reported by the platform
        return {};
    }
    return AudioOutput::select(AudioOutput::Kind::offline, options.renderPath.value_or(""));
}

/// Completes the render's file: a real-time recording padded to the scenario's duration (not
/// when a signal cut the run short), or the offline output's file.
bool finishRender(const RunOptions& options, Duration duration) {
    if (!options.renderPath) {
        return true;
    }
    const std::string& path = *options.renderPath;
    if (!options.realtime) {
        const auto finished = AudioOutput::finishRender();
        if (!finished) {
            std::fprintf(stderr, "%s: writing the render failed: %s\n", path.c_str(),
                         reason(finished.failure(), path).c_str());
        }
        return finished.hasValue();
    }
    const auto recorded =
        AudioOutput::stopRecordingMix(gStopSignal != 0 ? Duration::zero() : duration);
    if (!recorded) {
        std::fprintf(stderr, "%s: writing the render failed: %s\n", path.c_str(),
                     reason(recorded.failure(), path).c_str());
        return false;
    }
    if (recorded->droppedFrames > 0) {
        std::fprintf(stderr,
                     "%s: %llu frames of the mix were played but could not be recorded "
                     "(the writer fell behind)\n",
                     path.c_str(), static_cast<unsigned long long>(recorded->droppedFrames));
    }
    return true;
}

} // namespace

int runScenario(const Scenario& scenario, const RunOptions& options) {
    // The events file is opened first so that an unwritable path fails before anything plays.
    std::ofstream eventsFile;
    if (options.eventsPath) {
        eventsFile.open(*options.eventsPath, std::ios::out | std::ios::trunc | std::ios::binary);
        if (!eventsFile) {
            std::fprintf(stderr, "%s: cannot write the events file: %s\n",
                         options.eventsPath->c_str(), std::strerror(errno));
            return kExitFailed;
        }
    }

    RunLoop& loop = options.realtime ? RunLoop::resetMain(std::make_shared<SteadyClock>())
                                     : RunLoop::resetMainManual();
    if (const auto selected = selectOutput(options); !selected) {
        const std::string path = options.renderPath.value_or("render");
        std::fprintf(stderr, "%s: cannot write the render: %s\n", path.c_str(),
                     reason(selected.failure(), path).c_str());
        return kExitFailed;
    }
    // Without --events nothing is logged or kept.
    EventLog log(eventsFile.is_open() ? &eventsFile : nullptr);
    std::optional<PlaybackEvents> playback;
    if (log.enabled()) {
        playback.emplace(log);
    }
    ConsoleCapture console(log, playback ? &*playback : nullptr);
    setUpPlatform(scenario);

    // In real time the render records what the output plays, from time 0 for the scenario's
    // duration: the block playing at time 0 comes first, silence pads a run that ends early.
    const Duration duration = seconds(scenario.duration);
    if (options.realtime && options.renderPath) {
        if (const auto started = AudioOutput::startRecordingMix(*options.renderPath, duration);
            !started) {
            std::fprintf(stderr, "%s: cannot write the render: %s\n", options.renderPath->c_str(),
                         reason(started.failure(), *options.renderPath).c_str());
            return kExitFailed;
        }
    }

    // Scenario time 0 is now: in real time, opening the device has taken a moment already.
    const Duration origin = loop.now();
    log.setOrigin(origin);
    log.output(origin, AudioOutput::name(), AudioOutput::device());
    // The manager is made at time 0, with the voices and the session the scenario set up.
    VTOSoundsManager::shared();

    // Timers with equal deadlines run in the order they were scheduled: file order. The deadlines
    // are absolute, so that the clock moving on while steps are scheduled (in real time) cannot
    // put a later step of the same time first.
    for (const auto& step : scenario.steps) {
        loop.scheduleTimerAt(origin + seconds(step.at), [&step, &log] { perform(step, log); });
    }
    if (options.realtime) {
        StopOnSignal stopOnSignal(loop);
        loop.runUntil(origin + duration);
    } else {
        loop.advanceTo(origin + duration);
    }

    if (!finishRender(options, duration)) {
        return kExitFailed;
    }
    if (eventsFile.is_open() && !eventsFile.flush()) {
        std::fprintf(stderr, "%s: writing the events failed\n", options.eventsPath->c_str());
        return kExitFailed;
    }
    // Interrupted: the outputs hold what was played; the status says it was cut short.
    return gStopSignal != 0 ? 128 + static_cast<int>(gStopSignal) : kExitOk;
}

} // namespace vantelo_sounds::cli
