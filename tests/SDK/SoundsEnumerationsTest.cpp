// The raw values of the pan, volume and file-type enumerations, both ways, and the two plain
// enumerations' errors and hashes.
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vantelo_sounds/GameSkinName.hpp>
#include <vantelo_sounds/SoundsError.hpp>
#include <vantelo_sounds/SoundsFileType.hpp>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>

#include <gtest/gtest.h>

namespace vts = vantelo_sounds;
using vts::SoundsPanType;
using vts::SoundsVolumeType;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// Compares raw values bit for bit (NaN equals NaN, -0.0 differs from 0.0).
void expectSameBits(float actual, float expected) {
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual)) << actual;
    } else {
        EXPECT_EQ(std::bit_cast<std::uint32_t>(actual), std::bit_cast<std::uint32_t>(expected))
            << actual << " vs " << expected;
    }
}

// ---- pan -------------------------------------------------------------------------------------

struct PanCase {
    float raw;
    SoundsPanType::Kind kind;
    float rawValue; // what the value reports back
};

class SoundsPanTypeTest : public ::testing::TestWithParam<PanCase> {};

TEST_P(SoundsPanTypeTest, FromRawValueMatchesByFloatEquality) {
    const SoundsPanType pan = SoundsPanType::fromRawValue(GetParam().raw);
    EXPECT_EQ(pan.kind(), GetParam().kind);
    expectSameBits(pan.rawValue(), GetParam().rawValue);
}

using PanKind = SoundsPanType::Kind;
INSTANTIATE_TEST_SUITE_P(
    RawValues, SoundsPanTypeTest,
    ::testing::Values(PanCase{-1.0f, PanKind::left, -1.0f}, PanCase{0.0f, PanKind::center, 0.0f},
                      PanCase{-0.0f, PanKind::center, 0.0f}, PanCase{1.0f, PanKind::right, 1.0f},
                      PanCase{0.5f, PanKind::custom, 0.5f}, PanCase{2.0f, PanKind::custom, 2.0f},
                      PanCase{std::nextafter(1.0f, 2.0f), PanKind::custom,
                              std::nextafter(1.0f, 2.0f)},
                      PanCase{-kInf, PanKind::custom, -kInf},
                      PanCase{kNaN, PanKind::custom, kNaN}));

TEST(SoundsPanTypeNamedTest, NamedPositionsCarryTheirRawValuesAndCustomIsNotClamped) {
    expectSameBits(SoundsPanType::left().rawValue(), -1.0f);
    expectSameBits(SoundsPanType::center().rawValue(), 0.0f);
    expectSameBits(SoundsPanType::right().rawValue(), 1.0f);
    const SoundsPanType custom = SoundsPanType::custom(-7.5f);
    EXPECT_EQ(custom.kind(), PanKind::custom);
    expectSameBits(custom.customValue(), -7.5f);
    expectSameBits(custom.rawValue(), -7.5f);
    // A custom value equal to a named one stays custom until it goes through its raw value.
    EXPECT_EQ(SoundsPanType::custom(1.0f).kind(), PanKind::custom);
    EXPECT_EQ(SoundsPanType::fromRawValue(SoundsPanType::custom(1.0f).rawValue()).kind(),
              PanKind::right);
}

// ---- volume ----------------------------------------------------------------------------------

struct VolumeCase {
    float raw;
    SoundsVolumeType::Kind kind;
    float rawValue;
};

class SoundsVolumeTypeTest : public ::testing::TestWithParam<VolumeCase> {};

TEST_P(SoundsVolumeTypeTest, FromRawValueMatchesByFloatEquality) {
    const SoundsVolumeType volume = SoundsVolumeType::fromRawValue(GetParam().raw);
    EXPECT_EQ(volume.kind(), GetParam().kind);
    expectSameBits(volume.rawValue(), GetParam().rawValue);
}

using VolKind = SoundsVolumeType::Kind;
const float kExtraLowBits = std::bit_cast<float>(std::uint32_t{0x3D4CCCCD});
INSTANTIATE_TEST_SUITE_P(
    RawValues, SoundsVolumeTypeTest,
    ::testing::Values(
        VolumeCase{0.0f, VolKind::silent, 0.0f}, VolumeCase{-0.0f, VolKind::silent, 0.0f},
        VolumeCase{kExtraLowBits, VolKind::extraLow, kExtraLowBits},
        VolumeCase{0.050001f, VolKind::custom, 0.050001f},
        VolumeCase{std::nextafter(kExtraLowBits, 0.0f), VolKind::custom,
                   std::nextafter(kExtraLowBits, 0.0f)},
        VolumeCase{0.25f, VolKind::low, 0.25f}, VolumeCase{0.5f, VolKind::medium, 0.5f},
        VolumeCase{0.75f, VolKind::high, 0.75f}, VolumeCase{1.0f, VolKind::max, 1.0f},
        VolumeCase{2.0f, VolKind::custom, 2.0f}, VolumeCase{-0.25f, VolKind::custom, -0.25f},
        VolumeCase{kNaN, VolKind::custom, kNaN}));

TEST(SoundsVolumeTypeNamedTest, NamedLevelsRoundTripThroughTheirRawValues) {
    EXPECT_EQ(std::bit_cast<std::uint32_t>(SoundsVolumeType::extraLow().rawValue()), 0x3D4CCCCDu);
    for (const SoundsVolumeType level :
         {SoundsVolumeType::silent(), SoundsVolumeType::extraLow(), SoundsVolumeType::low(),
          SoundsVolumeType::medium(), SoundsVolumeType::high(), SoundsVolumeType::max()}) {
        EXPECT_EQ(SoundsVolumeType::fromRawValue(level.rawValue()).kind(), level.kind());
    }
    expectSameBits(SoundsVolumeType::custom(3.5f).rawValue(), 3.5f);
}

// ---- file type -------------------------------------------------------------------------------

TEST(SoundsFileTypeTest, FromRawValueIsAlwaysCustomWithTheTextUnchanged) {
    using Kind = vts::SoundsFileType::Kind;
    const struct {
        vts::SoundsFileType named;
        const char* raw;
    } named[] = {{vts::SoundsFileType::wav(), "wav"},
                 {vts::SoundsFileType::m4p(), "m4p"},
                 {vts::SoundsFileType::mp3(), "mp3"},
                 {vts::SoundsFileType::m4a(), "m4a"}};
    for (const auto& entry : named) {
        EXPECT_EQ(entry.named.rawValue(), entry.raw);
        const auto parsed = vts::SoundsFileType::fromRawValue(entry.raw);
        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(parsed->kind(), Kind::custom) << entry.raw;
        EXPECT_EQ(parsed->rawValue(), entry.raw);
    }
    for (const std::string& raw :
         {std::string(""), std::string("WAV"), std::string(".mp3"), std::string("a\0b", 3)}) {
        const auto parsed = vts::SoundsFileType::fromRawValue(raw);
        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(parsed->kind(), Kind::custom);
        EXPECT_EQ(parsed->rawValue(), raw);
    }
}

// ---- the speech error and the game skins -------------------------------------------------------

TEST(SoundsErrorTest, IsAnErrorValueWithTheLibrarysDomainAndCaseIndexZero) {
    const std::error_code error = vts::SoundsError::VoiceEngineIsUnavailableForSelectedLanguage;
    EXPECT_STREQ(error.category().name(), "vantelo_sounds.SoundsError");
    EXPECT_EQ(error.value(), 0);
    EXPECT_EQ(&error.category(), &vts::soundsErrorCategory());
    EXPECT_EQ(vts::localizedDescription(error),
              "The speech voice is unavailable for the selected language.");
    EXPECT_EQ(vts::errorDescription(error),
              "Error Domain=vantelo_sounds.SoundsError Code=0 \"The speech voice is unavailable "
              "for the selected language.\"");
    EXPECT_NE(error, std::error_code{}) << "another category's zero is a different error";
    EXPECT_EQ(std::hash<vts::SoundsError>{}(
                  vts::SoundsError::VoiceEngineIsUnavailableForSelectedLanguage),
              std::hash<std::size_t>{}(0));
}

TEST(GameSkinNameTest, TenCasesHashedByTheirIndexAsAMachineWord) {
    std::set<std::size_t> hashes;
    for (std::size_t index = 0; index < 10; ++index) {
        const auto skin = static_cast<vts::GameSkinName>(index);
        EXPECT_EQ(std::hash<vts::GameSkinName>{}(skin), std::hash<std::size_t>{}(index));
        hashes.insert(std::hash<vts::GameSkinName>{}(skin));
    }
    EXPECT_EQ(hashes.size(), 10u);
    EXPECT_EQ(static_cast<int>(vts::GameSkinName::retro), 9);
}

} // namespace
