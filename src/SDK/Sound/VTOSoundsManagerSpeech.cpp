// Speech: texts spoken one after another through the synthesizer.
#include <vantelo_sounds/VTOSoundsManager.hpp>

namespace vantelo_sounds {

// The speech queue comes with the speech synthesizer's own work; until then these accept the
// request and do nothing, calling no completion.
void VTOSoundsManager::speak(const std::string& text) {
    speak(text, [](const std::string&, const std::optional<std::error_code>&) {});
}

void VTOSoundsManager::speak(const std::string&, SpeechCompletion) {}

void VTOSoundsManager::speakInBritishEnglish(const std::string&) {}

void VTOSoundsManager::shutup() {}

void VTOSoundsManager::speechSynthesizerDidFinish(SpeechSynthesizer&,
                                                  const std::shared_ptr<SpeechUtterance>&) {}

void VTOSoundsManager::speechSynthesizerDidCancel(SpeechSynthesizer&,
                                                  const std::shared_ptr<SpeechUtterance>&) {}

} // namespace vantelo_sounds
