// File URLs: normalised absolute paths, their components, and the percent-encoded text form.
#include <string>
#include <unistd.h>
#include <vantelo_sounds/platform/FileURL.hpp>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"

namespace vantelo_sounds {
namespace {

struct UrlCase : test::NamedCase {
    std::string path;
    std::string normalised;
    std::string lastPathComponent;
    std::string pathExtension;
    std::string description;
};

class FileURLTest : public ::testing::TestWithParam<UrlCase> {};

TEST_P(FileURLTest, SplitsThePathAndEncodesItLikeThePlatform) {
    const FileURL url = FileURL::fileURLWithPath(GetParam().path);
    EXPECT_EQ(url.path(), GetParam().normalised);
    EXPECT_EQ(url.lastPathComponent(), GetParam().lastPathComponent);
    EXPECT_EQ(url.pathExtension(), GetParam().pathExtension);
    EXPECT_EQ(url.description(), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, FileURLTest,
    ::testing::Values(
        UrlCase{"plain", "/sounds/beep.wav", "/sounds/beep.wav", "beep.wav", "wav",
                "file:///sounds/beep.wav"},
        UrlCase{"space", "/tmp/a b.wav", "/tmp/a b.wav", "a b.wav", "wav", "file:///tmp/a%20b.wav"},
        UrlCase{"UTF-8", "/tmp/caf\xC3\xA9.m4a", "/tmp/caf\xC3\xA9.m4a", "caf\xC3\xA9.m4a", "m4a",
                "file:///tmp/caf%C3%A9.m4a"},
        UrlCase{"percent hash and question mark", "/tmp/100%#?.wav", "/tmp/100%#?.wav",
                "100%#?.wav", "wav", "file:///tmp/100%25%23%3F.wav"},
        UrlCase{"characters kept", "/tmp/!$&'()*+,;=:@-_~", "/tmp/!$&'()*+,;=:@-_~",
                "!$&'()*+,;=:@-_~", "", "file:///tmp/!$&'()*+,;=:@-_~"},
        UrlCase{"characters encoded", "/t/[x]{y}\"<>|\\^`", "/t/[x]{y}\"<>|\\^`", "[x]{y}\"<>|\\^`",
                "", "file:///t/%5Bx%5D%7By%7D%22%3C%3E%7C%5C%5E%60"},
        UrlCase{"two extensions", "/a/archive.tar.gz", "/a/archive.tar.gz", "archive.tar.gz", "gz",
                "file:///a/archive.tar.gz"},
        UrlCase{"hidden file", "/a/.hidden", "/a/.hidden", ".hidden", "", "file:///a/.hidden"},
        UrlCase{"trailing dot", "/a/trailing.", "/a/trailing.", "trailing.", "",
                "file:///a/trailing."},
        UrlCase{"dot in a folder", "/a.d/noext", "/a.d/noext", "noext", "", "file:///a.d/noext"},
        UrlCase{"extra slashes", "//a///b//", "/a/b", "b", "", "file:///a/b"},
        UrlCase{"dots", "/a/./b/../c.wav", "/a/c.wav", "c.wav", "wav", "file:///a/c.wav"},
        UrlCase{"above the root", "/../../x.wav", "/x.wav", "x.wav", "wav", "file:///x.wav"},
        UrlCase{"root", "/", "/", "/", "", "file:///"}),
    test::CaseName());

TEST(FileURLPathTest, RelativePathsAreMadeAbsoluteAgainstTheCurrentDirectory) {
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    const std::string here = cwd;
    EXPECT_EQ(FileURL::fileURLWithPath("x/y.wav").path(), (here == "/" ? "" : here) + "/x/y.wav");
    EXPECT_EQ(FileURL::fileURLWithPath("").path(), here);
    const FileURL up = FileURL::fileURLWithPath("../z.wav");
    EXPECT_EQ(up.path().front(), '/');
    EXPECT_EQ(up.path().find(".."), std::string::npos);
}

TEST(FileURLPathTest, ComponentsAreAppendedAndDeletedWithinTheRoot) {
    const FileURL folder = FileURL::fileURLWithPath("/tmp/sounds");
    EXPECT_EQ(folder.appendingPathComponent("a b.wav").description(),
              "file:///tmp/sounds/a%20b.wav");
    EXPECT_EQ(folder.appendingPathComponent("../x").path(), "/tmp/x");
    EXPECT_EQ(folder.deletingLastPathComponent().path(), "/tmp");
    EXPECT_EQ(FileURL::fileURLWithPath("/tmp").deletingLastPathComponent().path(), "/");
    EXPECT_EQ(FileURL::fileURLWithPath("/").deletingLastPathComponent().path(), "/");
}

TEST(FileURLPathTest, EqualAndHashedByTheNormalisedPath) {
    const FileURL a = FileURL::fileURLWithPath("/tmp/x/../a.wav");
    const FileURL b = FileURL::fileURLWithPath("/tmp//a.wav");
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<FileURL>{}(a), std::hash<FileURL>{}(b));
    EXPECT_NE(a, FileURL::fileURLWithPath("/tmp/A.wav"));
}

} // namespace
} // namespace vantelo_sounds
