// Playback requests: what each factory sets, where the resource form finds its file, and which
// fields take part in equality.
#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>

#include <gtest/gtest.h>

#include "SDK/Sound/PlaySoundSettingsAccess.hpp"
#include "platform/TestFolders.hpp"

namespace vts = vantelo_sounds;
using vts::FileURL;
using vts::PlaySoundSettings;
using vts::PlaySoundSettingsAccess;
using vts::SoundsPanType;
using vts::SoundsVolumeType;

namespace {

const FileURL kBeep = FileURL::fileURLWithPath("/sounds/beep.wav");

TEST(PlaySoundSettingsTest, TheConstructorTakesTheFileNameFromTheURLAndLeavesNoExtension) {
    const PlaySoundSettings s(FileURL::fileURLWithPath("/a/b/jump.m4a"), SoundsPanType::left(),
                              SoundsVolumeType::extraLow(), true, true);
    EXPECT_EQ(s.fileName, "jump.m4a");
    EXPECT_FALSE(s.ext().has_value());
    EXPECT_EQ(s.filePathURL().path(), "/a/b/jump.m4a");
    EXPECT_EQ(s.panTypeValue(), -1.0f);
    EXPECT_EQ(s.volume, 0.05f);
    EXPECT_TRUE(s.queuedPlay);
    EXPECT_TRUE(s.looped());
}

// 8-4-4-4-12 upper-case hexadecimal digits, version 4, RFC 4122 variant.
bool isCanonicalUuid(const std::string& id) {
    if (id.size() != 36) {
        return false;
    }
    for (std::size_t i = 0; i < id.size(); ++i) {
        const char c = id[i];
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? c != '-' : !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) {
            return false;
        }
    }
    return id[14] == '4' && std::string("89AB").find(id[19]) != std::string::npos;
}

TEST(PlaySoundSettingsTest, EveryRecordGetsItsOwnCanonicalUpperCaseUUID) {
    std::set<std::string> ids;
    for (int i = 0; i < 1000; ++i) {
        const PlaySoundSettings s = PlaySoundSettings::instanly(kBeep);
        ASSERT_TRUE(isCanonicalUuid(s.id())) << s.id();
        ids.insert(s.id());
    }
    EXPECT_EQ(ids.size(), 1000u);
}

struct FactoryCase {
    const char* name;
    std::function<PlaySoundSettings()> make;
    bool looped;
    bool queuedPlay;
    float volume;
    float pan;
};

class PlaySoundSettingsFactoryTest : public ::testing::TestWithParam<FactoryCase> {};

TEST_P(PlaySoundSettingsFactoryTest, SetsTheDocumentedFields) {
    const FactoryCase& c = GetParam();
    const PlaySoundSettings s = c.make();
    EXPECT_EQ(s.looped(), c.looped);
    EXPECT_EQ(s.queuedPlay, c.queuedPlay);
    EXPECT_EQ(s.volume, c.volume);
    EXPECT_EQ(s.panTypeValue(), c.pan);
    EXPECT_EQ(s.filePathURL(), kBeep);
    EXPECT_EQ(s.fileName, "beep.wav");
    EXPECT_FALSE(s.ext().has_value());
    EXPECT_FALSE(s == c.make()) << "the same factory twice gives two identities";
}

INSTANTIATE_TEST_SUITE_P(
    Factories, PlaySoundSettingsFactoryTest,
    ::testing::Values(FactoryCase{"queued", [] { return PlaySoundSettings::queued(kBeep); }, false,
                                  true, 0.75f, 0.0f},
                      FactoryCase{"instanly", [] { return PlaySoundSettings::instanly(kBeep); },
                                  false, false, 0.75f, 0.0f},
                      FactoryCase{"looped", [] { return PlaySoundSettings::looped(kBeep); }, true,
                                  false, 0.75f, 0.0f},
                      FactoryCase{"customUrl",
                                  [] {
                                      return PlaySoundSettings::custom(
                                          kBeep, true, SoundsVolumeType::low(),
                                          SoundsPanType::right(), true);
                                  },
                                  true, true, 0.25f, 1.0f},
                      FactoryCase{"customUrlUnclamped",
                                  [] {
                                      return PlaySoundSettings::custom(
                                          kBeep, false, SoundsVolumeType::custom(2.0f),
                                          SoundsPanType::custom(-3.0f), false);
                                  },
                                  false, false, 2.0f, -3.0f}),
    [](const auto& p) { return std::string(p.param.name); });

// ---- the resource form -------------------------------------------------------------------------

class PlaySoundSettingsResourceTest : public ::testing::Test {
protected:
    vts::testing::TempFolder bundleFolder;
    vts::testing::TempFolder home;
    vts::testing::ScopedEnv caches{"XDG_CACHE_HOME", home / "caches"};
    vts::Bundle& bundle = vts::Bundle::main();
    std::string previousBundle = bundle.resourcePath();

    PlaySoundSettingsResourceTest() { bundle.setResourcePath(bundleFolder.path()); }
    ~PlaySoundSettingsResourceTest() override { bundle.setResourcePath(previousBundle); }
};

TEST_F(PlaySoundSettingsResourceTest, ABundledResourceIsUsedWithItsExtension) {
    bundleFolder.write("jump.wav");
    const PlaySoundSettings s = PlaySoundSettings::custom(
        "jump", "wav", true, SoundsVolumeType::medium(), SoundsPanType::left(), true);
    EXPECT_EQ(s.filePathURL(), FileURL::fileURLWithPath(bundleFolder / "jump.wav"));
    EXPECT_EQ(s.fileName, "jump.wav");
    EXPECT_FALSE(s.ext().has_value());
    EXPECT_TRUE(s.looped());
    EXPECT_TRUE(s.queuedPlay);
    EXPECT_EQ(s.volume, 0.5f);
    EXPECT_EQ(s.panTypeValue(), -1.0f);
}

TEST_F(PlaySoundSettingsResourceTest, OtherwiseTheCachesFileWithoutTheExtension) {
    bundleFolder.write("jump.mp3");
    const PlaySoundSettings s = PlaySoundSettings::custom(
        "jump", "wav", false, SoundsVolumeType::high(), SoundsPanType::center(), false);
    EXPECT_EQ(s.filePathURL().path(), home / "caches/jump");
    EXPECT_EQ(s.fileName, "jump");
    EXPECT_TRUE(std::filesystem::is_directory(home / "caches"));
    EXPECT_FALSE(std::filesystem::exists(home / "caches/jump")) << "nothing checks the file";
}

TEST_F(PlaySoundSettingsResourceTest, AnEmptyExtensionLooksForTheBareName) {
    bundleFolder.write("click");
    const PlaySoundSettings s = PlaySoundSettings::custom(
        "click", "", false, SoundsVolumeType::high(), SoundsPanType::center(), false);
    EXPECT_EQ(s.filePathURL().path(), bundleFolder / "click");
}

// ---- equality ----------------------------------------------------------------------------------

struct EqualityCase {
    const char* name;
    std::function<void(PlaySoundSettings&)> change;
    bool stillEqual;
};

class PlaySoundSettingsEqualityTest : public ::testing::TestWithParam<EqualityCase> {};

TEST_P(PlaySoundSettingsEqualityTest, ACopyChangedInOneFieldComparesAsDocumented) {
    const PlaySoundSettings original = PlaySoundSettings::custom(
        kBeep, false, SoundsVolumeType::low(), SoundsPanType::center(), false);
    PlaySoundSettings copy = original;
    ASSERT_TRUE(copy == original);
    GetParam().change(copy);
    EXPECT_EQ(copy == original, GetParam().stillEqual);
    EXPECT_EQ(original == copy, GetParam().stillEqual);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, PlaySoundSettingsEqualityTest,
    ::testing::Values(
        EqualityCase{"looped", [](auto& s) { PlaySoundSettingsAccess::setLooped(s, true); }, true},
        EqualityCase{"ext", [](auto& s) { PlaySoundSettingsAccess::setExt(s, "wav"); }, true},
        EqualityCase{"url",
                     [](auto& s) {
                         PlaySoundSettingsAccess::setFilePathURL(
                             s, FileURL::fileURLWithPath("/elsewhere/beep.wav"));
                     },
                     true},
        EqualityCase{"panMinusZero",
                     [](auto& s) { PlaySoundSettingsAccess::setPanTypeValue(s, -0.0f); }, true},
        EqualityCase{"id", [](auto& s) { PlaySoundSettingsAccess::setId(s, "other"); }, false},
        EqualityCase{"fileName", [](auto& s) { s.fileName = "BEEP.wav"; }, false},
        EqualityCase{"pan", [](auto& s) { PlaySoundSettingsAccess::setPanTypeValue(s, 0.001f); },
                     false},
        EqualityCase{"volume", [](auto& s) { s.volume = 0.2500001f; }, false},
        EqualityCase{"queuedPlay", [](auto& s) { s.queuedPlay = true; }, false}),
    [](const auto& p) { return std::string(p.param.name); });

TEST(PlaySoundSettingsNaNTest, ANaNVolumeIsNotEqualEvenToItsOwnCopy) {
    const PlaySoundSettings s = PlaySoundSettings::custom(
        kBeep, false, SoundsVolumeType::custom(std::numeric_limits<float>::quiet_NaN()),
        SoundsPanType::center(), false);
    const PlaySoundSettings copy = s;
    EXPECT_FALSE(copy == s);
}

} // namespace
