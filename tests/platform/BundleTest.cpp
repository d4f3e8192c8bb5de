// The main bundle: resources found only when something is there, and localized strings read
// from the resource folder's .strings file or set by the game.
#include <map>
#include <string>
#include <vantelo_sounds/platform/Bundle.hpp>

#include <gtest/gtest.h>

#include "platform/TestFolders.hpp"

namespace vts = vantelo_sounds;
using vts::Bundle;

namespace {

class BundleTest : public ::testing::Test {
protected:
    vts::testing::TempFolder folder;
    Bundle& bundle = Bundle::main();
    std::string previousPath = bundle.resourcePath();

    BundleTest() {
        bundle.setLocalizations({});
        bundle.setResourcePath(folder.path());
    }
    ~BundleTest() override { bundle.setResourcePath(previousPath); }
};

TEST_F(BundleTest, ResourcesAreFoundOnlyWhenSomethingExists) {
    folder.write("jump.wav");
    folder.write("noext");
    std::filesystem::create_directories(folder / "pack.bundle");

    EXPECT_EQ(bundle.urlForResource("jump", "wav"),
              vts::FileURL::fileURLWithPath(folder / "jump.wav"));
    EXPECT_EQ(bundle.urlForResource("noext", ""), vts::FileURL::fileURLWithPath(folder / "noext"));
    EXPECT_TRUE(bundle.urlForResource("pack", "bundle").has_value());
    EXPECT_FALSE(bundle.urlForResource("jump", "mp3").has_value());
    EXPECT_FALSE(bundle.urlForResource("jump.wav", "wav").has_value());
    EXPECT_FALSE(bundle.urlForResource("", "wav").has_value());
}

struct StringsCase {
    const char* name;
    std::string file;
    std::map<std::string, std::string> expected;
};

class BundleStringsTest : public BundleTest, public ::testing::WithParamInterface<StringsCase> {};

TEST_P(BundleStringsTest, ParsesTheStringsSyntax) {
    EXPECT_EQ(Bundle::parseStrings(GetParam().file), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Syntax, BundleStringsTest,
    ::testing::Values(
        StringsCase{"plain", "\"en-GB\" = \"fr-FR\";", {{"en-GB", "fr-FR"}}},
        StringsCase{
            "comments",
            "/* voice\n language */\n\"a\" = \"1\"; // trailing\n// whole line\n\"b\"=\"2\";",
            {{"a", "1"}, {"b", "2"}}},
        StringsCase{"escapes",
                    R"("q\"k" = "line\nnext \\ \"quoted\"\ttab";)",
                    {{"q\"k", "line\nnext \\ \"quoted\"\ttab"}}},
        StringsCase{"unicode escape and UTF-8",
                    "\"e\" = \"caf\\U00e9 \xE6\x97\xA5\";",
                    {{"e", "caf\xC3\xA9 \xE6\x97\xA5"}}},
        StringsCase{"byte order mark and bare words",
                    "\xEF\xBB\xBF"
                    "key_1 = value.2;",
                    {{"key_1", "value.2"}}},
        StringsCase{"key alone", "\"same\";", {{"same", "same"}}},
        StringsCase{"later wins", "\"a\" = \"1\"; \"a\" = \"2\";", {{"a", "2"}}},
        StringsCase{"stops at damage, keeps what came before",
                    "\"a\" = \"1\"; \"b\" = ; \"c\" = \"3\";",
                    {{"a", "1"}}},
        StringsCase{"unterminated string", "\"a\" = \"1\"; \"b\" = \"2", {{"a", "1"}}},
        StringsCase{"missing semicolon at the end", "\"a\" = \"1\"", {}},
        StringsCase{"unterminated comment", "\"a\" = \"1\"; /* open", {{"a", "1"}}},
        StringsCase{"empty", "", {}}),
    [](const auto& p) {
        std::string name = p.param.name;
        for (char& c : name) {
            if (!std::isalnum(static_cast<unsigned char>(c))) {
                c = '_';
            }
        }
        return name;
    });

TEST_F(BundleTest, LocalizedStringFallsBackToTheValueThenTheKey) {
    folder.write("Localizable.strings", "\"en-GB\" = \"de-DE\";\n\"empty\" = \"\";");
    folder.write("Menu.strings", "\"en-GB\" = \"it-IT\";");
    bundle.setResourcePath(folder.path());

    EXPECT_EQ(bundle.localizedString("en-GB"), "de-DE");
    EXPECT_EQ(bundle.localizedString("en-GB", "", "Menu"), "it-IT");
    EXPECT_EQ(bundle.localizedString("empty"), "") << "a present empty text is a translation";
    EXPECT_EQ(bundle.localizedString("missing"), "missing");
    EXPECT_EQ(bundle.localizedString("missing", "fallback"), "fallback");
    EXPECT_EQ(bundle.localizedString("en-GB", "", "NoSuchTable"), "en-GB");
}

TEST_F(BundleTest, SetLocalizationsReplacesTheFileUntilTheFolderChanges) {
    folder.write("Localizable.strings", "\"en-GB\" = \"de-DE\"; \"other\" = \"x\";");
    bundle.setLocalizations({{"en-GB", "es-ES"}});
    EXPECT_EQ(bundle.localizedString("en-GB"), "es-ES");
    EXPECT_EQ(bundle.localizedString("other"), "other") << "the whole table is replaced";
    bundle.setResourcePath(folder.path());
    EXPECT_EQ(bundle.localizedString("en-GB"), "de-DE");
}

TEST_F(BundleTest, ANewResourceFolderIsReadAfresh) {
    folder.write("Localizable.strings", "\"k\" = \"first\";");
    EXPECT_EQ(bundle.localizedString("k"), "first");
    vts::testing::TempFolder second;
    second.write("Localizable.strings", "\"k\" = \"second\";");
    bundle.setResourcePath(second.path());
    EXPECT_EQ(bundle.localizedString("k"), "second");
}

} // namespace
