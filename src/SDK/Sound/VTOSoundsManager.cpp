// The manager's creation, its one shared instance, and the plumbing every operation shares.
#include <vantelo_sounds/VTOSoundRecorder.hpp>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {
namespace {

// The recorder's longest clip when nobody asks for another, in seconds.
constexpr double kDefaultMaxRecordDuration = 2.5;

} // namespace

VTOSoundsManager& VTOSoundsManager::shared() {
    // Created once, on the first call, even when several threads make that call together; never
    // destroyed, as players, timers and the notification registration may refer to it to the end.
    static VTOSoundsManager* const instance = new VTOSoundsManager();
    return *instance;
}

VTOSoundsManager::VTOSoundsManager()
    : voice(SpeechSynthesisVoice::voiceWithLanguage(Bundle::main().localizedString("en-GB")))
    , britishVoice(SpeechSynthesisVoice::voiceWithLanguage("en-GB"))
    , syntesizer(std::make_unique<SpeechSynthesizer>())
    , soundRecorder(std::make_unique<VTOSoundRecorder>(kDefaultMaxRecordDuration))
    , accessQueue("SynchronizedPlayQueueAccess") {
    syntesizer->setDelegate(this);
    setupNotifications();

    // Our sounds mix with other applications' audio, and interrupt spoken audio.
    std::error_code error = AudioSession::sharedInstance().setCategory(
        AudioSessionCategory::playback, AudioSessionMode::defaultMode,
        kInterruptSpokenAudioAndMixWithOthers);
    if (!error) {
        error = AudioSession::sharedInstance().setActive(true, 0);
    }
    if (error) {
        Console::shared().print("SOUND ERROR: " + localizedDescription(error));
    }
}

VTOSoundsManager::~VTOSoundsManager() {
    // Only managers made for tests go away; they must leave nothing that can call them back.
    NotificationCenter::defaultCenter().removeObserver(mInterruptionObserver);
    syntesizer->setDelegate(nullptr);
    for (auto& [channel, entry] : dictChannelAudioplayer) {
        entry.first->setDelegate(nullptr);
        entry.first->stop();
    }
}

void VTOSoundsManager::setupNotifications() {
    mInterruptionObserver = NotificationCenter::defaultCenter().addObserver(
        kAudioSessionInterruptionNotification,
        [this](const Notification& notification) { handleInterruption(notification); });
}

bool VTOSoundsManager::offLoopThread() {
    return !RunLoop::main().isLoopThread();
}

std::optional<std::int64_t> VTOSoundsManager::channelOf(const AudioPlayer& player) const {
    for (const auto& [channel, entry] : dictChannelAudioplayer) {
        if (entry.first.get() == &player) {
            return channel;
        }
    }
    return std::nullopt;
}

} // namespace vantelo_sounds
