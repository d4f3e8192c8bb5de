#pragma once

// Temporary folders and environment variables that tests set for their own duration only.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace vantelo_sounds::testing {

/// A fresh folder under the system's temporary folder, removed with everything in it.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vts-XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr) {
            mPath = pattern;
        }
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return mPath; }
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

    /// Writes `contents` to `name` inside the folder (parents made) and returns its path.
    std::string write(const std::string& name, const std::string& contents = "x") const {
        const std::filesystem::path file = std::filesystem::path(mPath) / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << contents;
        return file.string();
    }

private:
    std::string mPath;
};

/// Sets (or, with no value, unsets) an environment variable and restores it afterwards.
class ScopedEnv {
public:
    ScopedEnv(std::string name, const std::optional<std::string>& value)
        : mName(std::move(name)) {
        if (const char* old = std::getenv(mName.c_str())) {
            mOld = old;
        }
        set(value);
    }
    ~ScopedEnv() { set(mOld); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    void set(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(mName.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(mName.c_str());
        }
    }

    std::string mName;
    std::optional<std::string> mOld;
};

} // namespace vantelo_sounds::testing
