// The decoded-sound cache: hits share one object, changed files are decoded again, eviction
// spares sounds in use, decode-ahead returns before the decode and then fills, and bad files
// leave no entry.

#include "engine/cache/SoundCache.hpp"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"
#include "support/SoundFixtures.hpp"

namespace vantelo_sounds::test {
namespace {

using engine::AudioFileFormat;
using engine::OpenError;
using engine::SoundCache;
using engine::SoundData;

std::size_t bytesOfSeconds(double seconds, int channels) {
    const auto frames = static_cast<std::size_t>(seconds * engine::kMixRate);
    return SoundData::storageFramesFor(frames) * static_cast<std::size_t>(channels) * sizeof(float);
}

class SoundCacheTest : public ::testing::Test {
protected:
    SoundFixtures fixtures;

    static std::shared_ptr<const SoundData> loaded(SoundCache& cache, const std::string& path) {
        auto result = cache.load(path);
        if (!result) {
            ADD_FAILURE() << path << ": " << result.failure().describe();
            return nullptr;
        }
        return result.value();
    }
};

TEST_F(SoundCacheTest, HitReturnsTheSameSound) {
    SoundCache cache;
    const std::string file = fixtures.tone("hit.wav", 440, 0.5);
    auto first = loaded(cache, file);
    auto second = loaded(cache, file);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(cache.entries(), 1u);
    cache.waitIdle();
    EXPECT_TRUE(first->isComplete());
    EXPECT_EQ(first->frames(), 24000u);
    EXPECT_FALSE(first->failed());
}

TEST_F(SoundCacheTest, ChangedFileIsDecodedAgain) {
    SoundCache cache;
    const std::string file = fixtures.tone("changing.wav", 440, 0.5);
    auto before = loaded(cache, file);
    cache.waitIdle();
    fixtures.tone("changing.wav", 880, 0.25);
    auto after = loaded(cache, file);
    ASSERT_NE(before.get(), after.get());
    cache.waitIdle();
    EXPECT_EQ(before->frames(), 24000u) << "a holder of the old sound keeps it whole";
    EXPECT_EQ(after->frames(), 12000u);
    EXPECT_EQ(cache.entries(), 1u);
}

TEST_F(SoundCacheTest, RecentlyCheckedFileIsTrustedUntilTheRecheckTime) {
    SoundCache cache(std::size_t{64} << 20, std::chrono::hours(1));
    const std::string file = fixtures.tone("burst.wav", 440, 0.5);
    auto first = loaded(cache, file);
    cache.waitIdle();
    fixtures.tone("burst.wav", 880, 0.25);
    EXPECT_EQ(loaded(cache, file).get(), first.get()) << "no stat within the recheck time";

    SoundCache strict(std::size_t{64} << 20, std::chrono::nanoseconds(1));
    auto before = loaded(strict, file);
    strict.waitIdle();
    fixtures.tone("burst.wav", 440, 0.5);
    EXPECT_NE(loaded(strict, file).get(), before.get()) << "checked again after it";
}

TEST_F(SoundCacheTest, EvictionSparesSoundsInUse) {
    // Room for about two one-second mono sounds.
    SoundCache cache(bytesOfSeconds(1.0, 1) * 2);
    const std::string held = fixtures.tone("held.wav", 440, 1.0);
    auto heldSound = loaded(cache, held);
    cache.waitIdle();
    std::vector<std::weak_ptr<const SoundData>> others;
    for (int i = 0; i < 5; ++i) {
        const std::string other = fixtures.tone("other" + std::to_string(i) + ".wav", 440, 1.0);
        others.push_back(loaded(cache, other));
        cache.waitIdle();
        EXPECT_LE(cache.bytes(), cache.byteBudget());
    }
    EXPECT_LE(cache.entries(), 2u);
    EXPECT_EQ(loaded(cache, held).get(), heldSound.get()) << "the sound in use was evicted";
    EXPECT_EQ(heldSound->frames(), 48000u);
    EXPECT_TRUE(others.front().expired()) << "unused sounds go when the budget is exceeded";

    // Once nobody holds it, it may go like any other.
    std::weak_ptr<const SoundData> released = heldSound;
    heldSound.reset();
    for (int i = 5; i < 8; ++i) {
        ASSERT_TRUE(loaded(cache, fixtures.tone("other" + std::to_string(i) + ".wav", 440, 1.0)));
        cache.waitIdle();
    }
    EXPECT_TRUE(released.expired());
    EXPECT_LE(cache.bytes(), cache.byteBudget());
}

TEST_F(SoundCacheTest, LeastRecentlyUsedGoesFirst) {
    SoundCache cache(bytesOfSeconds(1.0, 1) * 2);
    const std::string a = fixtures.tone("a.wav", 440, 1.0);
    const std::string b = fixtures.tone("b.wav", 440, 1.0);
    const std::string c = fixtures.tone("c.wav", 440, 1.0);
    std::weak_ptr<const SoundData> aSound = loaded(cache, a);
    cache.waitIdle();
    std::weak_ptr<const SoundData> bSound = loaded(cache, b);
    cache.waitIdle();
    ASSERT_TRUE(loaded(cache, a)); // a is now more recent than b
    ASSERT_TRUE(loaded(cache, c));
    cache.waitIdle();
    EXPECT_EQ(cache.entries(), 2u);
    EXPECT_FALSE(aSound.expired());
    EXPECT_TRUE(bSound.expired());
}

TEST_F(SoundCacheTest, MissReturnsBeforeDecodingThenFills) {
    SoundCache cache;
    const std::string file = fixtures.encoded("three.m4a", AudioFileFormat::m4a, 440, 3.0);
    cache.setDecodingPaused(true);
    auto sound = loaded(cache, file);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->frames(), 0u) << "load must not decode on the caller's thread";
    EXPECT_FALSE(sound->isComplete());
    cache.setDecodingPaused(false);
    sound->waitForFrames(engine::kMixRate / 2);
    EXPECT_GE(sound->frames(), std::size_t(engine::kMixRate / 2));
    cache.waitIdle();
    EXPECT_TRUE(sound->isComplete());
    EXPECT_FALSE(sound->failed());
    EXPECT_NEAR(double(sound->frames()), 3.0 * engine::kMixRate, 1024);
}

TEST_F(SoundCacheTest, SeveralSoundsFillTogether) {
    SoundCache cache;
    cache.setDecodingPaused(true);
    std::vector<std::shared_ptr<const SoundData>> sounds;
    for (int i = 0; i < 4; ++i) {
        sounds.push_back(
            loaded(cache, fixtures.tone("many" + std::to_string(i) + ".wav", 440, 2.0 + i, 44100)));
    }
    cache.setDecodingPaused(false);
    // The head of every sound comes before the tail of any: the least decoded goes first.
    sounds.back()->waitForFrames(1);
    for (const auto& s : sounds) {
        s->waitForFrames(engine::kMixRate / 2);
    }
    cache.waitIdle();
    for (std::size_t i = 0; i < sounds.size(); ++i) {
        EXPECT_TRUE(sounds[i]->isComplete());
        EXPECT_EQ(sounds[i]->frames(), std::size_t((2 + i) * engine::kMixRate));
    }
}

TEST_F(SoundCacheTest, BadFilesLeaveNoEntry) {
    SoundCache cache;
    using BadFile = SoundFixtures::BadFile;
    for (const auto kind :
         {BadFile::missing, BadFile::fifo, BadFile::text, BadFile::concatScript}) {
        auto result = cache.load(fixtures.bad(kind));
        EXPECT_FALSE(result.hasValue());
    }
    EXPECT_EQ(cache.entries(), 0u);

    // A cached file that disappears is reported as missing and forgotten.
    const std::string file = fixtures.tone("vanishing.wav", 440, 0.1);
    ASSERT_TRUE(loaded(cache, file));
    std::filesystem::remove(file);
    auto gone = cache.load(file);
    ASSERT_FALSE(gone.hasValue());
    EXPECT_EQ(gone.error(), OpenError::fileNotFound);
    EXPECT_EQ(cache.entries(), 0u);
}

TEST_F(SoundCacheTest, SoundLongerThanTheBudgetIsRefused) {
    SoundCache cache(bytesOfSeconds(1.0, 2));
    auto result = cache.load(fixtures.tone("long.wav", 440, 3.0, 48000, 2));
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error(), OpenError::tooLarge);
    EXPECT_EQ(cache.entries(), 0u);
}

TEST_F(SoundCacheTest, HeaderClaimingBillionsOfSamplesCostsWhatTheFileHolds) {
    SoundCache cache(bytesOfSeconds(1.0, 1));
    auto sound = loaded(cache, fixtures.bad(SoundFixtures::BadFile::wavHugeDataSize));
    ASSERT_TRUE(sound);
    cache.waitIdle();
    EXPECT_TRUE(sound->isComplete());
    EXPECT_EQ(sound->frames(), 28u);
    EXPECT_LE(cache.bytes(), bytesOfSeconds(1.0, 1));
}

TEST_F(SoundCacheTest, DestroyingWithPendingDecodesEndsThem) {
    std::shared_ptr<const SoundData> sound;
    {
        SoundCache cache;
        cache.setDecodingPaused(true);
        sound = loaded(cache, fixtures.tone("pending.wav", 440, 1.0));
    }
    ASSERT_TRUE(sound);
    EXPECT_TRUE(sound->isComplete());
    EXPECT_TRUE(sound->failed());
}

TEST_F(SoundCacheTest, LoadsFromSeveralThreadsShareSounds) {
    SoundCache cache;
    std::vector<std::string> files;
    for (int i = 0; i < 4; ++i) {
        files.push_back(fixtures.tone("shared" + std::to_string(i) + ".wav", 440, 0.3));
    }
    std::vector<std::vector<const SoundData*>> seen(2);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < seen.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round) {
                for (const auto& f : files) {
                    auto result = cache.load(f);
                    seen[t].push_back(result ? result.value().get() : nullptr);
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    cache.waitIdle();
    EXPECT_EQ(cache.entries(), files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        auto sound = loaded(cache, files[i]);
        for (const auto& list : seen) {
            for (std::size_t k = i; k < list.size(); k += files.size()) {
                EXPECT_EQ(list[k], sound.get());
            }
        }
    }
}

// Reports what a load costs: cold (distinct copies of a 3 s AAC, so each is a miss) and hot.
TEST_F(SoundCacheTest, LoadCost) {
    constexpr int kRuns = 50;
    const std::string source = fixtures.encoded("cost.m4a", AudioFileFormat::m4a, 440, 3.0);
    const std::string bytes = SoundFixtures::readBytes(source);
    std::vector<std::string> copies;
    for (int i = 0; i < kRuns; ++i) {
        copies.push_back(fixtures.writeBytes("cost" + std::to_string(i) + ".m4a", bytes));
    }
    SoundCache cache;
    cache.setDecodingPaused(true); // measure the caller's cost alone
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    std::vector<double> cold;
    std::vector<double> hot;
    for (const auto& copy : copies) {
        const auto start = std::chrono::steady_clock::now();
        auto result = cache.load(copy);
        const auto end = std::chrono::steady_clock::now();
        ASSERT_TRUE(result.hasValue());
        cold.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
    for (const auto& copy : copies) {
        const auto start = std::chrono::steady_clock::now();
        auto result = cache.load(copy);
        const auto end = std::chrono::steady_clock::now();
        ASSERT_TRUE(result.hasValue());
        hot.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
    cache.setDecodingPaused(false);
    cache.waitIdle();
    std::cout << "load of a 3 s AAC: cold median " << median(cold) << " us, hit median "
              << median(hot) << " us\n";
    RecordProperty("coldMedianMicros", std::to_string(median(cold)));
    RecordProperty("hitMedianMicros", std::to_string(median(hot)));
    // Generous bounds: sanitizers and a busy CI machine are slow, but never a full decode slow.
    EXPECT_LT(median(cold), 20000);
    EXPECT_LT(median(hot), median(cold));
}

} // namespace
} // namespace vantelo_sounds::test
