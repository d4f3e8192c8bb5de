#include "engine/output/ManualOutput.hpp"

#include <algorithm>

#include "engine/mix/Mixer.hpp"

namespace vantelo_sounds::engine {

ManualOutput::ManualOutput(std::string wavPath)
    : mWavPath(std::move(wavPath))
    , mBuffer(kBlockFrames * 2) {}

bool ManualOutput::start(Mixer& mixer, std::string& error) {
    if (!mWavPath.empty() && !mWav.isOpen() && !mWav.open(mWavPath, error)) {
        return false;
    }
    mMixer = &mixer;
    return true;
}

void ManualOutput::stop() noexcept {
    mMixer = nullptr;
    if (mWav.isOpen()) {
        mWavOk = mWav.close() && mWavOk;
    }
}

std::size_t ManualOutput::render(std::size_t frames) {
    if (mMixer == nullptr) {
        return 0;
    }
    const std::size_t n = std::min(frames, kBlockFrames);
    const std::size_t got = mMixer->renderUntilVoiceEnds(mBuffer.data(), n);
    if (mWav.isOpen()) {
        mWavOk = mWav.write(mBuffer.data(), got) && mWavOk;
    }
    if (mCapture != nullptr) {
        mCapture->insert(mCapture->end(), mBuffer.begin(),
                         mBuffer.begin() + static_cast<std::ptrdiff_t>(got * 2));
    }
    return got;
}

} // namespace vantelo_sounds::engine
