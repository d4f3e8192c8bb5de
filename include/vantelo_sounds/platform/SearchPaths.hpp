#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vantelo_sounds {

/// The user's standard folders, as the XDG base-directory rules place them.
class SearchPaths {
public:
    /// The user's caches folder: $XDG_CACHE_HOME when set and absolute, else $HOME/.cache, else
    /// the account's home folder + "/.cache". Created (with its parents) when missing. Empty only
    /// when no home folder can be found at all.
    static std::vector<std::string> cachesDirectories();

    /// The user's configuration folder: $XDG_CONFIG_HOME when set and absolute, else
    /// $HOME/.config, else the account's home folder + "/.config". Not created.
    static std::optional<std::string> configDirectory();

    /// The user's home folder: $HOME when set and non-empty, else the account database's entry.
    static std::optional<std::string> homeDirectory();
};

} // namespace vantelo_sounds
