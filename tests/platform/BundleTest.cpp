// The main bundle's localized strings, read from the resource folder's .strings files or set by
// the game. (Resource lookup is PlaySoundSettingsTest's.)
#include <map>
#include <string>
#include <vantelo_sounds/platform/Bundle.hpp>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

TEST(BundleTest, LocalizedStringsComeFromTheFileOrTheGameElseTheKeyIsItsOwnText) {
    test::TempFolder folder;
    Bundle& bundle = Bundle::main();
    const std::string previousPath = bundle.resourcePath();
    bundle.setLocalizations({});
    bundle.setResourcePath(folder.path());
    folder.write("Localizable.strings", "\"en-GB\" = \"de-DE\";\n\"empty\" = \"\";");
    EXPECT_EQ(bundle.localizedString("en-GB"), "de-DE");
    EXPECT_EQ(bundle.localizedString("empty"), "") << "a present empty text is a translation";
    EXPECT_EQ(bundle.localizedString("missing"), "missing");

    bundle.setLocalizations({{"en-GB", "es-ES"}});
    EXPECT_EQ(bundle.localizedString("en-GB"), "es-ES");
    EXPECT_EQ(bundle.localizedString("empty"), "empty") << "the whole table is replaced";
    test::TempFolder second;
    second.write("Localizable.strings", "\"en-GB\" = \"pt-PT\";");
    bundle.setResourcePath(second.path());
    EXPECT_EQ(bundle.localizedString("en-GB"), "pt-PT") << "a new folder is read afresh";
    bundle.setResourcePath(previousPath);
}

struct StringsCase : test::NamedCase {
    std::string file;
    std::map<std::string, std::string> expected;
};

class BundleStringsTest : public ::testing::TestWithParam<StringsCase> {};

TEST_P(BundleStringsTest, ParsesTheStringsSyntax) {
    EXPECT_EQ(Bundle::parseStrings(GetParam().file), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Syntax, BundleStringsTest,
    ::testing::Values(
        StringsCase{"comments",
                    "/* voice\n language */\n\"a\" = \"1\"; // trailing\n// line\n\"b\"=\"2\";",
                    {{"a", "1"}, {"b", "2"}}},
        StringsCase{"escapes",
                    R"("q\"k" = "line\nnext \\ \"quoted\"\ttab";)",
                    {{"q\"k", "line\nnext \\ \"quoted\"\ttab"}}},
        StringsCase{"unicode escape and UTF-8",
                    "\"e\" = \"caf\\U00e9 \xE6\x97\xA5\";",
                    {{"e", "caf\xC3\xA9 \xE6\x97\xA5"}}},
        StringsCase{"byte order mark and bare words",
                    "\xEF\xBB\xBFkey_1 = value.2;",
                    {{"key_1", "value.2"}}},
        StringsCase{
            "damage stops the file", "\"a\" = \"1\"; \"b\" = ; \"c\" = \"3\";", {{"a", "1"}}}),
    test::CaseName());

} // namespace
} // namespace vantelo_sounds
