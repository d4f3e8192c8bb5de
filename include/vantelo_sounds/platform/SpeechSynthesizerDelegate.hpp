#pragma once

#include <memory>

namespace vantelo_sounds {

class SpeechSynthesizer;
class SpeechUtterance;

/// Receives the end of each utterance. Called on the run loop's thread.
class SpeechSynthesizerDelegate {
public:
    virtual ~SpeechSynthesizerDelegate() = default;
    /// The utterance was spoken to its end.
    virtual void speechSynthesizerDidFinish(SpeechSynthesizer& synthesizer,
                                            const std::shared_ptr<SpeechUtterance>& utterance) = 0;
    /// The utterance was stopped before its end (stopSpeaking), or could not be spoken.
    virtual void speechSynthesizerDidCancel(SpeechSynthesizer& synthesizer,
                                            const std::shared_ptr<SpeechUtterance>& utterance) = 0;
};

} // namespace vantelo_sounds
