#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vantelo_sounds {

/// A voice of the speech synthesizer, found by language.
class SpeechSynthesisVoice {
public:
    /// The voice for a language code such as "en-GB" (case does not matter), or empty when no
    /// installed voice speaks that language. Safe to call from any thread.
    static std::shared_ptr<const SpeechSynthesisVoice> voiceWithLanguage(const std::string& code);

    /// The language code asked for.
    const std::string& language() const noexcept { return mLanguage; }
    /// The synthesizer's identifier of the voice ("gmw/en").
    const std::string& identifier() const noexcept { return mIdentifier; }
    /// The voice's human name ("English (Great Britain)").
    const std::string& name() const noexcept { return mName; }

    SpeechSynthesisVoice(std::string language, std::string identifier, std::string name);

private:
    std::string mLanguage;
    std::string mIdentifier;
    std::string mName;
};

} // namespace vantelo_sounds
