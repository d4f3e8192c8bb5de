#include "engine/codec/Resampler.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "engine/codec/FfmpegLog.hpp"
#include "engine/codec/FfmpegPtr.hpp"
#include "engine/codec/OpenError.hpp"
#include "engine/sound/SoundData.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

namespace vantelo_sounds::engine {
namespace {

// Source samples the filter may look ahead past the end (swresample's default filter spans 32
// taps, stretched by the ratio when it lowers the rate; 256 covers sources up to 384 kHz).
constexpr int kHeadSamples = 256;

} // namespace

struct Resampler::Filter {
    ffmpeg::SwrPtr swr;
    int inFormat = -1;
    int inRate = 0;
    AVChannelLayout inLayout{}; // the frames' own layout (often "unspecified")
    std::int64_t in = 0;        // source samples fed
    std::int64_t out = 0;       // frames given back
    int planes = 1;
    int bytesPerSample = 0; // in one plane
    // The first source samples, as they came, one buffer per plane: the end of the sound is
    // resampled as if it went on into its start, the way a loop of it sounds.
    std::vector<std::vector<std::uint8_t>> head;
    int headSamples = 0;

    ~Filter() { av_channel_layout_uninit(&inLayout); }

    bool takes(const AVFrame& frame) const noexcept {
        return frame.format == inFormat && frame.sample_rate == inRate &&
               av_channel_layout_compare(&frame.ch_layout, &inLayout) == 0;
    }
};

Resampler::Resampler(int channels)
    : mChannels(channels) {}

Resampler::~Resampler() = default;

Expected<void> Resampler::setUp(const AVFrame& frame) {
    if (frame.sample_rate <= 0 || frame.sample_rate > kMaxSampleRate ||
        frame.ch_layout.nb_channels <= 0 || frame.ch_layout.nb_channels > kMaxChannels ||
        av_get_bytes_per_sample(static_cast<AVSampleFormat>(frame.format)) <= 0) {
        return Failure{OpenError::corrupt, "a decoded frame has an impossible format"};
    }
    if (mFilter && mFilter->takes(frame)) {
        return {};
    }
    flush();
    mFilter.reset();
    AVChannelLayout layout{};
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC ||
        av_channel_layout_check(&frame.ch_layout) == 0) {
        av_channel_layout_default(&layout, frame.ch_layout.nb_channels);
    } else if (av_channel_layout_copy(&layout, &frame.ch_layout) < 0) {
        return Failure{OpenError::notReadable, "out of memory"};
    }
    AVChannelLayout outLayout{};
    av_channel_layout_default(&outLayout, mChannels);
    SwrContext* raw = nullptr;
    int rc = swr_alloc_set_opts2(&raw, &outLayout, AV_SAMPLE_FMT_FLT, kMixRate, &layout,
                                 static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0,
                                 nullptr);
    ffmpeg::SwrPtr swr(raw);
    if (rc >= 0 && layout.nb_channels == 1 && mChannels == 2) {
        // swresample spreads mono over stereo 3 dB down; keep the source's level.
        const double matrix[2] = {1.0, 1.0};
        rc = swr_set_matrix(swr.get(), matrix, 1);
    } else if (rc >= 0 && layout.nb_channels > mChannels) {
        // Its float downmix adds the centre and surrounds to the fronts unscaled (a 5.1 tone
        // comes out 7.7 dB louder, past full scale); scaled, every source channel keeps its level.
        rc = av_opt_set_double(swr.get(), "rematrix_maxval", 1.0, 0);
    }
    av_channel_layout_uninit(&layout);
    if (rc >= 0) {
        rc = swr_init(swr.get());
    }
    if (rc < 0) {
        return Failure{OpenError::corrupt,
                       "cannot convert the decoded audio: " + FfmpegLog::describe(rc)};
    }
    auto filter = std::make_unique<Filter>();
    filter->swr = std::move(swr);
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    filter->planes = planar ? frame.ch_layout.nb_channels : 1;
    filter->bytesPerSample =
        av_get_bytes_per_sample(format) * (planar ? 1 : frame.ch_layout.nb_channels);
    filter->head.resize(static_cast<std::size_t>(filter->planes));
    filter->inFormat = frame.format;
    filter->inRate = frame.sample_rate;
    if (av_channel_layout_copy(&filter->inLayout, &frame.ch_layout) < 0) {
        filter->inLayout = AVChannelLayout{};
    }
    mFilter = std::move(filter);
    return {};
}

Expected<void> Resampler::convert(const AVFrame& frame, int first, int count) {
    if (auto ready = setUp(frame); !ready) {
        return ready;
    }
    if (count <= 0) {
        return {};
    }
    Filter& f = *mFilter;
    // Point past the samples that are not part of the sound, in every plane.
    std::array<const std::uint8_t*, kMaxChannels> in{};
    const int toHead = std::min(count, kHeadSamples - f.headSamples);
    for (std::size_t plane = 0; plane < f.head.size(); ++plane) {
        in[plane] = frame.extended_data[plane] + std::ptrdiff_t(first) * f.bytesPerSample;
        f.head[plane].insert(f.head[plane].end(), in[plane],
                             in[plane] + std::ptrdiff_t(toHead) * f.bytesPerSample);
    }
    f.headSamples += toHead;
    const int room = swr_get_out_samples(f.swr.get(), count);
    if (room <= 0) {
        return {};
    }
    auto* out = reinterpret_cast<std::uint8_t*>(reserve(static_cast<std::size_t>(room)));
    const int n = swr_convert(f.swr.get(), &out, room, in.data(), count);
    if (n < 0) {
        return Failure{OpenError::corrupt, "conversion failed: " + FfmpegLog::describe(n)};
    }
    commit(static_cast<std::size_t>(n));
    f.in += count;
    f.out += n;
    return {};
}

void Resampler::flush() {
    drain(false);
}

void Resampler::finish() {
    drain(true);
}

void Resampler::drain(bool intoTheStart) {
    if (!mFilter) {
        return;
    }
    Filter& f = *mFilter;
    // What lies past the end is either silence or the sound's own start; only what the input
    // accounts for is kept, so the output has exactly the input's length at the mix rate.
    std::array<const std::uint8_t*, kMaxChannels> head{};
    for (std::size_t plane = 0; plane < f.head.size(); ++plane) {
        head[plane] = f.head[plane].data();
    }
    int headLeft = intoTheStart ? f.headSamples : 0;
    const std::int64_t expected = av_rescale_rnd(f.in, kMixRate, f.inRate, AV_ROUND_NEAR_INF);
    while (f.out < expected) {
        const int room = static_cast<int>(std::min<std::int64_t>(expected - f.out, 4096));
        auto* out = reinterpret_cast<std::uint8_t*>(reserve(static_cast<std::size_t>(room)));
        const bool feeding = headLeft > 0;
        const int n =
            swr_convert(f.swr.get(), &out, room, feeding ? head.data() : nullptr, headLeft);
        headLeft = 0; // swresample keeps what it could not use yet
        if (n < 0 || (n == 0 && !feeding)) {
            break;
        }
        commit(static_cast<std::size_t>(n));
        f.out += n;
    }
}

float* Resampler::reserve(std::size_t frames) {
    if (mBegin == mEnd) {
        mBegin = mEnd = 0;
    }
    const std::size_t needed = (mEnd + frames) * channels();
    if (mPending.size() < needed) {
        mPending.resize(needed);
    }
    return mPending.data() + mEnd * channels();
}

void Resampler::commit(std::size_t frames) {
    float* samples = mPending.data() + mEnd * channels();
    std::replace_if(
        samples, samples + frames * channels(), [](float s) { return !std::isfinite(s); }, 0.0f);
    mEnd += frames;
}

} // namespace vantelo_sounds::engine
