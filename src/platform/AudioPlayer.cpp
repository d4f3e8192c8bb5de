#include <optional>
#include <string>
#include <vantelo_sounds/ErrorCategory.hpp>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"
#include "platform/AudioSystem.hpp"
#include "platform/Interruptible.hpp"

namespace vantelo_sounds {

namespace {

const char* describe(AudioPlayerError error) noexcept {
    switch (error) {
    case AudioPlayerError::fileNotFound:
        return "The file does not exist.";
    case AudioPlayerError::notARegularFile:
        return "The path is not a regular file (a directory, FIFO, device or socket).";
    case AudioPlayerError::notReadable:
        return "The file cannot be read.";
    case AudioPlayerError::notAudio:
        return "The file holds no audio (it is empty or not a media file).";
    case AudioPlayerError::unsupportedFormat:
        return "The file's format or codec is not supported.";
    case AudioPlayerError::protectedContent:
        return "The file's audio is copy-protected.";
    case AudioPlayerError::corrupt:
        return "The file is damaged and cannot be decoded.";
    case AudioPlayerError::tooLarge:
        return "The decoded sound would not fit in the sound cache.";
    case AudioPlayerError::notAFileURL:
        return "The URL is not an absolute local file path.";
    }
    return nullptr;
}

// The engine's reasons, numbered alike, under the player's own category.
AudioPlayerError toPlayerError(const std::error_code& error) noexcept {
    using engine::OpenError;
    if (error.category() != engine::openErrorCategory()) {
        return AudioPlayerError::corrupt;
    }
    switch (static_cast<OpenError>(error.value())) {
    case OpenError::fileNotFound:
        return AudioPlayerError::fileNotFound;
    case OpenError::notARegularFile:
        return AudioPlayerError::notARegularFile;
    case OpenError::notReadable:
        return AudioPlayerError::notReadable;
    case OpenError::notAudio:
        return AudioPlayerError::notAudio;
    case OpenError::unsupportedFormat:
        return AudioPlayerError::unsupportedFormat;
    case OpenError::protectedContent:
        return AudioPlayerError::protectedContent;
    case OpenError::corrupt:
        return AudioPlayerError::corrupt;
    case OpenError::tooLarge:
        return AudioPlayerError::tooLarge;
    }
    return AudioPlayerError::corrupt;
}

} // namespace

const std::error_category& audioPlayerErrorCategory() noexcept {
    static const EnumErrorCategory<AudioPlayerError> category("vantelo_sounds.AudioPlayerError",
                                                              describe);
    return category;
}

std::error_code make_error_code(AudioPlayerError e) noexcept {
    return {static_cast<int>(e), audioPlayerErrorCategory()};
}

// A player's life is one state. Everything else follows from it: what isPlaying() says, whether
// the audio system keeps the player alive, what a play(), pause() or stop() does.
//
// - idle: no sound (never played, stopped, or its end has been delivered).
// - playing: its voice was started and not paused. It stays playing until its own end has been
//   delivered on the run loop, even when the mixer has already rendered its last frame: players
//   that end on the same frame are then told one at a time, and each still counts as playing
//   while the others' ends are handled.
// - paused: its voice holds its position, silent.
enum class PlayerState { idle, playing, paused };

struct AudioPlayer::Impl final : Interruptible {
    AudioPlayer* owner = nullptr; // set once the player exists
    std::shared_ptr<AudioSystem> system;
    engine::LoadedSound sound;
    PlayerState state = PlayerState::idle;
    engine::VoiceHandle voice{}; // the current play's voice, while not idle
    bool loopsForever = false;   // of the current play

    Duration now() const { return system->now(); }
    static engine::VoiceParams params(float pan, float volume, long loops) noexcept {
        return {pan, volume, static_cast<std::int64_t>(loops)};
    }
    void enterState(AudioPlayer& player, PlayerState next);
    void voiceEnded(AudioPlayer& player, const engine::VoiceEnded& event, Duration at);

    // A player that sounds when an interruption begins is paused where it is, silently: its
    // owner hears nothing, and only a play() brings it back.
    void interruptionBegan() override {
        if (owner != nullptr) {
            owner->pause();
        }
    }
};

Expected<std::shared_ptr<AudioPlayer>> AudioPlayer::create(const FileURL& url) {
    if (url.path().empty() || url.path().front() != '/') {
        return make_error_code(AudioPlayerError::notAFileURL);
    }
    auto impl = std::make_unique<Impl>();
    impl->system = AudioSystem::sharedPointer();
    auto loaded = impl->system->engine().load(url.path());
    if (!loaded) {
        // FFmpeg's words stay in the detail; the manager prints the code's message.
        return Failure{make_error_code(toPlayerError(loaded.error())), loaded.failure().detail};
    }
    impl->sound = std::move(loaded).value();
    return std::shared_ptr<AudioPlayer>(new AudioPlayer(url, std::move(impl)));
}

AudioPlayer::AudioPlayer(FileURL url, std::unique_ptr<Impl> impl)
    : mUrl(std::move(url))
    , mImpl(std::move(impl)) {
    mImpl->owner = this;
}

AudioPlayer::~AudioPlayer() {
    // A player that goes away takes its sound with it (a looping sound would otherwise play on
    // with nobody left to stop it). A one-shot that plays is kept alive by the audio system until
    // its end has been delivered, so only looping and paused players get here with a sound.
    if (mImpl->state != PlayerState::idle) {
        mImpl->system->stopVoice(mImpl->voice);
        if (PlaybackObserver* observer = playbackObserver()) {
            observer->playerEnded(*this, PlaybackObserver::EndReason::stopped, mImpl->now());
        }
    }
}

void AudioPlayer::Impl::enterState(AudioPlayer& player, PlayerState next) {
    state = next;
    // A one-shot that plays must live until its end is delivered, even if its owner lets go of it
    // first; a sound that loops forever, or waits paused, must not outlive the last owner.
    if (next != PlayerState::idle) {
        const bool keep = next == PlayerState::playing && !loopsForever;
        system->setKeepAlive(voice, keep ? player.shared_from_this() : nullptr);
    }
}

void AudioPlayer::setPan(float pan) {
    mPan = pan;
    if (mImpl->state != PlayerState::idle) {
        mImpl->system->setVoiceParams(mImpl->voice, Impl::params(mPan, mVolume, mNumberOfLoops));
    }
}

void AudioPlayer::setVolume(float volume) {
    mVolume = volume;
    if (mImpl->state != PlayerState::idle) {
        mImpl->system->setVoiceParams(mImpl->voice, Impl::params(mPan, mVolume, mNumberOfLoops));
    }
}

void AudioPlayer::setNumberOfLoops(long loops) {
    // Takes effect at the next play from the start, as the voice's passes are counted at start.
    mNumberOfLoops = loops;
}

bool AudioPlayer::play() {
    Impl& impl = *mImpl;
    switch (impl.state) {
    case PlayerState::playing:
        return true;
    case PlayerState::paused:
        impl.system->resumeVoice(impl.voice);
        impl.enterState(*this, PlayerState::playing);
        if (PlaybackObserver* observer = playbackObserver()) {
            observer->playerResumed(*this, impl.now());
        }
        return true;
    case PlayerState::idle:
        break;
    }

    std::weak_ptr<AudioPlayer> weakSelf = weak_from_this();
    auto onEnd = [weakSelf](const engine::VoiceEnded& event, Duration at) {
        if (const std::shared_ptr<AudioPlayer> self = weakSelf.lock()) {
            self->mImpl->voiceEnded(*self, event, at);
        }
    };
    // A kept sound is shared by every play; a long one streams, each play reading it anew.
    auto source = impl.system->engine().cache().sourceFor(impl.sound, mNumberOfLoops);
    if (!source) {
        impl.system->warnOnce(AudioSystem::Warning::soundMemoryFull, source.failure().detail);
    }
    const auto voice = source ? impl.system->startVoice(std::move(source).value(),
                                                        Impl::params(mPan, mVolume, mNumberOfLoops),
                                                        std::move(onEnd), nullptr)
                              : std::nullopt;
    if (!voice) {
        // Not even a spare voice, or no memory for a stream: the sound ends at once, and its end
        // is delivered like any other, so whoever waits for it is not left waiting for good.
        impl.voice = {};
        impl.state = PlayerState::playing;
        impl.system->runLoop().post([self = shared_from_this()] {
            engine::VoiceEnded ended;
            ended.reason = engine::VoiceEnded::Reason::failed;
            self->mImpl->voiceEnded(*self, ended, self->mImpl->now());
        });
        return false;
    }
    impl.voice = *voice;
    impl.loopsForever = mNumberOfLoops < 0;
    impl.enterState(*this, PlayerState::playing);
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->playerStarted(*this, impl.now());
    }
    return true;
}

void AudioPlayer::Impl::voiceEnded(AudioPlayer& player, const engine::VoiceEnded& event,
                                   Duration at) {
    // A stopped play was finished by stop() already; an end of an older play is stale.
    if (state == PlayerState::idle || voice != event.voice ||
        event.reason == engine::VoiceEnded::Reason::stopped) {
        return;
    }
    // Not playing any more from here on, and only then is the delegate told.
    state = PlayerState::idle;
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->playerEnded(player,
                              event.reason == engine::VoiceEnded::Reason::stolen
                                  ? PlaybackObserver::EndReason::stolen
                                  : PlaybackObserver::EndReason::finished,
                              at);
    }
    if (AudioPlayerDelegate* delegate = player.mDelegate) {
        delegate->audioPlayerDidFinishPlaying(player.shared_from_this(),
                                              event.reason == engine::VoiceEnded::Reason::finished);
    }
}

void AudioPlayer::pause() {
    Impl& impl = *mImpl;
    if (impl.state != PlayerState::playing) {
        return;
    }
    impl.system->pauseVoice(impl.voice);
    impl.enterState(*this, PlayerState::paused);
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->playerPaused(*this, impl.now());
    }
}

void AudioPlayer::stop() {
    Impl& impl = *mImpl;
    if (impl.state == PlayerState::idle) {
        return;
    }
    // Held until the end of this call: dropping the keep-alive may release the last reference.
    const std::shared_ptr<AudioPlayer> self = shared_from_this();
    impl.system->stopVoice(impl.voice);
    impl.system->setKeepAlive(impl.voice, nullptr);
    impl.state = PlayerState::idle;
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->playerEnded(*this, PlaybackObserver::EndReason::stopped, impl.now());
    }
}

bool AudioPlayer::isPlaying() const noexcept {
    return mImpl->state == PlayerState::playing;
}

double AudioPlayer::duration() const noexcept {
    const engine::LoadedSound& sound = mImpl->sound;
    if (sound.isStreamed() || (!sound.resident->isComplete() && sound.seconds > 0)) {
        return sound.seconds; // what the file states, known without decoding it
    }
    return static_cast<double>(sound.resident->frames()) / engine::kMixRate;
}

} // namespace vantelo_sounds
