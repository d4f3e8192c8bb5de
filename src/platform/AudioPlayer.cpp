#include <optional>
#include <string>
#include <vantelo_sounds/platform/AudioPlayer.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>

#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"
#include "platform/AudioSystem.hpp"

namespace vantelo_sounds {

namespace {

class AudioPlayerErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "vantelo_sounds.AudioPlayerError"; }
    std::string message(int value) const override {
        switch (static_cast<AudioPlayerError>(value)) {
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
        return "Unknown audio player error " + std::to_string(value) + ".";
    }
};

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
    static const AudioPlayerErrorCategory category;
    return category;
}

std::error_code make_error_code(AudioPlayerError e) noexcept {
    return {static_cast<int>(e), audioPlayerErrorCategory()};
}

struct AudioPlayer::Impl {
    std::shared_ptr<AudioSystem> system;
    std::shared_ptr<const engine::SoundData> data;
    std::optional<engine::VoiceHandle> voice; // the voice of the current play, until its end
    bool paused = false;
    bool loopsForever = false;

    Duration now() const {
        return system->runLoop().isManual() ? AudioSystem::timeOfFrame(system->currentFrame())
                                            : system->runLoop().now();
    }
    engine::VoiceParams params(float pan, float volume, long loops) const noexcept {
        return {pan, volume, static_cast<std::int64_t>(loops)};
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
    impl->data = std::move(loaded).value();
    return std::shared_ptr<AudioPlayer>(new AudioPlayer(url, std::move(impl)));
}

AudioPlayer::AudioPlayer(FileURL url, std::unique_ptr<Impl> impl)
    : mUrl(std::move(url))
    , mImpl(std::move(impl)) {}

AudioPlayer::~AudioPlayer() {
    // A player that goes away takes its sound with it (a looping sound would otherwise play on
    // with nobody left to stop it). A one-shot is kept alive by the audio system until its end
    // has been delivered, so this only happens to sounds that loop forever or are paused.
    if (mImpl->voice) {
        const bool sounding = mImpl->paused || mImpl->system->isVoiceActive(*mImpl->voice);
        mImpl->system->stopVoice(*mImpl->voice);
        if (sounding) {
            if (PlaybackObserver* observer = playbackObserver()) {
                observer->playerEnded(*this, PlaybackObserver::EndReason::stopped, mImpl->now());
            }
        }
    }
}

void AudioPlayer::setPan(float pan) {
    mPan = pan;
    if (mImpl->voice) {
        mImpl->system->setVoiceParams(*mImpl->voice, mImpl->params(mPan, mVolume, mNumberOfLoops));
    }
}

void AudioPlayer::setVolume(float volume) {
    mVolume = volume;
    if (mImpl->voice) {
        mImpl->system->setVoiceParams(*mImpl->voice, mImpl->params(mPan, mVolume, mNumberOfLoops));
    }
}

void AudioPlayer::setNumberOfLoops(long loops) {
    // Takes effect at the next play from the start, as the voice's passes are counted at start.
    mNumberOfLoops = loops;
}

bool AudioPlayer::play() {
    Impl& impl = *mImpl;
    AudioSystem& system = *impl.system;
    if (impl.voice) {
        if (impl.paused) {
            system.resumeVoice(*impl.voice);
            impl.paused = false;
            if (!impl.loopsForever) {
                system.setKeepAlive(*impl.voice, shared_from_this());
            }
            if (PlaybackObserver* observer = playbackObserver()) {
                observer->playerStarted(*this, impl.now());
            }
            return true;
        }
        if (system.isVoiceActive(*impl.voice)) {
            return true;
        }
        // The last play ended and its end is not delivered yet: it never will be, as this play
        // replaces it.
        impl.voice.reset();
    }

    impl.loopsForever = mNumberOfLoops < 0;
    std::weak_ptr<AudioPlayer> weakSelf = weak_from_this();
    auto onEnd = [weakSelf](const engine::VoiceEnded& event, Duration at) {
        const std::shared_ptr<AudioPlayer> self = weakSelf.lock();
        if (!self || !self->mImpl->voice || *self->mImpl->voice != event.voice) {
            return; // stopped, replaced by a later play, or gone
        }
        self->mImpl->voice.reset();
        self->mImpl->paused = false;
        if (event.reason == engine::VoiceEnded::Reason::stopped) {
            return;
        }
        if (PlaybackObserver* observer = playbackObserver()) {
            observer->playerEnded(*self, PlaybackObserver::EndReason::finished, at);
        }
        if (AudioPlayerDelegate* delegate = self->mDelegate) {
            delegate->audioPlayerDidFinishPlaying(self, event.reason ==
                                                            engine::VoiceEnded::Reason::finished);
        }
    };
    // A sound that ends by itself keeps its player alive until the end has been delivered, even
    // if its owner lets go of it first; a sound that loops forever does not.
    std::shared_ptr<const void> keepAlive;
    if (!impl.loopsForever) {
        keepAlive = shared_from_this();
    }
    const auto voice = system.startVoice(impl.data, impl.params(mPan, mVolume, mNumberOfLoops),
                                         std::move(onEnd), std::move(keepAlive));
    if (!voice) {
        return false;
    }
    impl.voice = voice;
    impl.paused = false;
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->playerStarted(*this, impl.now());
    }
    return true;
}

void AudioPlayer::pause() {
    Impl& impl = *mImpl;
    if (!impl.voice || impl.paused || !impl.system->isVoiceActive(*impl.voice)) {
        return;
    }
    impl.system->pauseVoice(*impl.voice);
    impl.paused = true;
    // A paused player that nobody holds any more is stopped rather than kept forever.
    impl.system->setKeepAlive(*impl.voice, nullptr);
}

void AudioPlayer::stop() {
    Impl& impl = *mImpl;
    if (!impl.voice) {
        return;
    }
    const engine::VoiceHandle voice = *impl.voice;
    impl.voice.reset();
    impl.paused = false;
    impl.system->stopVoice(voice);
    // Released last: dropping the keep-alive may be the last reference to this very player.
    std::shared_ptr<AudioPlayer> self = shared_from_this();
    impl.system->setKeepAlive(voice, nullptr);
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->playerEnded(*this, PlaybackObserver::EndReason::stopped, impl.now());
    }
}

bool AudioPlayer::isPlaying() const noexcept {
    return mImpl->voice && !mImpl->paused && mImpl->system->isVoiceActive(*mImpl->voice);
}

double AudioPlayer::duration() const noexcept {
    return static_cast<double>(mImpl->data->frames()) / engine::kMixRate;
}

} // namespace vantelo_sounds
