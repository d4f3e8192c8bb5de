#pragma once

#include <cstddef>
#include <functional>
#include <system_error>

namespace vantelo_sounds {

/// The speech error. Under the category "vantelo_sounds.SoundsError"; the value is the case
/// index, so VoiceEngineIsUnavailableForSelectedLanguage is 0: carry it in a
/// std::optional<std::error_code>, since a zero std::error_code reads as "no error".
enum class SoundsError { VoiceEngineIsUnavailableForSelectedLanguage = 0 };

const std::error_category& soundsErrorCategory() noexcept;
std::error_code make_error_code(SoundsError e) noexcept;

} // namespace vantelo_sounds

template <>
struct std::is_error_code_enum<vantelo_sounds::SoundsError> : std::true_type {};

/// Any two values are equal; the hash is that of the case index.
template <>
struct std::hash<vantelo_sounds::SoundsError> {
    std::size_t operator()(vantelo_sounds::SoundsError e) const noexcept {
        return std::hash<std::size_t>{}(static_cast<std::size_t>(e));
    }
};
