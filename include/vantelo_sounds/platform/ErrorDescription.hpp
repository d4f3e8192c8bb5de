#pragma once

#include <string>
#include <system_error>

namespace vantelo_sounds {

/// The platform's textual description of an error value:
/// `Error Domain=<category name> Code=<value> "<message>"`.
std::string errorDescription(const std::error_code& error);

/// The error's human description alone (its category's message).
std::string localizedDescription(const std::error_code& error);

} // namespace vantelo_sounds
