#include "engine/capture/RecordingFile.hpp"

#include <algorithm>
#include <cmath>

namespace vantelo_sounds::engine {

RecordingFile::RecordingFile(int inputRate, std::uint64_t limit)
    : mInputRate(inputRate)
    , mLimit(limit) {}

Expected<std::unique_ptr<RecordingFile>> RecordingFile::create(const Settings& settings) {
    std::unique_ptr<RecordingFile> file(
        new RecordingFile(settings.inputRate, settings.limitFrames));
    AudioFileWriter::Options options;
    options.bitRate = settings.bitRate;
    options.fragmented = true;
    options.plainWhenClosed = true;
    options.fragmentSeconds = kFragmentSeconds;
    options.encodedRate = settings.fileRate;
    if (auto opened =
            file->mWriter.open(settings.path, AudioFileFormat::m4a, settings.inputRate, 1, options);
        !opened) {
        return opened.failure();
    }
    return file;
}

Expected<std::size_t> RecordingFile::append(const float* samples, std::size_t frames) {
    const auto taken = static_cast<std::size_t>(
        std::min<std::uint64_t>(frames, mLimit > mFrames ? mLimit - mFrames : 0));
    if (taken == 0) {
        return std::size_t{0};
    }
    mClean.assign(samples, samples + taken);
    for (float& s : mClean) {
        if (!std::isfinite(s)) {
            s = 0.0f;
            ++mRepaired;
        } else if (s > 1.0f || s < -1.0f) {
            s = std::clamp(s, -1.0f, 1.0f);
            ++mRepaired;
        }
        mHeard = mHeard || s != 0.0f;
    }
    if (auto written = mWriter.write(mClean.data(), taken); !written) {
        return written.failure();
    }
    mFrames += taken;
    return taken;
}

Expected<std::size_t> RecordingFile::appendSilence(std::size_t frames) {
    const auto gap = static_cast<std::size_t>(
        std::min<std::uint64_t>(frames, mLimit > mFrames ? mLimit - mFrames : 0));
    mClean.assign(gap, 0.0f);
    if (auto written = mWriter.write(mClean.data(), gap); !written) {
        return written.failure();
    }
    mFrames += gap;
    return gap;
}

Expected<void> RecordingFile::finish() {
    return mWriter.close();
}

} // namespace vantelo_sounds::engine
