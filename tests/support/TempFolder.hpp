#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace vantelo_sounds::test {

/// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TempFolder {
public:
    TempFolder() {
        mPath = (std::filesystem::temp_directory_path() / "vantelo-sounds-XXXXXX").string();
        if (::mkdtemp(mPath.data()) == nullptr) {
            ADD_FAILURE() << "cannot make a temporary folder";
        }
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// The folder, without a trailing slash.
    const std::string& path() const { return mPath; }
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

    /// Writes `contents` to `name` (its folders made), replacing it; returns its path.
    std::string write(const std::string& name, const std::string& contents = "x") const {
        const std::filesystem::path file = std::filesystem::path(mPath) / name;
        std::error_code ignored;
        std::filesystem::create_directories(file.parent_path(), ignored);
        if (!(std::ofstream(file, std::ios::binary | std::ios::trunc) << contents)) {
            ADD_FAILURE() << "cannot write " << file;
        }
        return file.string();
    }

private:
    std::string mPath;
};

} // namespace vantelo_sounds::test
