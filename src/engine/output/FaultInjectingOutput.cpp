#include "engine/output/FaultInjectingOutput.hpp"

#include <algorithm>

#include "engine/mix/Mixer.hpp"
#include "engine/output/OutputError.hpp"

namespace vantelo_sounds::engine {

FaultInjectingOutput::FaultInjectingOutput(std::shared_ptr<FaultInjectingDevice> device)
    : mDevice(std::move(device)) {}

Expected<void> FaultInjectingOutput::open(Mixer& mixer) {
    if (!mDevice->tryOpen()) {
        return Expected<void>(OutputError::deviceUnavailable, mDevice->present()
                                                                  ? "the device refused to open"
                                                                  : "the device is unplugged");
    }
    mMixer = &mixer;
    mOpenedAtUnplugs = mDevice->unplugs();
    mFormat = mDevice->mFormat;
    mFormat.blockFrames = std::max<std::size_t>(mFormat.blockFrames, 1);
    mBlock.assign(mFormat.blockFrames * 2, 0.0f);
    return {};
}

void FaultInjectingOutput::stop() noexcept {
    if (mMixer == nullptr) {
        return;
    }
    mRendering = false;
    mMixer = nullptr;
    mDevice->close();
}

bool FaultInjectingOutput::lost() const noexcept {
    return mMixer != nullptr && mDevice->unplugs() != mOpenedAtUnplugs;
}

std::size_t FaultInjectingOutput::render(std::size_t frames) {
    if (mMixer == nullptr || !mRendering) {
        return 0;
    }
    const std::size_t n = std::min(frames, mFormat.blockFrames);
    const std::size_t got = mMixer->renderUntilVoiceEnds(mBlock.data(), n);
    // A removed device's callback still comes, and its sound goes nowhere; a stalled one asks
    // for nothing, so what was rendered for it is lost.
    if (!lost() && !mDevice->mStalled) {
        mDevice->play(mBlock.data(), got, mFormat.channels);
        mConsumed += got;
    }
    return got;
}

} // namespace vantelo_sounds::engine
