#pragma once

#include <memory>
#include <vantelo_sounds/platform/SpeechSynthesizerDelegate.hpp>
#include <vantelo_sounds/platform/SpeechUtterance.hpp>

namespace vantelo_sounds {

/// Where speech stops when asked to. Speech stops at once, with the few-millisecond fade every
/// stopped sound gets; there is no later boundary to wait for.
enum class SpeechBoundary { immediate };

/// Speaks utterances one at a time, each as a voice of the same mixer as the sounds: speech is
/// mixed with the effects, at the utterance's voice and rate. Used on the run loop's thread.
///
/// - speakUtterance() speaks at once when nothing is being spoken, else queues the utterance
///   behind the ones already given; the next starts on the frame after the one before ends.
/// - Synthesis streams: the first words sound before the text has been synthesized to its end.
/// - The delegate hears exactly one finish or cancel per utterance, on the run loop, with that
///   utterance. A finish comes when the voice has played its last frame (an empty text finishes
///   at once); an utterance that espeak-ng cannot speak finishes too, after what it made of it
///   has played, and the reason is said once on standard error.
/// - stopSpeakingAtBoundary() silences the utterance being spoken within one mixer block and drops
///   the queued ones; each of them is cancelled, in order, on the next pass of the run loop.
/// - A synthesizer that goes away stops its speech and tells its delegate nothing more.
class SpeechSynthesizer {
public:
    SpeechSynthesizer();
    ~SpeechSynthesizer();
    SpeechSynthesizer(const SpeechSynthesizer&) = delete;
    SpeechSynthesizer& operator=(const SpeechSynthesizer&) = delete;

    /// Not owned; the delegate must outlive the synthesizer or clear itself.
    void setDelegate(SpeechSynthesizerDelegate* delegate) noexcept;
    SpeechSynthesizerDelegate* delegate() const noexcept;

    /// Speaks `utterance` now, or after the utterances before it. An utterance without a voice
    /// speaks in English.
    void speakUtterance(std::shared_ptr<SpeechUtterance> utterance);
    /// Stops the utterance being spoken and drops the queued ones. False when there was none.
    bool stopSpeakingAtBoundary(SpeechBoundary boundary);
    /// True while an utterance is being spoken or waits to be.
    bool isSpeaking() const noexcept;

    struct Impl;

private:
    std::shared_ptr<Impl> mImpl; // shared with the end handlers of its voices, which hold it weakly
};

} // namespace vantelo_sounds
