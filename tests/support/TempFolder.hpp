#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace vantelo_sounds::test {

/// A fresh folder under the system's temporary folder, made for one test and removed with
/// everything in it when the test ends.
class TempFolder {
public:
    TempFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vantelo-sounds-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            ADD_FAILURE() << "cannot make a temporary folder";
        }
        mPath = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// The folder, without a trailing slash.
    const std::string& path() const { return mPath; }
    /// path() + "/" + name.
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

    /// Writes `contents` to `name` (its folders made), replacing it; returns its path.
    std::string write(const std::string& name, const std::string& contents = "x") const {
        const std::filesystem::path file = std::filesystem::path(mPath) / name;
        std::error_code ignored;
        std::filesystem::create_directories(file.parent_path(), ignored);
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
        if (!out) {
            ADD_FAILURE() << "cannot write " << file;
        }
        return file.string();
    }

private:
    std::string mPath;
};

} // namespace vantelo_sounds::test
