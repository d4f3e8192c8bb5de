#pragma once

#include <cstddef>
#include <memory>
#include <vantelo_sounds/Expected.hpp>
#include <vector>

struct AVFrame;

namespace vantelo_sounds::engine {

/// Turns decoded frames into what a SoundData holds: 32-bit float, interleaved, at kMixRate,
/// mono (a mono source, at its full level) or stereo (anything else, mixed down). The output has
/// exactly the input's length at the mix rate: the filter's tail is let out, and cut, when the
/// frames' format changes and at the end. Non-finite samples come out as silence.
class Resampler {
public:
    /// The most channels and the highest rate a source may have.
    static constexpr int kMaxChannels = 64;
    static constexpr int kMaxSampleRate = 1'536'000;
    /// No recorded sound is stored below telephone-like rates; a header claiming a few hertz would
    /// make every input sample tens of thousands of output frames (4 KB at 1 Hz: 68 minutes).
    static constexpr int kMinSampleRate = 1'000;

    /// `channels` is the output's: 1 or 2.
    explicit Resampler(int channels);
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// Converts `count` samples of `frame` from its sample `first` on (the rest is the
    /// encoder's delay or padding). Fails (corrupt) on a frame of an impossible format.
    Expected<void> convert(const AVFrame& frame, int first, int count);
    /// The sound has ended: lets out the filter's tail, looking past the end into the sound's
    /// start, so that a loop of it has no seam (a one-shot's last millisecond hardly changes).
    void finish();

    /// Converted frames not taken yet, from data() on.
    std::size_t available() const noexcept { return mEnd - mBegin; }
    const float* data() const noexcept { return mPending.data() + mBegin * channels(); }
    /// Drops `frames` (at most available()) from the front.
    void consume(std::size_t frames) noexcept { mBegin += frames; }

private:
    struct Filter; // swresample set up for one input format

    std::size_t channels() const noexcept { return static_cast<std::size_t>(mChannels); }
    Expected<void> setUp(const AVFrame& frame);
    void flush(); // silence past the end: a new format follows
    void drain(bool intoTheStart);
    float* reserve(std::size_t frames);
    void commit(std::size_t frames);

    const int mChannels;
    std::unique_ptr<Filter> mFilter;
    std::vector<float> mPending; // interleaved, [mBegin, mEnd) not taken yet
    std::size_t mBegin = 0;
    std::size_t mEnd = 0;
};

} // namespace vantelo_sounds::engine
