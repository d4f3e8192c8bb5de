#include "engine/codec/GaplessTrim.hpp"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
}

namespace vantelo_sounds::engine {

GaplessTrim::GaplessTrim(const AVStream& stream, bool durationIsStated)
    : mTimeBaseNum(stream.time_base.num)
    , mTimeBaseDen(stream.time_base.den)
    , mSampleRate(stream.codecpar->sample_rate) {
    if (durationIsStated && stream.duration != AV_NOPTS_VALUE && stream.duration > 0) {
        const std::int64_t start = stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time;
        mEnd = toSamples(start + stream.duration);
    }
}

std::optional<std::int64_t> GaplessTrim::toSamples(std::int64_t timestamp) const noexcept {
    if (timestamp == AV_NOPTS_VALUE || mTimeBaseNum <= 0 || mTimeBaseDen <= 0 || mSampleRate <= 0) {
        return std::nullopt;
    }
    return av_rescale_q(timestamp, AVRational{mTimeBaseNum, mTimeBaseDen},
                        AVRational{1, mSampleRate});
}

void GaplessTrim::packetSent(const AVPacket& packet) noexcept {
    if (!mPosition && !mFirstPacket) {
        mFirstPacket = toSamples(packet.pts);
    }
}

GaplessTrim::Span GaplessTrim::keep(const AVFrame& frame) noexcept {
    const std::optional<std::int64_t> stamped = toSamples(frame.pts);
    if (!mPosition) {
        mPosition = mFirstPacket ? mFirstPacket : stamped;
    }
    const std::int64_t start = mPosition.value_or(0);
    const int samples = std::max(frame.nb_samples, 0);
    mPosition = start + samples;

    if (const AVFrameSideData* side = av_frame_get_side_data(&frame, AV_FRAME_DATA_SKIP_SAMPLES);
        side != nullptr && side->size >= 8) {
        mSkip += AV_RL32(side->data);
        if (const std::int64_t padding = AV_RL32(side->data + 4); padding > 0) {
            // FFmpeg's padding counts back from the frame's end on FFmpeg's own timeline.
            const std::int64_t end = stamped.value_or(start) + samples - padding;
            mEnd = std::min(mEnd.value_or(end), end);
        }
    }
    const int first = static_cast<int>(std::min<std::int64_t>(mSkip, samples));
    mSkip -= first;
    if (frame.flags & AV_FRAME_FLAG_DISCARD) {
        return {}; // before the start of an edit list; its samples count as skipped ones
    }
    std::int64_t last = samples;
    if (mEnd) {
        last = std::clamp<std::int64_t>(*mEnd - start, first, samples);
    }
    return {first, static_cast<int>(last) - first};
}

} // namespace vantelo_sounds::engine
