#include <string>
#include <vantelo_sounds/SoundsError.hpp>

namespace vantelo_sounds {

namespace {

class SoundsErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "vantelo_sounds.SoundsError"; }
    std::string message(int value) const override {
        if (value == static_cast<int>(SoundsError::VoiceEngineIsUnavailableForSelectedLanguage)) {
            return "The speech voice is unavailable for the selected language.";
        }
        return "Unknown sounds error " + std::to_string(value) + ".";
    }
};

} // namespace

const std::error_category& soundsErrorCategory() noexcept {
    static const SoundsErrorCategory category;
    return category;
}

std::error_code make_error_code(SoundsError e) noexcept {
    return {static_cast<int>(e), soundsErrorCategory()};
}

} // namespace vantelo_sounds
