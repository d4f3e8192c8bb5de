#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <unistd.h>
#include <vantelo_sounds/platform/SearchPaths.hpp>

namespace vantelo_sounds {

namespace {

std::optional<std::string> environment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return std::string(value);
}

// An XDG variable counts only when it holds an absolute path; otherwise home + `fallback`.
std::optional<std::string> xdgDirectory(const char* variable, const char* fallback) {
    if (auto value = environment(variable); value && value->front() == '/') {
        return value;
    }
    if (auto home = SearchPaths::homeDirectory()) {
        return *home + fallback;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> SearchPaths::homeDirectory() {
    if (auto home = environment("HOME")) {
        return home;
    }
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::string buffer(size > 0 ? static_cast<std::size_t>(size) : 16384, '\0');
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir != nullptr && *found->pw_dir != '\0') {
        return std::string(found->pw_dir);
    }
    return std::nullopt;
}

std::vector<std::string> SearchPaths::cachesDirectories() {
    auto caches = xdgDirectory("XDG_CACHE_HOME", "/.cache");
    if (!caches) {
        return {};
    }
    // A folder that cannot be created is still reported: writing into it fails later, clearly.
    std::error_code ignored;
    std::filesystem::create_directories(*caches, ignored);
    return {*caches};
}

std::optional<std::string> SearchPaths::configDirectory() {
    return xdgDirectory("XDG_CONFIG_HOME", "/.config");
}

} // namespace vantelo_sounds
