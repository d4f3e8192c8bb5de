#include "engine/cache/SoundCache.hpp"

#include <algorithm>
#include <cmath>

#include "engine/codec/Decoder.hpp"
#include "engine/codec/FileCheck.hpp"
#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {
namespace {

// The worker decodes this much of one sound before it looks at the others again.
constexpr std::size_t kDecodeStepFrames = kMixRate / 2;

std::size_t bytesPerFrame(int channels) {
    return static_cast<std::size_t>(channels) * sizeof(float);
}

} // namespace

SoundCache::SoundCache(std::size_t byteBudget, std::chrono::nanoseconds recheckAfter)
    : mRecheckAfter(recheckAfter)
    , mBudget(std::max<std::size_t>(byteBudget, SoundData::kFirstChunkFrames * bytesPerFrame(2)))
    , mWorker([this] { workerLoop(); }) {}

SoundCache::~SoundCache() {
    {
        std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mWork.notify_all();
    mWorker.join();
    for (auto& job : mJobs) {
        job->data->finish(false);
    }
}

Expected<std::shared_ptr<const SoundData>> SoundCache::load(const std::string& path) {
    const auto now = std::chrono::steady_clock::now();
    if (mRecheckAfter > std::chrono::nanoseconds::zero()) {
        std::lock_guard lock(mMutex);
        auto found = mEntries.find(path);
        if (found != mEntries.end() && now - found->second.checkedAt < mRecheckAfter) {
            mLru.splice(mLru.begin(), mLru, found->second.lruPosition);
            return std::shared_ptr<const SoundData>(found->second.data);
        }
    }
    auto stamp = checkRegularFile(path);
    {
        std::lock_guard lock(mMutex);
        auto found = mEntries.find(path);
        if (found != mEntries.end()) {
            Entry& entry = found->second;
            if (stamp && entry.size == stamp.value().size &&
                entry.mtimeNs == stamp.value().mtimeNs) {
                entry.checkedAt = now;
                mLru.splice(mLru.begin(), mLru, entry.lruPosition);
                return std::shared_ptr<const SoundData>(entry.data);
            }
            // Gone or changed on disk: whoever holds the old sound keeps it; the table forgets it.
            mLru.erase(entry.lruPosition);
            mEntries.erase(found);
        }
    }
    if (!stamp) {
        return stamp.failure();
    }

    // Opening (stat, probe, header) happens outside the lock: other loads and the worker go on.
    auto opened = Decoder::open(path);
    if (!opened) {
        return opened.failure();
    }
    std::unique_ptr<Decoder> decoder = std::move(opened).value();
    const SoundInfo& info = decoder->info();
    const std::size_t frameBytes = bytesPerFrame(info.channels);
    const double declaredBytes =
        std::ceil(info.durationEstimate * kMixRate) * static_cast<double>(frameBytes);
    if (declaredBytes > static_cast<double>(mBudget)) {
        return Failure{OpenError::tooLarge, "The decoded sound (" +
                                                std::to_string(info.durationEstimate) +
                                                " s) would exceed the sound memory budget of " +
                                                std::to_string(mBudget >> 20) + " MiB"};
    }
    auto data = std::make_shared<SoundData>(info.channels, mBudget / frameBytes);

    std::lock_guard lock(mMutex);
    auto found = mEntries.find(path);
    if (found != mEntries.end()) {
        // Another thread loaded the same file meanwhile: share its sound.
        mLru.splice(mLru.begin(), mLru, found->second.lruPosition);
        return std::shared_ptr<const SoundData>(found->second.data);
    }
    mLru.push_front(path);
    Entry entry;
    entry.path = path;
    entry.size = stamp.value().size;
    entry.mtimeNs = stamp.value().mtimeNs;
    entry.checkedAt = now;
    entry.data = data;
    entry.lruPosition = mLru.begin();
    mEntries.emplace(path, std::move(entry));
    mJobs.push_back(std::make_unique<Job>(Job{data, std::move(decoder)}));
    mWork.notify_one();
    evictLocked();
    return std::shared_ptr<const SoundData>(std::move(data));
}

void SoundCache::waitIdle() {
    std::unique_lock lock(mMutex);
    mIdle.wait(lock, [this] { return (mJobs.empty() || mPaused) && mBusyJobs == 0; });
}

void SoundCache::setDecodingPaused(bool paused) {
    {
        std::lock_guard lock(mMutex);
        mPaused = paused;
    }
    mWork.notify_all();
    mIdle.notify_all();
}

std::size_t SoundCache::bytes() const {
    std::lock_guard lock(mMutex);
    return bytesLocked();
}

std::size_t SoundCache::entries() const {
    std::lock_guard lock(mMutex);
    return mEntries.size();
}

std::size_t SoundCache::bytesLocked() const {
    std::size_t total = 0;
    for (const auto& [path, entry] : mEntries) {
        total += entry.data->bytes();
    }
    return total;
}

void SoundCache::evictLocked() {
    std::size_t total = bytesLocked();
    auto position = mLru.end();
    while (total > mBudget && position != mLru.begin()) {
        --position;
        auto found = mEntries.find(*position);
        // Held by someone else (a voice, a player, the worker still filling it): keep it.
        if (found->second.data.use_count() > 1) {
            continue;
        }
        total -= found->second.data->bytes();
        mEntries.erase(found);
        position = mLru.erase(position);
    }
}

void SoundCache::workerLoop() {
    std::unique_lock lock(mMutex);
    for (;;) {
        mWork.wait(lock, [this] { return mStopping || (!mPaused && !mJobs.empty()); });
        if (mStopping) {
            return;
        }
        // The sound with the least decoded goes first: a sound that just started playing gets
        // its head before long sounds get their tails.
        auto next = std::min_element(mJobs.begin(), mJobs.end(), [](const auto& a, const auto& b) {
            return a->data->availableFrames() < b->data->availableFrames();
        });
        std::unique_ptr<Job> job = std::move(*next);
        mJobs.erase(next);
        ++mBusyJobs;
        lock.unlock();

        job->decoder->decodeInto(*job->data, kDecodeStepFrames);
        const bool done = job->decoder->atEnd();
        if (done) {
            job->data->finish(job->decoder->outcome().hasValue());
            job.reset(); // drops the worker's hold before eviction looks at use counts
        }

        lock.lock();
        --mBusyJobs;
        if (!done) {
            mJobs.push_back(std::move(job));
        }
        evictLocked();
        if ((mJobs.empty() || mPaused) && mBusyJobs == 0) {
            mIdle.notify_all();
        }
    }
}

} // namespace vantelo_sounds::engine
