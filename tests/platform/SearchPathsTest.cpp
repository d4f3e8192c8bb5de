// The user's caches and config folders, and the file manager's existence test and removal.
#include <filesystem>
#include <vantelo_sounds/platform/FileManager.hpp>
#include <vantelo_sounds/platform/SearchPaths.hpp>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"
#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

namespace fs = std::filesystem;
using test::ScopedEnv;
using Paths = std::vector<std::string>;

class SearchPathsTest : public ::testing::Test {
protected:
    test::TempFolder folder;
};

TEST_F(SearchPathsTest, AnAbsoluteXdgHomeIsUsedElseHomeAndOnlyCachesAreMade) {
    const std::string caches = folder / "deep/er/cache";
    ScopedEnv home("HOME", folder.path());
    ScopedEnv config("XDG_CONFIG_HOME", "relative/config");
    for (const char* value : {"relative/cache", ""}) {
        ScopedEnv xdg("XDG_CACHE_HOME", std::string(value));
        EXPECT_EQ(SearchPaths::cachesDirectories(), Paths{folder / ".cache"});
    }
    EXPECT_EQ(SearchPaths::configDirectory(), folder / ".config");
    EXPECT_TRUE(fs::is_directory(folder / ".cache"));
    EXPECT_FALSE(fs::exists(folder / ".config"));
    EXPECT_FALSE(fs::exists("relative"));
    ScopedEnv xdg("XDG_CACHE_HOME", caches);
    EXPECT_EQ(SearchPaths::cachesDirectories(), Paths{caches});
    EXPECT_TRUE(fs::is_directory(caches)) << "made with its parents";
}

TEST_F(SearchPathsTest, AnyEntryButADanglingLinkExistsAndWhateverIsThereIsRemoved) {
    FileManager& manager = FileManager::defaultManager();
    const auto remove = [&](const std::string& name) {
        return manager.removeItemAtURL(FileURL::fileURLWithPath(folder / name));
    };
    folder.write("file.wav");
    folder.write("empty.wav", "");
    folder.write("tree/a/b/c.wav");
    fs::create_symlink(folder / "file.wav", folder / "link");
    fs::create_symlink(folder / "gone.wav", folder / "dangling");
    for (const char* entry : {"file.wav", "empty.wav", "tree", "link"}) {
        EXPECT_TRUE(manager.fileExistsAtPath(folder / entry)) << entry;
    }
    EXPECT_FALSE(manager.fileExistsAtPath(folder / "dangling"));
    EXPECT_FALSE(manager.fileExistsAtPath(""));

    for (const char* entry : {"link", "dangling", "tree"}) {
        EXPECT_FALSE(remove(entry)) << entry;
        EXPECT_EQ(fs::symlink_status(folder / entry).type(), fs::file_type::not_found) << entry;
    }
    EXPECT_TRUE(fs::exists(folder / "file.wav")) << "removing a link keeps its target";
    EXPECT_EQ(remove("missing.wav"), std::errc::no_such_file_or_directory);
    EXPECT_TRUE(manager.removeItemAtURL(FileURL{}));
}

} // namespace
} // namespace vantelo_sounds
