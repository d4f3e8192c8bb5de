// The user's caches and config folders.
#include <filesystem>
#include <vantelo_sounds/platform/SearchPaths.hpp>

#include <gtest/gtest.h>

#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

namespace fs = std::filesystem;
using test::ScopedEnv;
using Paths = std::vector<std::string>;

TEST(SearchPathsTest, AnAbsoluteXdgHomeIsUsedElseHomeAndOnlyCachesAreMade) {
    test::TempFolder folder;
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

} // namespace
} // namespace vantelo_sounds
