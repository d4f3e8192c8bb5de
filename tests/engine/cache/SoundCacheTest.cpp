// The sound cache: shared hits, changed files, eviction, decoding after the load returns,
// remembered failures, one memory bound for kept sounds and seamless streams. (Costs: bench/.)

#include "engine/cache/SoundCache.hpp"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"
#include "engine/sound/SoundStream.hpp"
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
        EXPECT_TRUE(!result || !result.value().isStreamed()) << path << " streams";
        return result ? result.value().resident : nullptr;
    }

    // Reads a stream as its voice would, in blocks, to its end; returns how many frames it gave.
    static std::size_t drain(SoundCache& cache, const engine::FrameSource& stream) {
        std::size_t read = 0;
        for (std::size_t run = 0; !stream.isComplete() || read < stream.availableFrames();) {
            if (stream.framesAt(read, run) == nullptr) {
                cache.wake();
                std::this_thread::yield();
                continue;
            }
            read += std::min<std::size_t>(run, 1024);
            stream.releaseBefore(read);
        }
        return read;
    }
};

TEST_F(SoundCacheTest, LoadsFromTwoThreadsShareOneSoundAndAChangedFileIsDecodedAgainInTime) {
    SoundCache cache;
    SoundCache trusting(std::size_t{64} << 20, std::chrono::hours(1));
    std::vector<std::string> files;
    for (int i = 0; i < 4; ++i) {
        files.push_back(fixtures.tone("shared" + std::to_string(i) + ".wav", 440, 0.5));
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
    EXPECT_EQ(seen[0], seen[1]) << "one sound per file";

    const Sound before = seen[0][0];
    const Sound trusted = loaded(trusting, files[0]);
    cache.waitIdle();
    trusting.waitIdle();
    fixtures.tone("shared0.wav", 880, 0.25);
    EXPECT_EQ(loaded(trusting, files[0]), trusted) << "no stat within the recheck time";
    const Sound after = loaded(cache, files[0]);
    ASSERT_NE(after, before);
    cache.waitIdle();
    EXPECT_EQ(before->frames(), 24000u) << "a holder of the old sound keeps it whole";
    EXPECT_FALSE(before->failed());
    EXPECT_EQ(after->frames(), 12000u);
    EXPECT_EQ(cache.entries(), files.size());
}

TEST_F(SoundCacheTest, EvictionSparesSoundsInUseAndTakesTheLeastRecentlyUsedAndAFullShareStreams) {
    // Kept sounds may fill seven eighths of the bound: seven one-second mono sounds.
    SoundCache cache(bytesOfSeconds(1.0, 1) * SoundCache::kResidentShare);
    const auto load = [&](const std::string& name) {
        const std::string path = fixtures.path(name);
        Sound sound =
            loaded(cache, std::filesystem::exists(path) ? path : fixtures.tone(name, 440, 1.0));
        cache.waitIdle();
        EXPECT_LE(cache.bytes(), cache.byteBudget());
        return sound;
    };
    Sound held = load("held.wav");
    std::vector<std::weak_ptr<const SoundData>> others;
    for (int i = 0; i < 7; ++i) {
        others.push_back(load("other" + std::to_string(i) + ".wav"));
    }
    EXPECT_TRUE(others.front().expired()) << "unused sounds go when the bound is reached";
    EXPECT_EQ(load("held.wav"), held) << "the sound in use was evicted";
    EXPECT_EQ(held->frames(), 48000u);

    // Once nobody holds it, it goes like any other, the least recently used first.
    std::weak_ptr<const SoundData> released = held;
    held.reset();
    for (int i = 1; i < 7; ++i) {
        load("next" + std::to_string(i) + ".wav");
        EXPECT_TRUE(others[i].expired());
        EXPECT_FALSE(released.expired()) << "used more recently than other" << i;
    }
    load("last.wav");
    EXPECT_TRUE(released.expired());

    // Sounds in use that fill the share make the next one stream, not fail: the rest of the bound
    // is for streams, and a stream window still fits.
    std::vector<Sound> inUse;
    for (int i = 0; i < 7; ++i) {
        inUse.push_back(load("inUse" + std::to_string(i) + ".wav"));
    }
    const auto streamed = cache.load(fixtures.tone("streamed.wav", 440, 1.0));
    ASSERT_TRUE(streamed && streamed.value().isStreamed());
    auto source = cache.sourceFor(streamed.value(), 0);
    ASSERT_TRUE(source) << source.failure().describe();
    EXPECT_EQ(drain(cache, *source.value()), 48000u);
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
        sounds.front()->waitForFrames(10 * engine::kMixRate); // more than it holds: until complete
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

TEST_F(SoundCacheTest, FailuresAreRememberedByStampAndOddFilesCostOnlyWhatTheyHold) {
    SoundCache cache;
    for (const auto kind : {SoundFixtures::BadFile::missing, SoundFixtures::BadFile::fifo}) {
        EXPECT_FALSE(cache.load(fixtures.bad(kind)));
    }
    EXPECT_EQ(cache.entries(), 0u) << "a stat is all these cost; nothing to remember";

    // A bad file is answered from the table while its size and time stay: a good file put in its
    // place with the same stamp is not even looked at, a new stamp is.
    const std::string text = fixtures.bad(SoundFixtures::BadFile::text);
    EXPECT_EQ(cache.load(text).error(), OpenError::notAudio);
    struct stat before {};
    ASSERT_EQ(::stat(text.c_str(), &before), 0);
    const std::string good = fixtures.tone("good.wav", 440, 0.1);
    std::filesystem::copy_file(good, text, std::filesystem::copy_options::overwrite_existing);
    ::truncate(text.c_str(), before.st_size);
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, text.c_str(), times, 0), 0);
    EXPECT_EQ(cache.load(text).error(), OpenError::notAudio) << "the failure was not remembered";
    std::filesystem::copy_file(good, text, std::filesystem::copy_options::overwrite_existing);
    EXPECT_TRUE(cache.load(text)) << "a changed file is opened again";

    const std::string file = fixtures.tone("vanishing.wav", 440, 0.1);
    ASSERT_TRUE(loaded(cache, file));
    std::filesystem::remove(file);
    EXPECT_EQ(cache.load(file).error(), OpenError::fileNotFound);
    EXPECT_EQ(cache.entries(), 1u);

    // A header claiming billions of samples over 28 real ones: its length is read from the file's
    // size, so it is kept, not streamed, and decodes to what is there.
    const auto hugeSound = cache.load(fixtures.bad(SoundFixtures::BadFile::wavHugeDataSize));
    ASSERT_TRUE(hugeSound);
    EXPECT_FALSE(hugeSound.value().isStreamed());
    EXPECT_NEAR(hugeSound.value().seconds, 28.0 / 48000.0, 1e-3) << "the length the file can hold";
    const Sound huge = hugeSound.value().resident;
    cache.waitIdle();
    EXPECT_TRUE(huge->isComplete());
    EXPECT_EQ(huge->frames(), 28u);

    // Junk is refused after a bounded look: without the bound, FFmpeg's MP3 reader scans all of
    // it for a frame (20 s for 2 GB).
    const std::string sparse = fixtures.path("zeros.mp3");
    { std::ofstream{sparse}; }
    std::filesystem::resize_file(sparse, std::uintmax_t{1} << 30);
    const auto junk = cache.load(sparse);
    EXPECT_EQ(junk.error(), OpenError::notAudio);
    EXPECT_NE(junk.failure().detail.find("first 64 KB"), std::string::npos)
        << junk.failure().detail;
}

// A long sound streams, and its streams live in the same bound: as many as fit next to nothing
// else, then a refusal, and room again once one is let go. (Seamless passes: EngineStreamTest.)
TEST_F(SoundCacheTest, ALongSoundStreamsAndItsStreamsStayWithinTheBound) {
    // Kept sounds may take an eighth of the bound: 2 s of mono. The 4 s sound streams.
    const std::size_t budget = bytesOfSeconds(2.0, 1) * SoundCache::kResidentShare;
    SoundCache cache(budget);
    auto loadedSound = cache.load(fixtures.tone("long.wav", 375, 4.0));
    ASSERT_TRUE(loadedSound);
    ASSERT_TRUE(loadedSound.value().isStreamed());
    EXPECT_DOUBLE_EQ(loadedSound.value().seconds, 4.0);
    std::vector<std::shared_ptr<const engine::FrameSource>> streams;
    for (;;) {
        auto next = cache.sourceFor(loadedSound.value(), -1);
        if (!next) {
            EXPECT_EQ(next.error(), OpenError::tooLarge);
            break;
        }
        streams.push_back(std::move(next).value());
        ASSERT_LE(streams.size(), budget / (SoundCache::kStreamWindowFrames * 4));
    }
    cache.waitIdle();
    EXPECT_LE(cache.bytes(), budget);
    EXPECT_EQ(cache.liveStreams(), streams.size());
    streams.pop_back();
    EXPECT_TRUE(cache.sourceFor(loadedSound.value(), 0));
}

} // namespace
} // namespace vantelo_sounds::test
