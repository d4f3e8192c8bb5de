// The decoded-sound cache: hits share one sound, changed files are decoded again, eviction
// spares sounds in use, a miss returns before decoding and then fills, and bad files leave no
// entry. What a load costs is measured in bench/player_bench.cpp.

#include "engine/cache/SoundCache.hpp"

#include <filesystem>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::OpenError;
using engine::SoundCache;
using engine::SoundData;
using Sound = std::shared_ptr<const SoundData>;

std::size_t bytesOfSeconds(double seconds, int channels) {
    const auto frames = static_cast<std::size_t>(seconds * engine::kMixRate);
    return SoundData::storageFramesFor(frames) * static_cast<std::size_t>(channels) * sizeof(float);
}

class SoundCacheTest : public ::testing::Test {
protected:
    SoundFixtures fixtures;

    static Sound loaded(SoundCache& cache, const std::string& path) {
        auto result = cache.load(path);
        EXPECT_TRUE(result) << path << ": " << (result ? "" : result.failure().describe());
        return result ? result.value() : nullptr;
    }
};

TEST_F(SoundCacheTest, HitSharesTheSoundAndAChangedFileIsDecodedAgainAfterTheRecheckTime) {
    SoundCache cache;
    SoundCache trusting(std::size_t{64} << 20, std::chrono::hours(1));
    const std::string file = fixtures.tone("changing.wav", 440, 0.5);
    const Sound before = loaded(cache, file);
    const Sound trusted = loaded(trusting, file);
    EXPECT_EQ(loaded(cache, file), before);
    cache.waitIdle();
    trusting.waitIdle();
    fixtures.tone("changing.wav", 880, 0.25);
    EXPECT_EQ(loaded(trusting, file), trusted) << "no stat within the recheck time";
    const Sound after = loaded(cache, file);
    ASSERT_NE(after, before);
    cache.waitIdle();
    EXPECT_EQ(before->frames(), 24000u) << "a holder of the old sound keeps it whole";
    EXPECT_FALSE(before->failed());
    EXPECT_EQ(after->frames(), 12000u);
    EXPECT_EQ(cache.entries(), 1u);
}

TEST_F(SoundCacheTest, EvictionSparesSoundsInUseThenTakesTheLeastRecentlyUsed) {
    SoundCache cache(bytesOfSeconds(1.0, 1) * 2); // room for two one-second mono sounds
    const auto load = [&](const std::string& path) {
        Sound sound = loaded(cache, path);
        cache.waitIdle();
        EXPECT_LE(cache.bytes(), cache.byteBudget());
        return sound;
    };
    const auto second = [&](const std::string& name) {
        return fixtures.tone(name, 440, 1.0);
    };
    const std::string heldFile = second("held.wav");
    Sound held = load(heldFile);
    std::vector<std::weak_ptr<const SoundData>> others;
    for (int i = 0; i < 4; ++i) {
        others.push_back(load(second("other" + std::to_string(i) + ".wav")));
    }
    EXPECT_TRUE(others.front().expired()) << "unused sounds go when the budget is exceeded";
    EXPECT_EQ(load(heldFile), held) << "the sound in use was evicted";
    EXPECT_EQ(held->frames(), 48000u);

    // Once nobody holds it, it goes like any other, the least recently used first.
    std::weak_ptr<const SoundData> released = held;
    held.reset();
    load(second("next1.wav"));
    EXPECT_TRUE(others.back().expired());
    EXPECT_FALSE(released.expired()) << "used more recently than other3";
    load(second("next2.wav"));
    EXPECT_TRUE(released.expired());
}

TEST_F(SoundCacheTest, MissReturnsBeforeDecodingThenFillsAndWhatIsPendingFailsWithTheCache) {
    Sound pending;
    {
        SoundCache cache;
        cache.setDecodingPaused(true);
        std::vector<Sound> sounds;
        for (int i = 0; i < 3; ++i) {
            const auto name = "many" + std::to_string(i) + ".wav";
            sounds.push_back(loaded(cache, fixtures.tone(name, 440, 1.0 + i, 44100)));
            EXPECT_EQ(sounds.back()->frames(), 0u) << "load must not decode on the caller's thread";
        }
        sounds.push_back(
            loaded(cache, fixtures.encoded("four.m4a", engine::AudioFileFormat::m4a, 440, 4.0)));
        cache.setDecodingPaused(false);
        sounds.back()->waitForFrames(engine::kMixRate / 2);
        EXPECT_GE(sounds.back()->frames(), std::size_t(engine::kMixRate / 2));
        cache.waitIdle();
        for (std::size_t i = 0; i < sounds.size(); ++i) {
            EXPECT_TRUE(sounds[i]->isComplete());
            EXPECT_FALSE(sounds[i]->failed());
            EXPECT_EQ(sounds[i]->frames(), (1 + i) * engine::kMixRate);
        }
        cache.setDecodingPaused(true);
        pending = loaded(cache, fixtures.tone("pending.wav", 440, 1.0));
    }
    EXPECT_TRUE(pending->isComplete());
    EXPECT_TRUE(pending->failed());
}

TEST_F(SoundCacheTest, BadTooLargeAndVanishedFilesLeaveNoEntryAndAHugeClaimCostsWhatIsThere) {
    SoundCache cache(bytesOfSeconds(1.0, 2));
    for (const auto kind : {SoundFixtures::BadFile::missing, SoundFixtures::BadFile::fifo,
                            SoundFixtures::BadFile::text, SoundFixtures::BadFile::concatScript}) {
        EXPECT_FALSE(cache.load(fixtures.bad(kind)));
    }
    EXPECT_EQ(cache.load(fixtures.tone("long.wav", 440, 3.0, 48000, 2)).error(),
              OpenError::tooLarge);
    EXPECT_EQ(cache.entries(), 0u);

    const std::string file = fixtures.tone("vanishing.wav", 440, 0.1);
    ASSERT_TRUE(loaded(cache, file));
    std::filesystem::remove(file);
    EXPECT_EQ(cache.load(file).error(), OpenError::fileNotFound);
    EXPECT_EQ(cache.entries(), 0u);

    // A header claiming billions of samples over 28 real ones.
    const Sound huge = loaded(cache, fixtures.bad(SoundFixtures::BadFile::wavHugeDataSize));
    cache.waitIdle();
    EXPECT_TRUE(huge->isComplete());
    EXPECT_EQ(huge->frames(), 28u);
    EXPECT_LE(cache.bytes(), bytesOfSeconds(1.0, 1));
}

TEST_F(SoundCacheTest, LoadsFromSeveralThreadsShareSounds) {
    SoundCache cache;
    std::vector<std::string> files;
    for (int i = 0; i < 4; ++i) {
        files.push_back(fixtures.tone("shared" + std::to_string(i) + ".wav", 440, 0.3));
    }
    std::vector<Sound> seen[2];
    const auto loadAll = [&](std::vector<Sound>& into) {
        for (std::size_t round = 0; round < 80; ++round) {
            into.push_back(loaded(cache, files[round % files.size()]));
        }
    };
    std::thread other(loadAll, std::ref(seen[1]));
    loadAll(seen[0]);
    other.join();
    EXPECT_EQ(cache.entries(), files.size());
    EXPECT_EQ(seen[0], seen[1]) << "one sound per file";
}

} // namespace
} // namespace vantelo_sounds::test
