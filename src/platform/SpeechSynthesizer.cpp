#include <cmath>
#include <deque>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>
#include <vantelo_sounds/platform/SpeechSynthesizer.hpp>

#include "engine/sound/SoundStream.hpp"
#include "engine/speech/SpeechWorker.hpp"
#include "platform/AudioSystem.hpp"
#include "platform/Interruptible.hpp"

namespace vantelo_sounds {
namespace {

// espeak-ng's own range of speaking rates, in words per minute, and its natural rate, which the
// default utterance rate (the middle of the 0 to 1 scale) gives.
constexpr double kSlowestWordsPerMinute = 80;
constexpr double kNaturalWordsPerMinute = 175;
constexpr double kFastestWordsPerMinute = 450;

int wordsPerMinute(float rate) {
    if (!std::isfinite(rate)) {
        return static_cast<int>(kNaturalWordsPerMinute);
    }
    const double r = std::clamp(static_cast<double>(rate), 0.0, 1.0);
    const double wpm =
        r <= 0.5
            ? kSlowestWordsPerMinute + (kNaturalWordsPerMinute - kSlowestWordsPerMinute) * r / 0.5
            : kNaturalWordsPerMinute +
                  (kFastestWordsPerMinute - kNaturalWordsPerMinute) * (r - 0.5) / 0.5;
    return static_cast<int>(std::lround(wpm));
}

// A text as it appears in a line on standard error: its first few dozen bytes.
std::string shortened(const std::string& text) {
    constexpr std::size_t kShown = 40;
    if (text.size() <= kShown) {
        return text;
    }
    std::size_t cut = kShown;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
        --cut; // not inside a UTF-8 character
    }
    return text.substr(0, cut) + "...";
}

} // namespace

struct SpeechSynthesizer::Impl final : std::enable_shared_from_this<Impl>, Interruptible {
    std::shared_ptr<AudioSystem> system; // of the utterance being spoken
    SpeechSynthesizer* owner = nullptr;
    SpeechSynthesizerDelegate* delegate = nullptr;
    std::shared_ptr<SpeechUtterance> current; // being spoken
    engine::VoiceHandle voice{};              // current's voice, when it got one
    bool sounding = false;                    // current's start was reported to the observer
    std::deque<std::shared_ptr<SpeechUtterance>> waiting;

    Duration now() const { return system->now(); }
    void start(std::shared_ptr<SpeechUtterance> utterance);
    void ended(const engine::VoiceEnded& event, Duration at);
    void startNext();

    // Speech that an interruption cuts off is not taken up again: the utterance in progress and
    // those waiting are cancelled, as a stop would.
    void interruptionBegan() override {
        if (owner != nullptr) {
            owner->stopSpeakingAtBoundary(SpeechBoundary::immediate);
        }
    }
};

void SpeechSynthesizer::Impl::start(std::shared_ptr<SpeechUtterance> utterance) {
    // Each utterance speaks on the audio system that plays now, as a new player would, even when
    // the game chose another output after the synthesizer was made.
    system = AudioSystem::sharedPointer();
    current = std::move(utterance);
    sounding = false;
    std::shared_ptr<const SpeechSynthesisVoice> speaker = current->voice();
    if (!speaker) {
        speaker = SpeechSynthesisVoice::voiceWithLanguage("en");
    }
    std::shared_ptr<engine::SoundStream> stream;
    if (speaker) {
        stream =
            system->engine().speech().speak({current->speechString(), speaker->identifier(),
                                             speaker->language(), wordsPerMinute(current->rate())});
    }
    auto onEnd = [weakSelf = weak_from_this()](const engine::VoiceEnded& event, Duration at) {
        if (const std::shared_ptr<Impl> self = weakSelf.lock()) {
            self->ended(event, at);
        }
    };
    const auto started =
        stream ? system->startVoice(std::move(stream), {0.0f, 1.0f, 0}, std::move(onEnd), nullptr)
               : std::nullopt;
    if (!started) {
        // No voice to speak in, or not even a spare mixer voice: the utterance ends at once, as a
        // failed one, on the next pass, so that its delegate still hears of it.
        voice = {};
        system->runLoop().post([weakSelf = weak_from_this(), utterance = current] {
            const std::shared_ptr<Impl> self = weakSelf.lock();
            if (self && self->current == utterance) {
                engine::VoiceEnded event;
                event.reason = engine::VoiceEnded::Reason::failed;
                self->ended(event, self->now());
            }
        });
        return;
    }
    voice = *started;
    sounding = true;
    if (PlaybackObserver* observer = playbackObserver()) {
        observer->utteranceStarted(*current, now());
    }
}

void SpeechSynthesizer::Impl::ended(const engine::VoiceEnded& event, Duration at) {
    // A stopped utterance was cancelled by the stop itself; an older voice's end is stale.
    if (!current || event.voice != voice || event.reason == engine::VoiceEnded::Reason::stopped) {
        return;
    }
    const std::shared_ptr<SpeechUtterance> utterance = std::move(current);
    const bool stolen = event.reason == engine::VoiceEnded::Reason::stolen;
    if (event.reason == engine::VoiceEnded::Reason::failed) {
        AudioSystem::warn("could not speak \"" + shortened(utterance->speechString()) + "\"" +
                          (utterance->voice() ? " in " + utterance->voice()->name() : "") +
                          ": espeak-ng made no speech of it; the utterance ends here");
    }
    if (PlaybackObserver* observer = playbackObserver(); observer && sounding) {
        observer->utteranceEnded(*utterance,
                                 stolen ? PlaybackObserver::EndReason::stopped
                                        : PlaybackObserver::EndReason::finished,
                                 at);
    }
    // The next utterance starts on the frame after this one's last, before the delegate hears
    // of this end: what the delegate speaks then queues behind the utterances given before it.
    startNext();
    if (delegate != nullptr && owner != nullptr) {
        if (stolen) {
            delegate->speechSynthesizerDidCancel(*owner, utterance);
        } else {
            delegate->speechSynthesizerDidFinish(*owner, utterance);
        }
    }
}

void SpeechSynthesizer::Impl::startNext() {
    if (!waiting.empty()) {
        std::shared_ptr<SpeechUtterance> next = std::move(waiting.front());
        waiting.pop_front();
        start(std::move(next));
    }
}

SpeechSynthesizer::SpeechSynthesizer()
    : mImpl(std::make_shared<Impl>()) {
    mImpl->owner = this;
}

SpeechSynthesizer::~SpeechSynthesizer() {
    mImpl->owner = nullptr;
    mImpl->waiting.clear();
    if (mImpl->current) {
        mImpl->system->stopVoice(mImpl->voice);
        mImpl->current.reset();
    }
}

void SpeechSynthesizer::setDelegate(SpeechSynthesizerDelegate* delegate) noexcept {
    mImpl->delegate = delegate;
}

SpeechSynthesizerDelegate* SpeechSynthesizer::delegate() const noexcept {
    return mImpl->delegate;
}

void SpeechSynthesizer::speakUtterance(std::shared_ptr<SpeechUtterance> utterance) {
    if (!utterance) {
        return;
    }
    if (mImpl->current) {
        mImpl->waiting.push_back(std::move(utterance));
    } else {
        mImpl->start(std::move(utterance));
    }
}

bool SpeechSynthesizer::stopSpeakingAtBoundary(SpeechBoundary) {
    Impl& impl = *mImpl;
    if (!impl.current) {
        return false;
    }
    std::deque<std::shared_ptr<SpeechUtterance>> cancelled = std::move(impl.waiting);
    impl.waiting.clear();
    cancelled.push_front(std::move(impl.current));
    impl.system->stopVoice(impl.voice);
    if (PlaybackObserver* observer = playbackObserver(); observer && impl.sounding) {
        observer->utteranceEnded(*cancelled.front(), PlaybackObserver::EndReason::stopped,
                                 impl.now());
    }
    // Told on the next pass, not inside this call: whoever stops speech finishes what it does
    // first (a speech queue empties itself) before the cancels reach it.
    impl.system->runLoop().post(
        [weakSelf = impl.weak_from_this(), cancelled = std::move(cancelled)] {
            for (const std::shared_ptr<SpeechUtterance>& utterance : cancelled) {
                const std::shared_ptr<Impl> self = weakSelf.lock();
                if (!self || self->owner == nullptr || self->delegate == nullptr) {
                    return;
                }
                self->delegate->speechSynthesizerDidCancel(*self->owner, utterance);
            }
        });
    return true;
}

bool SpeechSynthesizer::isSpeaking() const noexcept {
    return mImpl->current != nullptr;
}

} // namespace vantelo_sounds
