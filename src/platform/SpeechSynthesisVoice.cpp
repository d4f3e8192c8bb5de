#include <algorithm>
#include <cctype>
#include <mutex>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>

#include "engine/speech/EspeakLibrary.hpp"

namespace vantelo_sounds {

namespace {

std::mutex gOverrideMutex;
std::optional<std::vector<std::string>> gAvailableOverride;

bool sameCode(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

} // namespace

SpeechSynthesisVoice::SpeechSynthesisVoice(std::string language, std::string identifier,
                                           std::string name)
    : mLanguage(std::move(language))
    , mIdentifier(std::move(identifier))
    , mName(std::move(name)) {}

std::shared_ptr<const SpeechSynthesisVoice>
SpeechSynthesisVoice::voiceWithLanguage(const std::string& code) {
    bool listedForTesting = false;
    {
        std::lock_guard lock(gOverrideMutex);
        if (gAvailableOverride) {
            const auto& codes = *gAvailableOverride;
            listedForTesting = std::any_of(codes.begin(), codes.end(),
                                           [&](const std::string& c) { return sameCode(c, code); });
            if (!listedForTesting) {
                return nullptr;
            }
        }
    }
    const auto voices = engine::EspeakLibrary::instance().voicesForLanguage(code);
    if (!voices.empty()) {
        return std::make_shared<const SpeechSynthesisVoice>(code, voices.front().identifier,
                                                            voices.front().name);
    }
    if (listedForTesting) {
        // A test's language that espeak-ng lacks: a voice by name only.
        return std::make_shared<const SpeechSynthesisVoice>(code, code, code);
    }
    return nullptr;
}

void SpeechSynthesisVoice::setAvailableLanguagesForTesting(
    std::optional<std::vector<std::string>> codes) {
    std::lock_guard lock(gOverrideMutex);
    gAvailableOverride = std::move(codes);
}

} // namespace vantelo_sounds
