// The user's caches folder and the file manager's existence test and removal.
#include <filesystem>
#include <vantelo_sounds/platform/FileManager.hpp>
#include <vantelo_sounds/platform/SearchPaths.hpp>

#include <gtest/gtest.h>

#include "platform/TestFolders.hpp"

namespace vts = vantelo_sounds;
namespace fs = std::filesystem;
using vts::SearchPaths;

namespace {

class SearchPathsTest : public ::testing::Test {
protected:
    vts::testing::TempFolder folder;
};

TEST_F(SearchPathsTest, AnAbsoluteXdgCacheHomeIsUsedAndCreatedWithItsParents) {
    const std::string caches = folder / "deep/er/cache";
    vts::testing::ScopedEnv xdg("XDG_CACHE_HOME", caches);
    EXPECT_EQ(SearchPaths::cachesDirectories(), std::vector<std::string>{caches});
    EXPECT_TRUE(fs::is_directory(caches));
}

TEST_F(SearchPathsTest, ARelativeOrEmptyXdgCacheHomeFallsBackToHome) {
    vts::testing::ScopedEnv home("HOME", folder.path());
    for (const char* value : {"relative/cache", ""}) {
        vts::testing::ScopedEnv xdg("XDG_CACHE_HOME", std::string(value));
        EXPECT_EQ(SearchPaths::cachesDirectories(), std::vector<std::string>{folder / ".cache"});
    }
    EXPECT_TRUE(fs::is_directory(folder / ".cache"));
    EXPECT_FALSE(fs::exists("relative"));
}

TEST_F(SearchPathsTest, WithoutHomeTheAccountsHomeFolderIsUsed) {
    vts::testing::ScopedEnv xdg("XDG_CACHE_HOME", std::nullopt);
    vts::testing::ScopedEnv home("HOME", std::nullopt);
    const auto account = SearchPaths::homeDirectory();
    if (!account) {
        GTEST_SKIP() << "this account has no home folder";
    }
    EXPECT_EQ(SearchPaths::cachesDirectories(), std::vector<std::string>{*account + "/.cache"});
}

TEST_F(SearchPathsTest, ConfigFolderFollowsTheSameRulesWithoutCreatingIt) {
    vts::testing::ScopedEnv home("HOME", folder.path());
    vts::testing::ScopedEnv xdg("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(SearchPaths::configDirectory(), folder / ".config");
    EXPECT_FALSE(fs::exists(folder / ".config"));
}

struct ExistenceCase {
    const char* name;
    bool exists;
};

class FileManagerTest : public SearchPathsTest,
                        public ::testing::WithParamInterface<ExistenceCase> {
protected:
    FileManagerTest() {
        folder.write("file.wav");
        folder.write("empty.wav", "");
        fs::create_directories(folder / "dir");
        fs::create_symlink(folder / "file.wav", folder / "link");
        fs::create_symlink(folder / "gone.wav", folder / "dangling");
    }
    vts::FileManager& manager = vts::FileManager::defaultManager();
};

TEST_P(FileManagerTest, AnyEntryCountsButADanglingLinkDoesNot) {
    EXPECT_EQ(manager.fileExistsAtPath(folder / GetParam().name), GetParam().exists);
}

INSTANTIATE_TEST_SUITE_P(Entries, FileManagerTest,
                         ::testing::Values(ExistenceCase{"file.wav", true},
                                           ExistenceCase{"empty.wav", true},
                                           ExistenceCase{"dir", true}, ExistenceCase{"link", true},
                                           ExistenceCase{"dangling", false},
                                           ExistenceCase{"missing.wav", false}),
                         [](const auto& p) {
                             std::string name = p.param.name;
                             return name.substr(0, name.find('.'));
                         });

TEST_P(FileManagerTest, RemovalTakesWhatIsThereAndFailsWhenNothingIs) {
    const vts::FileURL url = vts::FileURL::fileURLWithPath(folder / GetParam().name);
    const bool present = fs::symlink_status(url.path()).type() != fs::file_type::not_found;
    const std::error_code error = manager.removeItemAtURL(url);
    if (present) {
        EXPECT_FALSE(error) << error.message();
        EXPECT_EQ(fs::symlink_status(url.path()).type(), fs::file_type::not_found);
    } else {
        EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    }
    if (std::string(GetParam().name) == "link") {
        EXPECT_TRUE(fs::exists(folder / "file.wav")) << "removing a link keeps its target";
    }
}

TEST_F(SearchPathsTest, RemovalTakesAWholeTree) {
    folder.write("tree/a/b/c.wav");
    folder.write("tree/d.wav");
    EXPECT_FALSE(vts::FileManager::defaultManager().removeItemAtURL(
        vts::FileURL::fileURLWithPath(folder / "tree")));
    EXPECT_FALSE(fs::exists(folder / "tree"));
}

TEST_F(SearchPathsTest, EmptyPathsNeitherExistNorRemove) {
    EXPECT_FALSE(vts::FileManager::defaultManager().fileExistsAtPath(""));
    EXPECT_TRUE(vts::FileManager::defaultManager().removeItemAtURL(vts::FileURL{}));
}

} // namespace
