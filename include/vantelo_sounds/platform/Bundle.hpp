#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

/// The application's resources: a folder of sound files and a table of localized strings.
/// Thread-safe.
///
/// The resource folder is $VANTELO_SOUNDS_BUNDLE when set, else the folder "resources" next to
/// the executable when it exists, else the executable's own folder; the game (or the
/// command-line program) may set it instead.
class Bundle {
public:
    static Bundle& main();

    /// Makes `path` (made absolute) the resource folder and forgets every string table, those
    /// given to setLocalizations too.
    void setResourcePath(const std::string& path);
    std::string resourcePath();

    /// The URL of the resource `name` + "." + `ext` (just `name` when `ext` is empty), only when
    /// something exists there.
    std::optional<FileURL> urlForResource(const std::string& name, const std::string& ext);

    /// The localized text of `key`: from "Localizable.strings" in the resource folder (or the
    /// table set by setLocalizations). When the key is absent: `value` when non-empty, else the
    /// key itself. `table` names another file, "<table>.strings"; empty means Localizable.
    std::string localizedString(const std::string& key, const std::string& value = "",
                                const std::string& table = "");

    /// Replaces the default table's strings (a game's or a scenario's own localizations) until
    /// the resource folder changes; the file is then no longer read.
    void setLocalizations(std::map<std::string, std::string> strings);

    /// Parses the text of a .strings file: `"key" = "value";` pairs, // and /* */ comments,
    /// \" \\ \n \t escapes. Malformed input stops the parse; the pairs read so far are kept.
    static std::map<std::string, std::string> parseStrings(const std::string& text);

private:
    Bundle() = default;
    const std::map<std::string, std::string>& tableLocked(const std::string& name);

    std::mutex mMutex;
    std::optional<std::string> mResourcePath;
    std::map<std::string, std::map<std::string, std::string>> mTables; // by table name
};

} // namespace vantelo_sounds
