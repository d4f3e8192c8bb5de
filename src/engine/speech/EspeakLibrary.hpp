#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace vantelo_sounds::engine {

/// One voice of the speech synthesizer, as espeak-ng lists it.
struct VoiceInfo {
    std::string name;       ///< "English (Great Britain)"
    std::string identifier; ///< the voice file, "gmw/en"
    std::string language;   ///< the voice's first language, "en-gb"
    int gender = 0;         ///< 0 none, 1 male, 2 female
    int age = 0;            ///< 0 unspecified
};

/// The process's one espeak-ng instance. espeak-ng keeps global state and is not thread-safe,
/// and initialising it a second time can hang, so it is initialised once (on first use, in
/// synchronous mode) and never terminated, and every call into it holds lock().
class EspeakLibrary {
public:
    static EspeakLibrary& instance();

    EspeakLibrary(const EspeakLibrary&) = delete;
    EspeakLibrary& operator=(const EspeakLibrary&) = delete;

    /// False when espeak-ng found no voice data; nothing can then be spoken.
    bool isAvailable() const noexcept { return mSampleRate > 0; }
    /// The rate of the 16-bit mono samples espeak-ng produces (22050 Hz), 0 when unavailable.
    int sampleRate() const noexcept { return mSampleRate; }

    /// Held around every espeak-ng call (the speech worker holds it for a whole synthesis).
    std::unique_lock<std::mutex> lock() { return std::unique_lock(mMutex); }

    /// The voices for a language code, best first ("en-GB" and "en-gb" alike). When none matches
    /// the whole code, the language part alone counts, as espeak-ng does when it selects a voice
    /// ("de-XX" gives German). MBROLA voices are left out: their program is not installed.
    /// Empty for an unknown language or a malformed code. Takes the lock.
    std::vector<VoiceInfo> voicesForLanguage(const std::string& code);

private:
    EspeakLibrary();
    std::vector<VoiceInfo> listLocked(const std::string& language);

    std::mutex mMutex;
    int mSampleRate = 0;
};

} // namespace vantelo_sounds::engine
