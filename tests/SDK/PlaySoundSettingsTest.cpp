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

TEST(PlaySoundSettingsTest, EachFactorySetsItsFieldsAndEveryRecordGetsItsOwnUUID) {
    const struct {
        const char* name;
        PlaySoundSettings made;
        bool looped, queuedPlay;
        float volume, pan;
    } rows[] = {
        {"constructor",
         PlaySoundSettings(kBeep, SoundsPanType::left(), SoundsVolumeType::extraLow(), true, true),
         true, true, 0.05f, -1.0f},
        {"queued", PlaySoundSettings::queued(kBeep), false, true, 0.75f, 0.0f},
        {"instanly", PlaySoundSettings::instanly(kBeep), false, false, 0.75f, 0.0f},
        {"looped", PlaySoundSettings::looped(kBeep), true, false, 0.75f, 0.0f},
        {"custom unclamped",
         PlaySoundSettings::custom(kBeep, false, SoundsVolumeType::custom(2.0f),
                                   SoundsPanType::custom(-3.0f), true),
         false, true, 2.0f, -3.0f},
    };
    // Upper-case hexadecimal, version 4, RFC 4122 variant.
    const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> ids;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.made.looped(), row.looped);
        EXPECT_EQ(row.made.queuedPlay, row.queuedPlay);
        EXPECT_EQ(row.made.volume, row.volume);
        EXPECT_EQ(row.made.panTypeValue(), row.pan);
        EXPECT_EQ(row.made.filePathURL(), kBeep);
        EXPECT_EQ(row.made.fileName, "beep.wav");
        EXPECT_FALSE(row.made.ext().has_value());
        EXPECT_TRUE(std::regex_match(row.made.id(), uuid)) << row.made.id();
        ids.insert(row.made.id());
    }
    EXPECT_EQ(ids.size(), std::size(rows));
}

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

TEST_F(PlaySoundSettingsResourceTest,
       ABundledResourceIsUsedElseTheCachesFileUncheckedWithoutExtension) {
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

    const PlaySoundSettings cached = resource("jump", "mp3");
    EXPECT_EQ(cached.filePathURL().path(), home / "caches/jump");
    EXPECT_EQ(cached.fileName, "jump");
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
