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
    std::string lastPathComponent;
    std::string pathExtension;
    std::string description;
};

class FileURLTest : public ::testing::TestWithParam<UrlCase> {};

TEST_P(FileURLTest, SplitsThePathAndEncodesItLikeThePlatform) {
    const FileURL url = FileURL::fileURLWithPath(GetParam().path);
    EXPECT_EQ(url.lastPathComponent(), GetParam().lastPathComponent);
    EXPECT_EQ(url.pathExtension(), GetParam().pathExtension);
    EXPECT_EQ(url.description(), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, FileURLTest,
    ::testing::Values(
        UrlCase{"space", "/tmp/a b.wav", "a b.wav", "wav", "file:///tmp/a%20b.wav"},
        UrlCase{"UTF-8", "/tmp/caf\xC3\xA9.m4a", "caf\xC3\xA9.m4a", "m4a",
                "file:///tmp/caf%C3%A9.m4a"},
        UrlCase{"percent hash question", "/t/100%#?.wav", "100%#?.wav", "wav",
                "file:///t/100%25%23%3F.wav"},
        UrlCase{"kept as they are", "/t/!$&'()*+,;=:@-_~", "!$&'()*+,;=:@-_~", "",
                "file:///t/!$&'()*+,;=:@-_~"},
        UrlCase{"encoded", "/t/[x]{y}\"<>|\\^`", "[x]{y}\"<>|\\^`", "",
                "file:///t/%5Bx%5D%7By%7D%22%3C%3E%7C%5C%5E%60"},
        UrlCase{"two extensions", "/a/archive.tar.gz", "archive.tar.gz", "gz",
                "file:///a/archive.tar.gz"},
        UrlCase{"hidden file", "/a/.hidden", ".hidden", "", "file:///a/.hidden"},
        UrlCase{"trailing dot", "/a/trailing.", "trailing.", "", "file:///a/trailing."},
        UrlCase{"dot in a folder", "/a.d/noext", "noext", "", "file:///a.d/noext"},
        UrlCase{"extra slashes", "//a///b//", "b", "", "file:///a/b"},
        UrlCase{"dots above the root", "/../a/./b/../c.wav", "c.wav", "wav", "file:///a/c.wav"},
        UrlCase{"root", "/", "/", "", "file:///"}),
    test::CaseName());

TEST(FileURLPathTest, RelativePathsAreMadeAbsoluteAndEqualityIsByNormalisedPath) {
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    const std::string here = cwd;
    EXPECT_EQ(FileURL::fileURLWithPath("x/y.wav").path(), (here == "/" ? "" : here) + "/x/y.wav");
    EXPECT_EQ(FileURL::fileURLWithPath("").path(), here);
    EXPECT_EQ(FileURL::fileURLWithPath("../z.wav").path().find(".."), std::string::npos);

    EXPECT_EQ(FileURL::fileURLWithPath("/tmp/sounds").appendingPathComponent("../x").path(),
              "/tmp/x");
    EXPECT_EQ(FileURL::fileURLWithPath("/").deletingLastPathComponent().path(), "/");
    const FileURL a = FileURL::fileURLWithPath("/tmp/x/../a.wav");
    EXPECT_EQ(a, FileURL::fileURLWithPath("/tmp//a.wav"));
    EXPECT_NE(a, FileURL::fileURLWithPath("/tmp/A.wav"));
}

} // namespace
} // namespace vantelo_sounds
