#include "engine/output/FaultInjectingDevice.hpp"

#include "engine/output/FaultInjectingOutput.hpp"

namespace vantelo_sounds::engine {

std::shared_ptr<FaultInjectingDevice> FaultInjectingDevice::make() {
    return std::shared_ptr<FaultInjectingDevice>(new FaultInjectingDevice());
}

std::unique_ptr<Output> FaultInjectingDevice::makeOutput() {
    return std::make_unique<FaultInjectingOutput>(shared_from_this());
}

void FaultInjectingDevice::unplug() {
    mPresent = false;
    ++mUnplugs;
}

void FaultInjectingDevice::plugIn() {
    mPresent = true;
}

void FaultInjectingDevice::holdCloses(bool hold) {
    std::lock_guard lock(mCloseMutex);
    mHoldCloses = hold;
    mCloseReleased.notify_all();
}

bool FaultInjectingDevice::tryOpen() {
    if (!mPresent || mFailingOpens > 0) {
        if (mPresent) {
            --mFailingOpens;
        }
        ++mFailedOpens;
        return false;
    }
    ++mOpens;
    return true;
}

void FaultInjectingDevice::close() {
    std::unique_lock lock(mCloseMutex);
    mCloseReleased.wait(lock, [this] { return !mHoldCloses; });
    ++mCloses;
}

void FaultInjectingDevice::play(const float* stereo, std::size_t frames, int channels) {
    mFramesHeard += frames;
    if (!mKeepHeard) {
        return;
    }
    for (std::size_t i = 0; i < frames; ++i) {
        const float left = stereo[2 * i];
        const float right = stereo[2 * i + 1];
        const float mono = 0.5f * (left + right);
        mHeard.push_back(channels == 1 ? mono : left);
        mHeard.push_back(channels == 1 ? mono : right);
    }
}

} // namespace vantelo_sounds::engine
