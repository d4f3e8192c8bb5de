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

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kExtraLow = std::bit_cast<float>(std::uint32_t{0x3D4CCCCD});

// fromRawValue gives the named case whose raw value equals `raw` as a float (so -0.0 is 0.0), else
// custom carrying `raw` unchanged; compared bit for bit (NaN equals NaN, -0.0 differs from 0.0).
template <typename Type>
void expectFromRawValue(std::initializer_list<std::pair<float, typename Type::Kind>> rows) {
    for (const auto& [raw, kind] : rows) {
        const Type value = Type::fromRawValue(raw);
        EXPECT_EQ(value.kind(), kind) << raw;
        const float reported = value.rawValue();
        EXPECT_TRUE(std::isnan(raw) ? std::isnan(reported)
                                    : std::bit_cast<std::uint32_t>(reported) ==
                                          std::bit_cast<std::uint32_t>(raw == 0.0f ? 0.0f : raw))
            << raw << " reported as " << reported;
    }
}

TEST(SoundsLevelTypesTest, FromRawValueMatchesByFloatEqualityElseCustom) {
    using Pan = SoundsPanType::Kind;
    expectFromRawValue<SoundsPanType>({{-1.0f, Pan::left},
                                       {-0.0f, Pan::center},
                                       {1.0f, Pan::right},
                                       {0.5f, Pan::custom},
                                       {kNaN, Pan::custom}});
    using Volume = SoundsVolumeType::Kind;
    expectFromRawValue<SoundsVolumeType>({{-0.0f, Volume::silent},
                                          {kExtraLow, Volume::extraLow},
                                          {0.050001f, Volume::custom},
                                          {0.25f, Volume::low},
                                          {0.5f, Volume::medium},
                                          {0.75f, Volume::high},
                                          {1.0f, Volume::max},
                                          {kNaN, Volume::custom}});
}

} // namespace
} // namespace vantelo_sounds
