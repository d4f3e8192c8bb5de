#pragma once

#include <memory>
#include <vantelo_sounds/platform/SpeechSynthesizerDelegate.hpp>
#include <vantelo_sounds/platform/SpeechUtterance.hpp>

namespace vantelo_sounds {

/// Where speech stops when asked to.
enum class SpeechBoundary { immediate, word };

/// Speaks utterances one at a time through the mixer, in their voice. Used on the run loop's
/// thread; the delegate hears of every utterance's end.
class SpeechSynthesizer {
public:
    SpeechSynthesizer() = default;
    SpeechSynthesizer(const SpeechSynthesizer&) = delete;
    SpeechSynthesizer& operator=(const SpeechSynthesizer&) = delete;

    /// Not owned; the delegate must outlive the synthesizer or clear itself.
    void setDelegate(SpeechSynthesizerDelegate* delegate) noexcept { mDelegate = delegate; }
    SpeechSynthesizerDelegate* delegate() const noexcept { return mDelegate; }

private:
    SpeechSynthesizerDelegate* mDelegate = nullptr;
};

} // namespace vantelo_sounds
