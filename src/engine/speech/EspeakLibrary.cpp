#include "engine/speech/EspeakLibrary.hpp"

#include <cctype>

#include <espeak-ng/speak_lib.h>

namespace vantelo_sounds::engine {

namespace {

// Letters, digits and hyphens, as language codes are written; anything else is refused before
// espeak-ng sees it.
bool isLanguageCode(const std::string& code) {
    if (code.empty() || code.size() > 35 || code.front() == '-') {
        return false;
    }
    for (char c : code) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-') {
            return false;
        }
    }
    return true;
}

std::string lowercase(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

} // namespace

EspeakLibrary& EspeakLibrary::instance() {
    // Never destroyed: terminating espeak-ng and starting it again can hang.
    static EspeakLibrary* library = new EspeakLibrary();
    return *library;
}

EspeakLibrary::EspeakLibrary() {
    std::lock_guard guard(mMutex);
    // DONT_EXIT: missing voice data must give an error here, not end the process.
    const int rate =
        espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 0, nullptr, espeakINITIALIZE_DONT_EXIT);
    mSampleRate = rate > 0 ? rate : 0;
}

std::vector<VoiceInfo> EspeakLibrary::voicesForLanguage(const std::string& code) {
    if (!isLanguageCode(code)) {
        return {};
    }
    const std::string language = lowercase(code);
    std::lock_guard guard(mMutex);
    if (!isAvailable()) {
        return {};
    }
    std::vector<VoiceInfo> voices = listLocked(language);
    if (voices.empty()) {
        if (const auto dash = language.find('-'); dash != std::string::npos) {
            voices = listLocked(language.substr(0, dash));
        }
    }
    return voices;
}

std::vector<VoiceInfo> EspeakLibrary::listLocked(const std::string& language) {
    espeak_VOICE spec{};
    spec.languages = language.c_str();
    const espeak_VOICE** list = espeak_ListVoices(&spec);
    std::vector<VoiceInfo> voices;
    for (; list != nullptr && *list != nullptr; ++list) {
        const espeak_VOICE& voice = **list;
        const std::string identifier = voice.identifier ? voice.identifier : "";
        if (identifier.rfind("mb/", 0) == 0) {
            continue;
        }
        VoiceInfo info;
        info.name = voice.name ? voice.name : "";
        info.identifier = identifier;
        // The language list is (priority byte, text, NUL) pairs; the first text is the main one.
        if (voice.languages != nullptr && voice.languages[0] != '\0') {
            info.language = voice.languages + 1;
        }
        info.gender = voice.gender;
        info.age = voice.age;
        voices.push_back(std::move(info));
    }
    return voices;
}

} // namespace vantelo_sounds::engine
