#include <filesystem>
#include <sys/stat.h>
#include <vantelo_sounds/platform/FileManager.hpp>

namespace vantelo_sounds {

FileManager& FileManager::defaultManager() {
    static FileManager manager;
    return manager;
}

bool FileManager::fileExistsAtPath(const std::string& path) const {
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0;
}

std::error_code FileManager::removeItemAtURL(const FileURL& url) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (url.empty() || !fs::exists(fs::symlink_status(url.path(), error))) {
        return error ? error : std::make_error_code(std::errc::no_such_file_or_directory);
    }
    fs::remove_all(url.path(), error);
    return error;
}

} // namespace vantelo_sounds
