#include "engine/output/OutputSwitch.hpp"

#include <algorithm>

#include "engine/output/ManualOutput.hpp"
#include "engine/output/NullOutput.hpp"

namespace vantelo_sounds::engine {

namespace {

// In manual time a reopening is awaited this long at most; a device that takes longer (a test
// holding it) is taken back at a later poll.
constexpr std::chrono::milliseconds kManualOpenWait{200};

} // namespace

OutputSwitch::OutputSwitch(Mixer& mixer, MixTap& tap, std::unique_ptr<Output> chosen)
    : mMixer(mixer)
    , mTap(tap)
    , mChosen(chosen ? std::move(chosen) : std::make_unique<NullOutput>()) {
    mManual = mChosen->isManual();
    mChosen->setTap(&mTap);
    mStartResult = mChosen->start(mMixer);
    if (mStartResult) {
        mWatched = mChosen->canBeLost();
        return;
    }
    if (mManual && !mChosen->canBeLost()) {
        // An offline render whose file cannot be written still renders in step with its clock;
        // only the file is missing.
        mChosen = std::make_unique<ManualOutput>();
        (void)mChosen->start(mMixer); // without a file it always starts
        return;
    }
    // A device that did not open is tried again, as after a loss; a file is not.
    if (mChosen->canBeLost()) {
        mSpare = std::move(mChosen);
    }
    mChosen.reset();
    startStandIn();
}

OutputSwitch::~OutputSwitch() {
    if (mStandIn) {
        mStandIn->stop();
    }
    if (mChosen) {
        mChosen->detach();
        mChosen->stop();
    }
    // The worker's destructor then waits (bounded) for a close in hand.
}

ManualOutput* OutputSwitch::manualOutput() noexcept {
    return mChosen ? dynamic_cast<ManualOutput*>(mChosen.get()) : nullptr;
}

const char* OutputSwitch::name() const noexcept {
    return mStandIn ? "null" : mChosen->name();
}

std::string OutputSwitch::deviceName() const {
    return mStandIn ? std::string() : mChosen->deviceName();
}

void OutputSwitch::startStandIn() {
    if (mManual) {
        mStandIn = std::make_unique<ManualOutput>();
    } else {
        mStandIn = std::make_unique<NullOutput>();
        mStandIn->setTap(&mTap);
    }
    (void)mStandIn->start(mMixer); // neither can fail
}

void OutputSwitch::stopStandIn() {
    mStandIn->stop();
    mStandIn.reset();
}

void OutputSwitch::fallBack(Time now) {
    mChosen->detach(); // from here on only the stand-in renders
    startStandIn();
    mSpare = mChosen->makeAnother();
    if (mSpare) {
        mSpare->setTap(&mTap);
    }
    mWorker.close(std::move(mChosen));
    mWatched = false;
    mReopenDelay = kFirstReopenDelay;
    mNextReopen = now + mReopenDelay;
}

OutputSwitch::Change OutputSwitch::poll(Time now) {
    if (!mStandIn) {
        if (!mWatched) {
            return Change::none;
        }
        // Progress is judged only between polls close together: after a long gap (nothing
        // played, or the whole process was stopped) the device gets a fresh start.
        const std::uint64_t consumed = mChosen->framesConsumed();
        const bool watchedRecently = mLastPoll && now - *mLastPoll < kStallLimit / 2;
        mLastPoll = now;
        if (!mLastProgress || !watchedRecently || consumed != mLastConsumed) {
            mLastConsumed = consumed;
            mLastProgress = now;
        }
        const bool stalled = now - *mLastProgress >= kStallLimit;
        if (!mChosen->lost() && !stalled) {
            return Change::none;
        }
        fallBack(now);
        return Change::lost;
    }

    if (auto opened = mWorker.takeOpened()) {
        mOpening = false;
        if (opened->result) {
            // The stand-in stops before the device renders: one renderer at a time.
            stopStandIn();
            mChosen = std::move(opened->output);
            mChosen->resume();
            mStartResult = {};
            mWatched = true;
            mLastProgress.reset();
            mLastPoll.reset();
            return Change::restored;
        }
        mStartResult = std::move(opened->result);
        mSpare = std::move(opened->output); // an output whose open failed can be tried again
        mReopenDelay = std::min(mReopenDelay * 2, kMaxReopenDelay);
        mNextReopen = now + mReopenDelay;
    }
    if (!mSpare) {
        return Change::none; // an open in hand, or nothing that can be reopened
    }
    if (!mNextReopen) {
        mNextReopen = now + mReopenDelay; // a device that failed at start: first try from now
    }
    if (now < *mNextReopen) {
        return Change::none;
    }
    // The lost device must be closed before the next one opens. In manual time that close is
    // awaited (bounded), so that the reopening happens at the same time on every run.
    if (mManual) {
        (void)mWorker.waitIdle(kManualOpenWait);
    }
    if (mWorker.busy()) {
        return Change::none;
    }
    mOpening = true;
    mWorker.open(std::move(mSpare), mMixer);
    if (mManual && mWorker.waitIdle(kManualOpenWait)) {
        return poll(now);
    }
    return Change::none;
}

} // namespace vantelo_sounds::engine
