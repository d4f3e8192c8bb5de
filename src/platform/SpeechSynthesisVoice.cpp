#include <algorithm>
#include <cctype>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>

#include "engine/speech/EspeakLibrary.hpp"
#include "platform/SimulationState.hpp"

namespace vantelo_sounds {

namespace {

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
    bool listedBySimulation = false;
    if (const auto pretended = simulation::simulatedLanguages()) {
        listedBySimulation = std::any_of(pretended->begin(), pretended->end(),
                                         [&](const std::string& c) { return sameCode(c, code); });
        if (!listedBySimulation) {
            return nullptr;
        }
    }
    const auto voices = engine::EspeakLibrary::instance().voicesForLanguage(code);
    if (!voices.empty()) {
        return std::make_shared<const SpeechSynthesisVoice>(code, voices.front().identifier,
                                                            voices.front().name);
    }
    if (listedBySimulation) {
        // A pretended language that espeak-ng lacks: a voice by name only.
        return std::make_shared<const SpeechSynthesisVoice>(code, code, code);
    }
    return nullptr;
}

} // namespace vantelo_sounds
