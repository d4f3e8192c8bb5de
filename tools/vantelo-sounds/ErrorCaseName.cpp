#include "ErrorCaseName.hpp"

#include <array>
#include <string_view>

namespace vantelo_sounds::cli {

namespace {

struct Category {
    std::string_view name;
    std::array<std::string_view, 5> cases;
    int count;
};

// Case names by category and value, in the order of the library's enumerations.
constexpr std::array<Category, 2> kCategories{{
    {"vantelo_sounds.SoundsError", {"VoiceEngineIsUnavailableForSelectedLanguage"}, 1},
    {"vantelo_sounds.SoundRecorderError",
     {"failedToGetAudioSession", "failedToGetAudioRecorder", "permissionDenied",
      "permissionUndetermined", "recordindFailed"},
     5},
}};

} // namespace

std::string errorCaseName(const std::error_code& error) {
    const std::string_view category = error.category().name();
    for (const auto& known : kCategories) {
        if (known.name == category && error.value() >= 0 && error.value() < known.count) {
            return std::string(known.cases[static_cast<std::size_t>(error.value())]);
        }
    }
    return std::string(category) + ":" + std::to_string(error.value());
}

} // namespace vantelo_sounds::cli
