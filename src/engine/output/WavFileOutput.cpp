#include "engine/output/WavFileOutput.hpp"

namespace vantelo_sounds::engine {

WavFileOutput::WavFileOutput(std::string path, bool realTime)
    : mPath(std::move(path))
    , mRealTime(realTime) {}

Expected<void> WavFileOutput::start(Mixer& mixer) {
    if (!mWriter.isOpen()) {
        if (auto opened = mWriter.open(mPath); !opened) {
            return opened;
        }
    }
    mThread.start(mixer, mRealTime, &mWriter, mTap);
    return {};
}

void WavFileOutput::stop() noexcept {
    mThread.stop();
    (void)mWriter.close(); // a real-time output has nobody to tell; the file holds what it could
}

} // namespace vantelo_sounds::engine
