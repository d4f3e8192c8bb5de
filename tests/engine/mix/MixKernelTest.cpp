// The vector kernels against the plain scalar loops they replace: every length (so every tail),
// unaligned pointers, and distinct samples (a constant source would hide a wrong lane order).
#include "engine/mix/MixKernel.hpp"

#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds::engine {
namespace {

constexpr float kLeft = 0.3f;
constexpr float kRight = -0.7f;

std::vector<float> ramp(std::size_t count, float scale) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = scale * (static_cast<float>(i % 97) - 48.0f) / 48.0f;
    }
    return values;
}

class MixKernelTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(MixKernelTest, MonoMatchesTheScalarLoopBitForBit) {
    const std::size_t frames = GetParam();
    // One float of offset: neither pointer is vector-aligned.
    const auto src = ramp(frames + 1, 0.9f);
    auto out = ramp(2 * frames + 1, 0.25f);
    auto expected = out;
    for (std::size_t i = 0; i < frames; ++i) {
        expected[1 + 2 * i] += src[1 + i] * kLeft;
        expected[1 + 2 * i + 1] += src[1 + i] * kRight;
    }
    MixKernel::addMono(out.data() + 1, src.data() + 1, frames, kLeft, kRight);
    EXPECT_EQ(out, expected);
}

TEST_P(MixKernelTest, StereoMatchesTheScalarLoopBitForBit) {
    const std::size_t frames = GetParam();
    const auto src = ramp(2 * frames + 1, 0.9f);
    auto out = ramp(2 * frames + 1, 0.25f);
    auto expected = out;
    for (std::size_t i = 0; i < frames; ++i) {
        expected[1 + 2 * i] += src[1 + 2 * i] * kLeft;
        expected[1 + 2 * i + 1] += src[1 + 2 * i + 1] * kRight;
    }
    MixKernel::addStereo(out.data() + 1, src.data() + 1, frames, kLeft, kRight);
    EXPECT_EQ(out, expected);
}

TEST_P(MixKernelTest, ClampScrubsNaNAndClampsEveryLane) {
    const std::size_t count = GetParam();
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(),
                              1.5f,
                              -1.5f,
                              1.0f,
                              -1.0f,
                              0.25f,
                              -0.0f};
    std::vector<float> samples(count + 1);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = specials[i % std::size(specials)];
    }
    auto expected = samples;
    for (std::size_t i = 1; i < expected.size(); ++i) {
        const float x = expected[i];
        expected[i] = std::isnan(x) ? 0.0f : std::fmax(-1.0f, std::fmin(1.0f, x));
    }
    MixKernel::clampToFullScale(samples.data() + 1, count);
    ASSERT_EQ(samples.size(), expected.size());
    EXPECT_TRUE(std::isnan(samples[0])) << "nothing before the range is touched";
    for (std::size_t i = 1; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i], expected[i]) << "sample " << i;
    }
}

// 0 to 40 covers empty runs, runs shorter than one vector and every tail length of the
// widest vectors; 1024 is the usual block.
INSTANTIATE_TEST_SUITE_P(Lengths, MixKernelTest,
                         ::testing::Values(0, 1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 23, 31, 32, 33, 40,
                                           1024, 1031));

} // namespace
} // namespace vantelo_sounds::engine
