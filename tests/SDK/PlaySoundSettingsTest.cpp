// Playback requests: what the constructor and each factory set, where the resource form finds its
// file, and which fields take part in equality.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <string_view>
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
const FileURL kElsewhere = FileURL::fileURLWithPath("/elsewhere/beep.wav");

class PlaySoundSettingsTest : public ::testing::Test {
protected:
    PlaySoundSettingsTest() {
        bundle.setResourcePath(bundleFolder.path());
        bundleFolder.write("beep.wav");
        bundleFolder.write("click");
    }
    ~PlaySoundSettingsTest() override { bundle.setResourcePath(previousBundle); }

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

TEST_F(PlaySoundSettingsTest, EachFactorySetsItsFieldsAndEveryRecordGetsItsOwnUUID) {
    const FileURL beep = FileURL::fileURLWithPath(bundleFolder / "beep.wav");
    const struct {
        const char* name;
        PlaySoundSettings made;
        bool looped, queuedPlay;
        float volume, pan;
    } rows[] = {
        {"constructor",
         PlaySoundSettings(beep, SoundsPanType::left(), SoundsVolumeType::extraLow(), true, true),
         true, true, 0.05f, -1.0f},
        {"queued", PlaySoundSettings::queued(beep), false, true, 0.75f, 0.0f},
        {"instanly", PlaySoundSettings::instanly(beep), false, false, 0.75f, 0.0f},
        {"looped", PlaySoundSettings::looped(beep), true, false, 0.75f, 0.0f},
        {"custom unclamped",
         PlaySoundSettings::custom(beep, false, SoundsVolumeType::custom(2.0f),
                                   SoundsPanType::custom(-3.0f), true),
         false, true, 2.0f, -3.0f},
        {"bundled resource", resource("beep", "wav"), true, false, 0.5f, -1.0f},
    };
    // Upper-case hex, version 4, RFC 4122 variant; not std::regex (GCC 12 warns in it under ASan).
    const auto isUuid = [](const std::string& id) {
        const std::string_view pattern = "HHHHHHHH-HHHH-4HHH-VHHH-HHHHHHHHHHHH";
        return std::equal(pattern.begin(), pattern.end(), id.begin(), id.end(), [](char p, char c) {
            const bool hex = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
            return p == 'H' ? hex : p == 'V' ? std::string_view("89AB").find(c) < 4 : p == c;
        });
    };
    std::set<std::string> ids;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.made.looped(), row.looped);
        EXPECT_EQ(row.made.queuedPlay, row.queuedPlay);
        EXPECT_EQ(row.made.volume, row.volume);
        EXPECT_EQ(row.made.panTypeValue(), row.pan);
        EXPECT_EQ(row.made.filePathURL(), beep);
        EXPECT_EQ(row.made.fileName, "beep.wav");
        EXPECT_FALSE(row.made.ext().has_value());
        EXPECT_TRUE(isUuid(row.made.id())) << row.made.id();
        ids.insert(row.made.id());
    }
    EXPECT_EQ(ids.size(), std::size(rows));
}

TEST_F(PlaySoundSettingsTest,
       AResourceWithoutABundledFileIsTheCachesFileUncheckedWithoutExtension) {
    EXPECT_EQ(resource("click", "").filePathURL().path(), bundleFolder / "click");
    const PlaySoundSettings cached = resource("beep", "mp3");
    EXPECT_EQ(cached.filePathURL().path(), home / "caches/beep");
    EXPECT_EQ(cached.fileName, "beep");
    EXPECT_FALSE(std::filesystem::exists(home / "caches/beep"));
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
        EqualityCase{"url", [](auto& s) { Access::setFilePathURL(s, kElsewhere); }, true},
        EqualityCase{"pan minus zero", [](auto& s) { Access::setPanTypeValue(s, -0.0f); }, true},
        EqualityCase{"id", [](auto& s) { Access::setId(s, "other"); }, false},
        EqualityCase{"fileName", [](auto& s) { s.fileName = "BEEP.wav"; }, false},
        EqualityCase{"pan", [](auto& s) { Access::setPanTypeValue(s, 0.001f); }, false},
        EqualityCase{"volume", [](auto& s) { s.volume = 0.2500001f; }, false},
        EqualityCase{"queuedPlay", [](auto& s) { s.queuedPlay = true; }, false}),
    test::CaseName());

} // namespace
} // namespace vantelo_sounds
