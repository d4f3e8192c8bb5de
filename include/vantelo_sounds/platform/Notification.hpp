#pragma once

#include <any>
#include <map>
#include <optional>
#include <string>

namespace vantelo_sounds {

/// A named event delivered by a NotificationCenter, with its sender and optional extra values.
struct Notification {
    std::string name;
    /// The sender, for identification only; never dereferenced by the center.
    const void* object = nullptr;
    std::optional<std::map<std::string, std::any>> userInfo;
};

} // namespace vantelo_sounds
