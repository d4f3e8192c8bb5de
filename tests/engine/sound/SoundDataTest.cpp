// SoundData: frames written in pieces of any size read back exactly across its growing chunks,
// and its bound holds. (A reader waiting for frames is SoundCacheTest's pending decode.)
#include "engine/sound/SoundData.hpp"

#include <numeric>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds::engine {
namespace {

std::vector<float> ramp(std::size_t samples) {
    std::vector<float> values(samples);
    std::iota(values.begin(), values.end(), 0.0f);
    return values;
}

class SoundDataPieces : public ::testing::TestWithParam<std::size_t> {};

TEST_P(SoundDataPieces, ReadBackEveryFrameAcrossChunks) {
    const std::size_t total = SoundData::kFirstChunkFrames * 7 + 123;
    const auto source = ramp(total * 2);
    SoundData data(2, total);
    for (std::size_t done = 0; done < total;) {
        const std::size_t n = std::min(GetParam(), total - done);
        ASSERT_EQ(data.append(source.data() + done * 2, n), n);
        done += n;
    }
    std::vector<float> back(total * 2);
    ASSERT_EQ(data.read(0, back.data(), total), total);
    EXPECT_EQ(back, source);
    // Contiguous runs end exactly at chunk edges: 4096, then 8192 more, ...
    std::size_t contiguous = 0;
    EXPECT_NE(data.framesAt(SoundData::kFirstChunkFrames - 1, contiguous), nullptr);
    EXPECT_EQ(contiguous, 1u);
    EXPECT_EQ(*data.framesAt(SoundData::kFirstChunkFrames, contiguous),
              source[SoundData::kFirstChunkFrames * 2]);
    EXPECT_EQ(contiguous, 2 * SoundData::kFirstChunkFrames);
    EXPECT_EQ(data.bytes(), SoundData::storageFramesFor(total) * 2 * sizeof(float));
}

INSTANTIATE_TEST_SUITE_P(PieceSizes, SoundDataPieces, ::testing::Values(1, 1000, 4096, 10007),
                         [](const auto& param) { return "frames" + std::to_string(param.param); });

TEST(SoundDataTest, RefusesFramesBeyondItsBoundAndCostsOneChunkWhenShort) {
    SoundData data(1, 100);
    const auto source = ramp(150);
    EXPECT_EQ(data.append(source.data(), 150), 100u);
    EXPECT_EQ(data.append(source.data(), 1), 0u);
    EXPECT_EQ(data.bytes(), SoundData::kFirstChunkFrames * sizeof(float));
    std::size_t contiguous = 1;
    EXPECT_EQ(data.framesAt(100, contiguous), nullptr);
    EXPECT_EQ(contiguous, 0u);
}

} // namespace
} // namespace vantelo_sounds::engine
