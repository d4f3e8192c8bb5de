#include <string>
#include <vantelo_sounds/ErrorCategory.hpp>
#include <vantelo_sounds/SoundsError.hpp>

namespace vantelo_sounds {

namespace {

const char* describe(SoundsError error) noexcept {
    if (error == SoundsError::VoiceEngineIsUnavailableForSelectedLanguage) {
        return "The speech voice is unavailable for the selected language.";
    }
    return nullptr;
}

} // namespace

const std::error_category& soundsErrorCategory() noexcept {
    static const EnumErrorCategory<SoundsError> category("vantelo_sounds.SoundsError", describe);
    return category;
}

std::error_code make_error_code(SoundsError e) noexcept {
    return {static_cast<int>(e), soundsErrorCategory()};
}

} // namespace vantelo_sounds
