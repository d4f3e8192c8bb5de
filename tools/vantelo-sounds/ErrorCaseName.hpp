#pragma once

#include <string>
#include <system_error>

namespace vantelo_sounds::cli {

/// The case name of one of the library's errors ("permissionDenied"), as scripts that read the
/// events want it. An error of a category the program does not know is written as
/// "<category>:<value>" so that it is never lost.
std::string errorCaseName(const std::error_code& error);

} // namespace vantelo_sounds::cli
