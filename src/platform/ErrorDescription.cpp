#include <vantelo_sounds/platform/ErrorDescription.hpp>

namespace vantelo_sounds {

std::string errorDescription(const std::error_code& error) {
    return "Error Domain=" + std::string(error.category().name()) +
           " Code=" + std::to_string(error.value()) + " \"" + error.message() + "\"";
}

std::string localizedDescription(const std::error_code& error) {
    return error.message();
}

} // namespace vantelo_sounds
