#pragma once

#include <string>
#include <system_error>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

/// File-system queries and changes. Safe to call from any thread.
class FileManager {
public:
    static FileManager& defaultManager();

    /// True when something exists at `path`: a file, a directory or anything else. A symbolic
    /// link counts by what it points to, so a dangling link does not.
    bool fileExistsAtPath(const std::string& path) const;

    /// Removes the file, link or whole directory tree at `url`. An error when nothing is there
    /// (std::errc::no_such_file_or_directory) or when something could not be removed.
    std::error_code removeItemAtURL(const FileURL& url);
};

} // namespace vantelo_sounds
