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

TEST_F(SearchPathsTest, AnAbsoluteXdgCacheHomeIsUsedAndMadeWithItsParents) {
    const std::string caches = folder / "deep/er/cache";
    ScopedEnv xdg("XDG_CACHE_HOME", caches);
    EXPECT_EQ(SearchPaths::cachesDirectories(), Paths{caches});
    EXPECT_TRUE(fs::is_directory(caches));
}

TEST_F(SearchPathsTest, ARelativeOrEmptyXdgCacheHomeFallsBackToHome) {
    ScopedEnv home("HOME", folder.path());
    for (const char* value : {"relative/cache", ""}) {
        ScopedEnv xdg("XDG_CACHE_HOME", std::string(value));
        EXPECT_EQ(SearchPaths::cachesDirectories(), Paths{folder / ".cache"});
    }
    EXPECT_TRUE(fs::is_directory(folder / ".cache"));
    EXPECT_FALSE(fs::exists("relative"));
}

TEST_F(SearchPathsTest, WithoutHomeTheAccountsHomeFolderIsUsed) {
    ScopedEnv xdg("XDG_CACHE_HOME", std::nullopt);
    ScopedEnv home("HOME", std::nullopt);
    const auto account = SearchPaths::homeDirectory();
    if (!account) {
        GTEST_SKIP() << "this account has no home folder";
    }
    EXPECT_EQ(SearchPaths::cachesDirectories(), Paths{*account + "/.cache"});
}

TEST_F(SearchPathsTest, TheConfigFolderFollowsTheSameRulesWithoutBeingMade) {
    ScopedEnv home("HOME", folder.path());
    ScopedEnv xdg("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(SearchPaths::configDirectory(), folder / ".config");
    EXPECT_FALSE(fs::exists(folder / ".config"));
}

struct EntryCase : test::NamedCase {
    const char* entry;
    bool exists;
};

class FileManagerTest : public SearchPathsTest, public ::testing::WithParamInterface<EntryCase> {
protected:
    FileManagerTest() {
        folder.write("file.wav");
        folder.write("empty.wav", "");
        fs::create_directories(folder / "dir");
        fs::create_symlink(folder / "file.wav", folder / "link");
        fs::create_symlink(folder / "gone.wav", folder / "dangling");
    }
    FileManager& manager = FileManager::defaultManager();
};

TEST_P(FileManagerTest, AnyEntryExistsButADanglingLinkAndAnythingThereIsRemoved) {
    const std::string path = folder / GetParam().entry;
    EXPECT_EQ(manager.fileExistsAtPath(path), GetParam().exists);

    const bool present = fs::symlink_status(path).type() != fs::file_type::not_found;
    const std::error_code error = manager.removeItemAtURL(FileURL::fileURLWithPath(path));
    EXPECT_EQ(error, present ? std::error_code{}
                             : std::make_error_code(std::errc::no_such_file_or_directory));
    EXPECT_EQ(fs::symlink_status(path).type(), fs::file_type::not_found);
    if (GetParam().entry != std::string("file.wav")) {
        EXPECT_TRUE(fs::exists(folder / "file.wav")) << "removing a link keeps its target";
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, FileManagerTest,
                         ::testing::Values(EntryCase{"file", "file.wav", true},
                                           EntryCase{"empty file", "empty.wav", true},
                                           EntryCase{"directory", "dir", true},
                                           EntryCase{"link", "link", true},
                                           EntryCase{"dangling link", "dangling", false},
                                           EntryCase{"missing", "missing.wav", false}),
                         test::CaseName());

TEST_F(SearchPathsTest, RemovalTakesAWholeTreeAndAnEmptyPathIsNothing) {
    folder.write("tree/a/b/c.wav");
    FileManager& manager = FileManager::defaultManager();
    EXPECT_FALSE(manager.removeItemAtURL(FileURL::fileURLWithPath(folder / "tree")));
    EXPECT_FALSE(fs::exists(folder / "tree"));
    EXPECT_FALSE(manager.fileExistsAtPath(""));
    EXPECT_TRUE(manager.removeItemAtURL(FileURL{}));
}

} // namespace
} // namespace vantelo_sounds
