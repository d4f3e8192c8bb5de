// Playback requests: what the constructor and each factory set, where the resource form finds its
// file, and which fields take part in equality.
#include <filesystem>
#include <functional>
#include <regex>
#include <set>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>

#include <gtest/gtest.h>

#include "SDK/Sound/PlaySoundSettingsAccess.hpp"
#include "support/NamedCase.hpp"
#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

using Access = PlaySoundSettingsAccess;
const FileURL kBeep = FileURL::fileURLWithPath("/sounds/beep.wav");

TEST(PlaySoundSettingsTest, EveryRecordGetsItsOwnCanonicalUpperCaseVersion4UUID) {
    // 8-4-4-4-12 upper-case hexadecimal digits, version 4, RFC 4122 variant.
    const std::regex canonical(
        "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> ids;
    for (int i = 0; i < 200; ++i) {
        const std::string id = PlaySoundSettings::instanly(kBeep).id();
        ASSERT_TRUE(std::regex_match(id, canonical)) << id;
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 200u);
}

struct FactoryCase : test::NamedCase {
    std::function<PlaySoundSettings()> make;
    bool looped;
    bool queuedPlay;
    float volume;
    float pan;
};

class PlaySoundSettingsFactoryTest : public ::testing::TestWithParam<FactoryCase> {};

TEST_P(PlaySoundSettingsFactoryTest, SetsItsFieldsAndANewIdentity) {
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
    ::testing::Values(FactoryCase{"constructor",
                                  [] {
                                      return PlaySoundSettings(kBeep, SoundsPanType::left(),
                                                               SoundsVolumeType::extraLow(), true,
                                                               true);
                                  },
                                  true, true, 0.05f, -1.0f},
                      FactoryCase{"queued", [] { return PlaySoundSettings::queued(kBeep); }, false,
                                  true, 0.75f, 0.0f},
                      FactoryCase{"instanly", [] { return PlaySoundSettings::instanly(kBeep); },
                                  false, false, 0.75f, 0.0f},
                      FactoryCase{"looped", [] { return PlaySoundSettings::looped(kBeep); }, true,
                                  false, 0.75f, 0.0f},
                      FactoryCase{"custom URL",
                                  [] {
                                      return PlaySoundSettings::custom(
                                          kBeep, true, SoundsVolumeType::low(),
                                          SoundsPanType::right(), true);
                                  },
                                  true, true, 0.25f, 1.0f},
                      FactoryCase{"custom URL unclamped",
                                  [] {
                                      return PlaySoundSettings::custom(
                                          kBeep, false, SoundsVolumeType::custom(2.0f),
                                          SoundsPanType::custom(-3.0f), false);
                                  },
                                  false, false, 2.0f, -3.0f}),
    test::CaseName());

class PlaySoundSettingsResourceTest : public ::testing::Test {
protected:
    PlaySoundSettingsResourceTest() { bundle.setResourcePath(bundleFolder.path()); }
    ~PlaySoundSettingsResourceTest() override { bundle.setResourcePath(previousBundle); }

    static PlaySoundSettings resource(const std::string& file, const std::string& ext) {
        return PlaySoundSettings::custom(file, ext, true, SoundsVolumeType::medium(),
                                         SoundsPanType::left(), false);
    }

    test::TempFolder bundleFolder;
    test::TempFolder home;
    test::ScopedEnv caches{"XDG_CACHE_HOME", home / "caches"};
    Bundle& bundle = Bundle::main();
    std::string previousBundle = bundle.resourcePath();
};

TEST_F(PlaySoundSettingsResourceTest, ABundledResourceIsUsedWithItsExtension) {
    bundleFolder.write("jump.wav");
    bundleFolder.write("click");
    const PlaySoundSettings s = resource("jump", "wav");
    EXPECT_EQ(s.filePathURL(), FileURL::fileURLWithPath(bundleFolder / "jump.wav"));
    EXPECT_EQ(s.fileName, "jump.wav");
    EXPECT_FALSE(s.ext().has_value());
    EXPECT_TRUE(s.looped());
    EXPECT_FALSE(s.queuedPlay);
    EXPECT_EQ(s.volume, 0.5f);
    EXPECT_EQ(s.panTypeValue(), -1.0f);
    EXPECT_EQ(resource("click", "").filePathURL().path(), bundleFolder / "click");
}

TEST_F(PlaySoundSettingsResourceTest, OtherwiseTheCachesFileWithoutTheExtensionUnchecked) {
    bundleFolder.write("jump.mp3");
    const PlaySoundSettings s = resource("jump", "wav");
    EXPECT_EQ(s.filePathURL().path(), home / "caches/jump");
    EXPECT_EQ(s.fileName, "jump");
    EXPECT_FALSE(std::filesystem::exists(home / "caches/jump"));
}

struct EqualityCase : test::NamedCase {
    std::function<void(PlaySoundSettings&)> change;
    bool stillEqual;
};

class PlaySoundSettingsEqualityTest : public ::testing::TestWithParam<EqualityCase> {};

TEST_P(PlaySoundSettingsEqualityTest, ACopyChangedInOneFieldComparesByIdNamePanVolumeAndQueue) {
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
        EqualityCase{"looped", [](auto& s) { Access::setLooped(s, true); }, true},
        EqualityCase{"ext", [](auto& s) { Access::setExt(s, "wav"); }, true},
        EqualityCase{"url",
                     [](auto& s) {
                         Access::setFilePathURL(s, FileURL::fileURLWithPath("/elsewhere/beep.wav"));
                     },
                     true},
        EqualityCase{"pan minus zero", [](auto& s) { Access::setPanTypeValue(s, -0.0f); }, true},
        EqualityCase{"id", [](auto& s) { Access::setId(s, "other"); }, false},
        EqualityCase{"fileName", [](auto& s) { s.fileName = "BEEP.wav"; }, false},
        EqualityCase{"pan", [](auto& s) { Access::setPanTypeValue(s, 0.001f); }, false},
        EqualityCase{"volume", [](auto& s) { s.volume = 0.2500001f; }, false},
        EqualityCase{"queuedPlay", [](auto& s) { s.queuedPlay = true; }, false}),
    test::CaseName());

} // namespace
} // namespace vantelo_sounds
