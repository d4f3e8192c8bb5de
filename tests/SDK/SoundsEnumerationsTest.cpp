// The pan and volume enumerations made from raw values.
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

// fromRawValue gives the named case whose raw value equals `raw` as a float (-0.0 is center), else
// custom: either way the raw value that comes back equals the float that went in (NaN stays NaN).
template <typename Type>
void expectFromRawValue(std::initializer_list<std::pair<float, typename Type::Kind>> rows) {
    for (const auto& [raw, kind] : rows) {
        const Type value = Type::fromRawValue(raw);
        EXPECT_EQ(value.kind(), kind) << raw;
        EXPECT_TRUE(std::isnan(raw) ? std::isnan(value.rawValue()) : value.rawValue() == raw)
            << raw;
    }
}

TEST(SoundsLevelTypesTest, FromRawValueMatchesByFloatEqualityElseCustom) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    using Pan = SoundsPanType::Kind;
    expectFromRawValue<SoundsPanType>({{-1.0f, Pan::left},
                                       {-0.0f, Pan::center},
                                       {1.0f, Pan::right},
                                       {0.5f, Pan::custom},
                                       {kNaN, Pan::custom}});
    using Volume = SoundsVolumeType::Kind;
    expectFromRawValue<SoundsVolumeType>(
        {{-0.0f, Volume::silent},
         {std::bit_cast<float>(std::uint32_t{0x3D4CCCCD}), Volume::extraLow},
         {0.050001f, Volume::custom},
         {0.25f, Volume::low},
         {0.5f, Volume::medium},
         {0.75f, Volume::high},
         {1.0f, Volume::max},
         {kNaN, Volume::custom}});
}

} // namespace
} // namespace vantelo_sounds
