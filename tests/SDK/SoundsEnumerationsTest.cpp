// The pan, volume and file-type enumerations made from raw values, and the speech error's text.
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vantelo_sounds/SoundsError.hpp>
#include <vantelo_sounds/SoundsFileType.hpp>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"

namespace vantelo_sounds {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kExtraLow = std::bit_cast<float>(std::uint32_t{0x3D4CCCCD});

// Raw values bit for bit: NaN equals NaN, -0.0 differs from 0.0.
void expectSameBits(float actual, float expected) {
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual)) << actual;
    } else {
        EXPECT_EQ(std::bit_cast<std::uint32_t>(actual), std::bit_cast<std::uint32_t>(expected))
            << actual << " vs " << expected;
    }
}

template <typename Kind>
struct RawCase : test::NamedCase {
    float raw;
    Kind kind;
    float rawValue; // what the value reports back
};

using PanCase = RawCase<SoundsPanType::Kind>;
using VolumeCase = RawCase<SoundsVolumeType::Kind>;
using Pan = SoundsPanType::Kind;
using Volume = SoundsVolumeType::Kind;

class SoundsPanTypeTest : public ::testing::TestWithParam<PanCase> {};

TEST_P(SoundsPanTypeTest, FromRawValueMatchesByFloatEqualityElseCustom) {
    const SoundsPanType pan = SoundsPanType::fromRawValue(GetParam().raw);
    EXPECT_EQ(pan.kind(), GetParam().kind);
    expectSameBits(pan.rawValue(), GetParam().rawValue);
}

INSTANTIATE_TEST_SUITE_P(
    RawValues, SoundsPanTypeTest,
    ::testing::Values(PanCase{"left", -1.0f, Pan::left, -1.0f},
                      PanCase{"center", 0.0f, Pan::center, 0.0f},
                      PanCase{"minus zero is center", -0.0f, Pan::center, 0.0f},
                      PanCase{"right", 1.0f, Pan::right, 1.0f},
                      PanCase{"half", 0.5f, Pan::custom, 0.5f},
                      PanCase{"unclamped", 2.0f, Pan::custom, 2.0f},
                      PanCase{"next float after right", std::nextafter(1.0f, 2.0f), Pan::custom,
                              std::nextafter(1.0f, 2.0f)},
                      PanCase{"NaN", kNaN, Pan::custom, kNaN}),
    test::CaseName());

class SoundsVolumeTypeTest : public ::testing::TestWithParam<VolumeCase> {};

TEST_P(SoundsVolumeTypeTest, FromRawValueMatchesByFloatEqualityElseCustom) {
    const SoundsVolumeType volume = SoundsVolumeType::fromRawValue(GetParam().raw);
    EXPECT_EQ(volume.kind(), GetParam().kind);
    expectSameBits(volume.rawValue(), GetParam().rawValue);
}

INSTANTIATE_TEST_SUITE_P(
    RawValues, SoundsVolumeTypeTest,
    ::testing::Values(VolumeCase{"silent", 0.0f, Volume::silent, 0.0f},
                      VolumeCase{"minus zero is silent", -0.0f, Volume::silent, 0.0f},
                      VolumeCase{"extraLow", kExtraLow, Volume::extraLow, kExtraLow},
                      VolumeCase{"near extraLow", 0.050001f, Volume::custom, 0.050001f},
                      VolumeCase{"low", 0.25f, Volume::low, 0.25f},
                      VolumeCase{"medium", 0.5f, Volume::medium, 0.5f},
                      VolumeCase{"high", 0.75f, Volume::high, 0.75f},
                      VolumeCase{"max", 1.0f, Volume::max, 1.0f},
                      VolumeCase{"unclamped", 2.0f, Volume::custom, 2.0f},
                      VolumeCase{"NaN", kNaN, Volume::custom, kNaN}),
    test::CaseName());

TEST(SoundsFileTypeTest, FromRawValueIsAlwaysCustomWithTheTextUnchanged) {
    for (const std::string raw : {"wav", "mp3", "WAV", ""}) {
        const auto parsed = SoundsFileType::fromRawValue(raw);
        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(parsed->kind(), SoundsFileType::Kind::custom) << raw;
        EXPECT_EQ(parsed->rawValue(), raw);
    }
}

TEST(SoundsErrorTest, DescribesItselfInTheLibrarysDomainWithCaseIndexZero) {
    const std::error_code error = SoundsError::VoiceEngineIsUnavailableForSelectedLanguage;
    EXPECT_NE(error, std::error_code{}) << "another category's zero is a different error";
    EXPECT_EQ(errorDescription(error),
              "Error Domain=vantelo_sounds.SoundsError Code=0 \"The speech voice is unavailable "
              "for the selected language.\"");
}

} // namespace
} // namespace vantelo_sounds
