// Each variant of the mix loops (scalar, SSE, AVX2, the one picked) against the plain loop: every
// tail length, unaligned pointers, distinct samples (a constant would hide a wrong lane order).
#include "engine/mix/MixKernel.hpp"

#include <cmath>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"

namespace vantelo_sounds::engine {
namespace {

constexpr float kLeft = 0.3f;
constexpr float kRight = -0.7f;
// Empty, shorter than a vector, every tail of the widest vectors; 1031: a usual block and a tail.
constexpr std::size_t kLengths[] = {0, 1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 23, 31, 32, 33, 1031};

std::vector<float> ramp(std::size_t count, float scale) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = scale * (static_cast<float>(i % 97) - 48.0f) / 48.0f;
    }
    return values;
}

struct VariantCase : test::NamedCase {
    std::optional<MixKernel::Variant> variant; // none: the one the library picks
};

class MixKernelTest : public ::testing::TestWithParam<VariantCase> {
protected:
    void SetUp() override {
        static const MixKernel::Table picked{MixKernel::addMono, MixKernel::addStereo,
                                             MixKernel::clampToFullScale};
        const auto& variant = GetParam().variant;
        kernels = variant ? MixKernel::kernels(*variant) : &picked;
        if (kernels == nullptr) {
            GTEST_SKIP() << "this processor or build has no " << GetParam().name;
        }
    }

    const MixKernel::Table* kernels = nullptr;
};

TEST_P(MixKernelTest, MonoAndStereoMatchThePlainLoopBitForBit) {
    for (const std::size_t channels : {1, 2}) {
        for (const std::size_t frames : kLengths) {
            // One float of offset: neither pointer is vector-aligned.
            const auto src = ramp(channels * frames + 1, 0.9f);
            auto out = ramp(2 * frames + 2, 0.25f);
            auto expected = out;
            for (std::size_t i = 0; i < frames; ++i) {
                expected[1 + 2 * i] += src[1 + channels * i] * kLeft;
                expected[2 + 2 * i] += src[channels * (i + 1)] * kRight;
            }
            (channels == 1 ? kernels->addMono : kernels->addStereo)(out.data() + 1, src.data() + 1,
                                                                    frames, kLeft, kRight);
            EXPECT_EQ(out, expected) << channels << " channels, " << frames << " frames";
        }
    }
}

TEST_P(MixKernelTest, ClampScrubsNaNAndClampsEveryLaneWithinItsRange) {
    const float specials[] = {NAN, INFINITY, -INFINITY, 1.5f, -1.5f, 1.0f, -0.0f, 0.25f};
    for (const std::size_t count : kLengths) {
        std::vector<float> samples(count + 2, 7.0f);
        for (std::size_t i = 1; i <= count; ++i) {
            samples[i] = specials[(i + count) % std::size(specials)];
        }
        auto expected = samples;
        for (std::size_t i = 1; i <= count; ++i) {
            const float x = expected[i];
            expected[i] = std::isnan(x) ? 0.0f : std::fmax(-1.0f, std::fmin(1.0f, x));
        }
        kernels->clampToFullScale(samples.data() + 1, count);
        EXPECT_EQ(samples, expected) << count << " samples; the 7s around them stay";
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, MixKernelTest,
                         ::testing::Values(VariantCase{"scalar", MixKernel::Variant::scalar},
                                           VariantCase{"sse", MixKernel::Variant::sse},
                                           VariantCase{"avx2", MixKernel::Variant::avx2},
                                           VariantCase{"picked", std::nullopt}),
                         test::CaseName());

} // namespace
} // namespace vantelo_sounds::engine
