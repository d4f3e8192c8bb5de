#include "engine/cache/SoundCache.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "engine/codec/Decoder.hpp"
#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundStream.hpp"

namespace vantelo_sounds::engine {
namespace {

using SteadyClock = std::chrono::steady_clock;

// The worker decodes this much of one sound before it looks at the others again.
constexpr std::size_t kDecodeStepFrames = kMixRate / 2;
// A stream is topped up once this much of its window has been played, and the worker looks at
// the streams this often (the audio thread that reads them cannot wake it).
constexpr std::size_t kStreamRefillFrames = SoundCache::kStreamWindowFrames / 4;
constexpr auto kStreamRound = std::chrono::milliseconds(10);

std::size_t bytesPerFrame(int channels) {
    return static_cast<std::size_t>(channels) * sizeof(float);
}

std::size_t storageBytes(std::size_t frames, int channels) {
    return SoundData::storageFramesFor(frames) * bytesPerFrame(channels);
}

// The most frames a kept sound may have for its storage (whole chunks) to fit in `bytes`.
std::size_t framesStorableIn(std::size_t bytes, int channels) {
    const std::size_t chunks =
        std::bit_width(bytes / bytesPerFrame(channels) / SoundData::kFirstChunkFrames + 1) - 1;
    return SoundData::kFirstChunkFrames * ((std::size_t{1} << chunks) - 1);
}

std::int64_t passesOf(std::int64_t loops) {
    if (loops < 0) {
        return -1;
    }
    return loops == std::numeric_limits<std::int64_t>::max() ? loops : loops + 1;
}

} // namespace

struct SoundCache::Job {
    std::shared_ptr<SoundData> data;     // a kept sound being decoded, or
    std::shared_ptr<SoundStream> stream; // a stream being kept ahead of its voice
    std::unique_ptr<Decoder> decoder;    // a stream's next pass opens its own
    std::string path;
    std::int64_t passesLeft = 1; // streams: passes not finished yet; negative: for ever
    std::size_t passFrames = 0;  // streams: frames of the pass being decoded
    bool failedOnce = false;

    std::size_t framesAhead() const noexcept {
        return data ? data->availableFrames() : stream->framesAhead();
    }
};

SoundCache::SoundCache(std::size_t byteBudget, std::chrono::nanoseconds recheckAfter)
    : mRecheckAfter(recheckAfter)
    , mBudget(std::max<std::size_t>(byteBudget, kStreamWindowFrames * bytesPerFrame(2)))
    , mWorker([this] { workerLoop(); }) {}

SoundCache::~SoundCache() {
    {
        std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mWork.notify_all();
    mWorker.join();
    for (auto& job : mJobs) {
        if (job->data) {
            job->data->finish(false);
        } else {
            job->stream->finish(false);
        }
    }
}

Expected<LoadedSound> SoundCache::answer(const std::string& path, Entry& entry) {
    mLru.splice(mLru.begin(), mLru, entry.lruPosition);
    if (entry.failure) {
        return *entry.failure;
    }
    return LoadedSound{entry.data, path, entry.channels, entry.seconds};
}

Expected<LoadedSound> SoundCache::load(const std::string& path) {
    const auto now = SteadyClock::now();
    if (mRecheckAfter > std::chrono::nanoseconds::zero()) {
        std::lock_guard lock(mMutex);
        auto found = mEntries.find(path);
        if (found != mEntries.end() && now - found->second.checkedAt < mRecheckAfter) {
            return answer(path, found->second);
        }
    }
    auto stamp = checkRegularFile(path);
    {
        std::lock_guard lock(mMutex);
        auto found = mEntries.find(path);
        if (found != mEntries.end()) {
            if (stamp && found->second.stamp == stamp.value()) {
                found->second.checkedAt = now;
                return answer(path, found->second);
            }
            // Gone or changed on disk: whoever holds the old sound keeps it; the table forgets it.
            mLru.erase(found->second.lruPosition);
            mEntries.erase(found);
        }
    }
    if (!stamp) {
        return stamp.failure(); // nothing to remember: a stat is all it cost
    }

    // Opening happens outside the lock: other loads and the worker go on meanwhile.
    Entry entry;
    entry.stamp = stamp.value();
    entry.checkedAt = now;
    auto opened = Decoder::open(path);
    std::unique_ptr<Decoder> decoder;
    if (opened) {
        decoder = std::move(opened).value();
        entry.channels = decoder->info().channels;
        entry.seconds = decoder->info().durationEstimate;
    } else {
        entry.failure = opened.failure();
    }
    const std::size_t keepLimit = mBudget / kResidentShare;
    const std::size_t stated =
        storageBytes(static_cast<std::size_t>(std::ceil(entry.seconds * kMixRate)), entry.channels);
    // A sound of unknown length may be as long as any kept sound.
    const std::size_t reserve = entry.seconds > 0 ? stated : keepLimit;

    std::lock_guard lock(mMutex);
    if (auto found = mEntries.find(path); found != mEntries.end()) {
        return answer(path, found->second); // another thread opened it meanwhile
    }
    if (decoder && reserve <= keepLimit) {
        // The last share of the bound is left to streams, so long sounds always have room.
        makeRoomLocked(reserve, true);
        if (usedLocked() + reserve <= mBudget &&
            keptBytesLocked(true) + reserve <= mBudget - mBudget / kResidentShare) {
            entry.data = std::make_shared<SoundData>(entry.channels,
                                                     framesStorableIn(keepLimit, entry.channels));
            entry.reservedBytes = reserve;
            auto job = std::make_unique<Job>();
            job->data = entry.data;
            job->decoder = std::move(decoder);
            job->path = path;
            mJobs.push_back(std::move(job));
            mWork.notify_one();
        }
    }
    insertLocked(path, std::move(entry));
    return answer(path, mEntries.find(path)->second);
}

void SoundCache::insertLocked(const std::string& path, Entry entry) {
    mLru.push_front(path);
    entry.lruPosition = mLru.begin();
    mEntries.emplace(path, std::move(entry));
    makeRoomLocked(0, false); // the entry count
}

Expected<std::shared_ptr<const FrameSource>> SoundCache::sourceFor(const LoadedSound& sound,
                                                                   std::int64_t loops) {
    if (!sound.isStreamed()) {
        return std::shared_ptr<const FrameSource>(sound.resident);
    }
    auto stream = std::make_shared<SoundStream>(sound.channels, kStreamWindowFrames);
    std::lock_guard lock(mMutex);
    makeRoomLocked(stream->bytes(), false);
    if (usedLocked() + stream->bytes() > mBudget) {
        return Failure{OpenError::tooLarge, "no room is left in the sound memory (" +
                                                std::to_string(mBudget >> 20) +
                                                " MiB) for another long sound"};
    }
    mStreams.push_back(stream);
    auto job = std::make_unique<Job>();
    job->stream = stream;
    job->path = sound.path;
    job->passesLeft = passesOf(loops);
    mJobs.push_back(std::move(job));
    mWork.notify_one();
    return std::shared_ptr<const FrameSource>(std::move(stream));
}

void SoundCache::wake() {
    {
        std::lock_guard lock(mMutex);
        mWoken = true;
    }
    mWork.notify_one();
}

void SoundCache::waitIdle() {
    std::unique_lock lock(mMutex);
    mWoken = true;
    mWork.notify_one();
    mIdle.wait(lock, [this] { return isIdleLocked(); });
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

std::size_t SoundCache::liveStreams() const {
    std::lock_guard lock(mMutex);
    (void)streamBytesLocked(); // forgets the streams that are gone
    return mStreams.size();
}

std::size_t SoundCache::streamBytesLocked() const {
    std::erase_if(mStreams, [](const auto& stream) { return stream.expired(); });
    std::size_t total = 0;
    for (const auto& weak : mStreams) {
        if (const auto stream = weak.lock()) {
            total += stream->bytes();
        }
    }
    return total;
}

std::size_t SoundCache::keptBytesLocked(bool withReservations) const {
    std::size_t total = 0;
    for (const auto& [path, entry] : mEntries) {
        if (!entry.data) {
            continue;
        }
        total += entry.data->bytes();
        if (withReservations && !entry.data->isComplete()) {
            total += entry.reservedBytes - std::min(entry.reservedBytes, entry.data->bytes());
        }
    }
    return total;
}

std::size_t SoundCache::bytesLocked() const {
    return keptBytesLocked(false) + streamBytesLocked();
}

std::size_t SoundCache::usedLocked() const {
    return keptBytesLocked(true) + streamBytesLocked();
}

void SoundCache::makeRoomLocked(std::size_t needed, bool forKeptSound) {
    dropUnreadStreamsLocked();
    const std::size_t keptLimit = mBudget - mBudget / kResidentShare;
    std::size_t kept = keptBytesLocked(true);
    std::size_t used = kept + streamBytesLocked();
    const auto lacksRoom = [&] {
        return used + needed > mBudget || (forKeptSound && kept + needed > keptLimit) ||
               mEntries.size() > kMaxEntries;
    };
    auto position = mLru.end();
    while (lacksRoom() && position != mLru.begin()) {
        --position;
        auto found = mEntries.find(*position);
        const Entry& entry = found->second;
        // Held by someone else (a voice, a player, the worker still filling it): keep it.
        if (entry.data && entry.data.use_count() > 1) {
            continue;
        }
        const std::size_t freed = entry.data ? entry.data->bytes() : 0;
        kept -= freed;
        used -= freed;
        mEntries.erase(found);
        position = mLru.erase(position);
    }
}

void SoundCache::dropUnreadStreamsLocked() {
    // Only the worker's job holds them: their voice ended or was stopped.
    std::erase_if(mJobs,
                  [](const auto& job) { return job->stream && job->stream.use_count() == 1; });
}

bool SoundCache::isDue(const Job& job) const {
    return job.data || !job.decoder || job.stream->room() >= kStreamRefillFrames;
}

bool SoundCache::isIdleLocked() const {
    return mBusyJobs == 0 &&
           (mPaused || std::none_of(mJobs.begin(), mJobs.end(),
                                    [this](const auto& job) { return isDue(*job); }));
}

// One step of one job, outside the lock. True when the job is done.
bool SoundCache::decodeStep(Job& job) {
    if (job.data) {
        job.decoder->decodeInto(*job.data, kDecodeStepFrames);
        if (!job.decoder->atEnd()) {
            return false;
        }
        job.data->finish(job.decoder->outcome().hasValue());
        return true;
    }
    SoundStream& stream = *job.stream;
    if (!job.decoder) {
        // Each pass reads the file again from its start.
        auto opened = Decoder::open(job.path);
        if (!opened || opened.value()->info().channels != stream.channels()) {
            stream.finish(false);
            return true;
        }
        job.decoder = std::move(opened).value();
    }
    job.passFrames += job.decoder->decodeInto(stream, std::min(stream.room(), kDecodeStepFrames));
    if (!job.decoder->atEnd()) {
        return false;
    }
    job.failedOnce = job.failedOnce || !job.decoder->outcome();
    job.decoder.reset();
    if (job.passesLeft > 0) {
        --job.passesLeft;
    }
    // A pass that gave nothing would loop for ever without a sound.
    if (job.passesLeft == 0 || job.passFrames == 0) {
        stream.finish(!job.failedOnce);
        return true;
    }
    job.passFrames = 0;
    return false;
}

void SoundCache::workerLoop() {
    std::unique_lock lock(mMutex);
    const auto hasWork = [this] {
        return mStopping || mWoken ||
               (!mPaused && std::any_of(mJobs.begin(), mJobs.end(),
                                        [this](const auto& j) { return isDue(*j); }));
    };
    for (;;) {
        const bool streaming =
            std::any_of(mJobs.begin(), mJobs.end(), [](const auto& job) { return job->stream; });
        if (streaming) {
            mWork.wait_for(lock, kStreamRound, hasWork);
        } else {
            mWork.wait(lock, hasWork);
        }
        mWoken = false;
        if (mStopping) {
            return;
        }
        dropUnreadStreamsLocked();

        // The sound with the least decoded ahead goes first: a sound that just started playing
        // gets its head before long sounds get their tails, and streams never run dry for them.
        auto next = mJobs.end();
        if (!mPaused) {
            for (auto it = mJobs.begin(); it != mJobs.end(); ++it) {
                if (isDue(**it) &&
                    (next == mJobs.end() || (*it)->framesAhead() < (*next)->framesAhead())) {
                    next = it;
                }
            }
        }
        if (next == mJobs.end()) {
            if (isIdleLocked()) {
                mIdle.notify_all();
            }
            continue;
        }
        std::unique_ptr<Job> job = std::move(*next);
        mJobs.erase(next);
        ++mBusyJobs;
        lock.unlock();

        bool done = decodeStep(*job);
        if (done) {
            job.reset(); // drops the worker's hold before eviction looks at use counts
        }

        lock.lock();
        --mBusyJobs;
        if (!done && job->data && usedLocked() > mBudget) {
            // Longer than its header said, and nothing else can make room: it ends here.
            makeRoomLocked(0, false);
            if (usedLocked() > mBudget) {
                job->data->finish(false);
                done = true;
            }
        }
        if (!done) {
            mJobs.push_back(std::move(job));
        }
        if (isIdleLocked()) {
            mIdle.notify_all();
        }
    }
}

} // namespace vantelo_sounds::engine
