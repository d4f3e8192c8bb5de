#pragma once

#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

/// Runs at most once, on the run loop's thread, when its sound has ended or been stopped (or at
/// once when a request carries no sound). Empty means absent.
using Completion = std::function<void()>;

/// Receives the spoken text and, when it could not be spoken, the error. An error is optional
/// rather than a zero std::error_code because SoundsError's one case has the value 0.
using SpeechCompletion =
    std::function<void(const std::string& text, const std::optional<std::error_code>& error)>;

/// Receives the recorded file's URL, or the error that kept it from being made.
using RecordingCompletion = std::function<void(const std::optional<FileURL>& url,
                                               const std::optional<std::error_code>& error)>;

/// Receives the microphone permission answer (absent when refused by the user) or an error.
using PermissionCompletion = std::function<void(const std::optional<bool>& granted,
                                                const std::optional<std::error_code>& error)>;

} // namespace vantelo_sounds
