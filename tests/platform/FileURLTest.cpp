// File URLs: normalised absolute paths, their components, and the percent-encoded text form.
#include <string>
#include <unistd.h>
#include <vantelo_sounds/platform/FileURL.hpp>

#include <gtest/gtest.h>

using vantelo_sounds::FileURL;

namespace {

struct DescriptionCase {
    std::string path;
    std::string description;
};

class FileURLDescriptionTest : public ::testing::TestWithParam<DescriptionCase> {};

TEST_P(FileURLDescriptionTest, EncodesLikeThePlatform) {
    EXPECT_EQ(FileURL::fileURLWithPath(GetParam().path).description(), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, FileURLDescriptionTest,
    ::testing::Values(
        DescriptionCase{"/tmp/a b.wav", "file:///tmp/a%20b.wav"},
        DescriptionCase{"/tmp/beep.wav", "file:///tmp/beep.wav"},
        DescriptionCase{"/tmp/caf\xC3\xA9.wav", "file:///tmp/caf%C3%A9.wav"},
        DescriptionCase{"/tmp/\xE6\x97\xA5\xE6\x9C\xAC.m4a", "file:///tmp/%E6%97%A5%E6%9C%AC.m4a"},
        DescriptionCase{"/tmp/100%.wav", "file:///tmp/100%25.wav"},
        DescriptionCase{"/tmp/a#1?.wav", "file:///tmp/a%231%3F.wav"},
        DescriptionCase{"/tmp/!$&'()*+,;=:@-._~", "file:///tmp/!$&'()*+,;=:@-._~"},
        DescriptionCase{"/tmp/[x]{y}\"<>|\\^`", "file:///tmp/%5Bx%5D%7By%7D%22%3C%3E%7C%5C%5E%60"},
        DescriptionCase{"/tmp/dir/", "file:///tmp/dir"}, DescriptionCase{"/", "file:///"}));

struct ComponentCase {
    std::string path;
    std::string normalised;
    std::string lastPathComponent;
    std::string pathExtension;
};

class FileURLComponentTest : public ::testing::TestWithParam<ComponentCase> {};

TEST_P(FileURLComponentTest, SplitsThePath) {
    const FileURL url = FileURL::fileURLWithPath(GetParam().path);
    EXPECT_EQ(url.path(), GetParam().normalised);
    EXPECT_EQ(url.lastPathComponent(), GetParam().lastPathComponent);
    EXPECT_EQ(url.pathExtension(), GetParam().pathExtension);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, FileURLComponentTest,
    ::testing::Values(ComponentCase{"/sounds/beep.wav", "/sounds/beep.wav", "beep.wav", "wav"},
                      ComponentCase{"/a/b/jump.m4a", "/a/b/jump.m4a", "jump.m4a", "m4a"},
                      ComponentCase{"/a/archive.tar.gz", "/a/archive.tar.gz", "archive.tar.gz",
                                    "gz"},
                      ComponentCase{"/a/.hidden", "/a/.hidden", ".hidden", ""},
                      ComponentCase{"/a/trailing.", "/a/trailing.", "trailing.", ""},
                      ComponentCase{"/a/noext", "/a/noext", "noext", ""},
                      ComponentCase{"/a.d/noext", "/a.d/noext", "noext", ""},
                      ComponentCase{"//a///b//", "/a/b", "b", ""},
                      ComponentCase{"/a/./b/../c.wav", "/a/c.wav", "c.wav", "wav"},
                      ComponentCase{"/../../x.wav", "/x.wav", "x.wav", "wav"},
                      ComponentCase{"/", "/", "/", ""}));

TEST(FileURLTest, RelativePathsAreMadeAbsoluteAgainstTheCurrentDirectory) {
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    const std::string here = cwd;
    EXPECT_EQ(FileURL::fileURLWithPath("x/y.wav").path(), (here == "/" ? "" : here) + "/x/y.wav");
    EXPECT_EQ(FileURL::fileURLWithPath("").path(), here);
    const FileURL up = FileURL::fileURLWithPath("../z.wav");
    EXPECT_EQ(up.path().front(), '/');
    EXPECT_EQ(up.path().find(".."), std::string::npos);
    EXPECT_EQ(up.lastPathComponent(), "z.wav");
}

TEST(FileURLTest, AppendingAndDeletingComponents) {
    const FileURL folder = FileURL::fileURLWithPath("/tmp/sounds");
    EXPECT_EQ(folder.appendingPathComponent("a b.wav").description(),
              "file:///tmp/sounds/a%20b.wav");
    EXPECT_EQ(folder.appendingPathComponent("../x").path(), "/tmp/x");
    EXPECT_EQ(folder.deletingLastPathComponent().path(), "/tmp");
    EXPECT_EQ(FileURL::fileURLWithPath("/tmp").deletingLastPathComponent().path(), "/");
    EXPECT_EQ(FileURL::fileURLWithPath("/").deletingLastPathComponent().path(), "/");
}

TEST(FileURLTest, EqualAndHashedByNormalisedPath) {
    const FileURL a = FileURL::fileURLWithPath("/tmp/x/../a.wav");
    const FileURL b = FileURL::fileURLWithPath("/tmp//a.wav");
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<FileURL>{}(a), std::hash<FileURL>{}(b));
    EXPECT_NE(a, FileURL::fileURLWithPath("/tmp/A.wav"));
}

} // namespace
