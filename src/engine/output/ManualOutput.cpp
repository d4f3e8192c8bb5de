#include "engine/output/ManualOutput.hpp"

#include <algorithm>

#include "engine/mix/Mixer.hpp"

namespace vantelo_sounds::engine {

ManualOutput::ManualOutput(std::string wavPath)
    : mWavPath(std::move(wavPath))
    , mBuffer(kBlockFrames * 2) {}

Expected<void> ManualOutput::start(Mixer& mixer) {
    if (!mWavPath.empty() && !mWav.isOpen()) {
        if (auto opened = mWav.open(mWavPath); !opened) {
            return opened;
        }
    }
    mMixer = &mixer;
    return {};
}

void ManualOutput::stop() noexcept {
    mMixer = nullptr;
    (void)mWav.close(); // whoever wants to know how the file ended calls finishFile() first
}

std::size_t ManualOutput::render(std::size_t frames) {
    if (mMixer == nullptr) {
        return 0;
    }
    const std::size_t n = std::min(frames, kBlockFrames);
    const std::size_t got = mMixer->renderUntilVoiceEnds(mBuffer.data(), n);
    if (mWav.isOpen()) {
        mWav.write(mBuffer.data(), got); // a failure is kept by the writer for finishFile()
    }
    if (mCapture != nullptr) {
        mCapture->insert(mCapture->end(), mBuffer.begin(),
                         mBuffer.begin() + static_cast<std::ptrdiff_t>(got * 2));
    }
    return got;
}

} // namespace vantelo_sounds::engine
