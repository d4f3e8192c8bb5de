#include "engine/output/WavFileOutput.hpp"

namespace vantelo_sounds::engine {

WavFileOutput::WavFileOutput(std::string path, bool realTime)
    : mPath(std::move(path))
    , mRealTime(realTime) {}

bool WavFileOutput::start(Mixer& mixer, std::string& error) {
    if (!mWriter.isOpen() && !mWriter.open(mPath, error)) {
        return false;
    }
    mThread.start(mixer, mRealTime, &mWriter, mTap);
    return true;
}

void WavFileOutput::stop() noexcept {
    mThread.stop();
    mWriter.close();
}

} // namespace vantelo_sounds::engine
