#include "engine/mix/Voice.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "engine/mix/MixKernel.hpp"
#include "engine/sound/FrameSource.hpp"

namespace vantelo_sounds::engine {

namespace {

// cos() of pi/2 is not exactly 0 in floating point; a hard-panned voice must be truly silent on
// the other side.
float exactGain(double g) noexcept {
    return std::abs(g) < 1e-7 ? 0.0f : static_cast<float>(g);
}

} // namespace

void Voice::gainsFor(const VoiceParams& params, bool stereo, float out[2]) noexcept {
    const double pan = params.pan;
    const double volume = params.volume;
    if (stereo) {
        // Balance: the source keeps its own stereo image; panning only attenuates the far side.
        out[0] = exactGain(volume * (pan > 0.0 ? std::cos(pan * std::numbers::pi / 2.0) : 1.0));
        out[1] = exactGain(volume * (pan < 0.0 ? std::cos(-pan * std::numbers::pi / 2.0) : 1.0));
        return;
    }
    const double angle = (pan + 1.0) * std::numbers::pi / 4.0;
    out[0] = exactGain(volume * std::cos(angle));
    out[1] = exactGain(volume * std::sin(angle));
}

void Voice::start(const FrameSource* source, std::uint32_t gen,
                  const VoiceParams& params) noexcept {
    data = source;
    generation = gen;
    position = 0;
    if (source->repeatsItself()) {
        passesLeft = 1; // the source's frames are every pass already
    } else if (params.loops < 0) {
        passesLeft = -1;
    } else {
        passesLeft = params.loops == std::numeric_limits<std::int64_t>::max() ? params.loops
                                                                              : params.loops + 1;
    }
    gainsFor(params, source->channels() == 2, gain);
    std::copy(gain, gain + 2, gainTarget);
    gainLeft = 0;
    envelope = 0.0f;
    fadeTo(1.0f, kStartRampFrames);
    state = State::playing;
}

void Voice::setParams(const VoiceParams& params) noexcept {
    gainsFor(params, data->channels() == 2, gainTarget);
    for (int c = 0; c < 2; ++c) {
        gainStep[c] = (gainTarget[c] - gain[c]) / static_cast<float>(kParamRampFrames);
    }
    gainLeft = kParamRampFrames;
}

void Voice::fadeTo(float target, std::uint32_t frames) noexcept {
    envelopeTarget = target;
    envelopeLeft = frames;
    envelopeStep = (target - envelope) / static_cast<float>(frames);
}

std::size_t Voice::framesUntilEnd(std::size_t limit) const noexcept {
    const std::size_t never = limit + 1;
    if (state == State::free) {
        return never;
    }
    const bool complete = data->isComplete();
    const std::size_t available = data->availableFrames();
    std::size_t natural = never;
    if (complete) {
        if (available == 0) {
            return 0;
        }
        if (passesLeft >= 0) {
            const std::size_t thisPass = available - std::min(position, available);
            const auto morePasses =
                static_cast<std::size_t>(std::max<std::int64_t>(passesLeft - 1, 0));
            natural = morePasses > limit / available ? never : thisPass + morePasses * available;
        }
    } else if (state == State::stopping) {
        // A fading voice whose source runs dry ends there: it would be silent from then on.
        natural = available - std::min(position, available);
    }
    if (state == State::paused) {
        return never;
    }
    if (state == State::stopping) {
        natural = std::min<std::size_t>(natural, envelopeLeft);
    }
    return std::min(natural, never);
}

bool Voice::endOfPass(VoiceEnded::Reason& reason) noexcept {
    if (passesLeft > 0) {
        --passesLeft;
    }
    // An empty source ends at once even when looping, so that it cannot spin.
    if (passesLeft == 0 || data->availableFrames() == 0) {
        if (data->failed()) {
            reason = VoiceEnded::Reason::failed;
        } else {
            reason = state == State::stopping ? VoiceEnded::Reason::stopped
                                              : VoiceEnded::Reason::finished;
        }
        state = State::free;
        return true;
    }
    position = 0;
    return false;
}

bool Voice::endsNow(std::size_t& endOffset, VoiceEnded::Reason& reason) noexcept {
    endOffset = 0;
    if (state == State::paused) {
        return false;
    }
    const bool complete = data->isComplete();
    if (position < data->availableFrames()) {
        return false;
    }
    if (complete) {
        return endOfPass(reason);
    }
    if (state == State::stopping) {
        reason = VoiceEnded::Reason::stopped;
        state = State::free;
        return true;
    }
    return false;
}

bool Voice::mix(float* out, std::size_t frames, std::size_t& endOffset,
                VoiceEnded::Reason& reason) noexcept {
    const bool stereo = data->channels() == 2;
    if (frames == 0) {
        return endsNow(endOffset, reason);
    }
    std::size_t done = 0;
    while (done < frames) {
        if (state == State::paused) {
            return false;
        }
        // Read "complete" before the frame count: once complete, the count is final.
        const bool complete = data->isComplete();
        std::size_t contiguous = 0;
        const float* src = data->framesAt(position, contiguous);
        if (src == nullptr) {
            if (complete) {
                if (endOfPass(reason)) {
                    endOffset = done;
                    return true;
                }
                continue;
            }
            if (state == State::stopping) {
                reason = VoiceEnded::Reason::stopped;
                state = State::free;
                endOffset = done;
                return true;
            }
            return false; // the source is still filling: wait here, silently, without advancing
        }

        std::size_t n = std::min(frames - done, contiguous);
        float* dst = out + 2 * done;
        if (gainLeft > 0 || envelopeLeft > 0) {
            n = std::min<std::size_t>(n, std::max(gainLeft, envelopeLeft));
            for (std::size_t i = 0; i < n; ++i) {
                if (gainLeft > 0) {
                    gain[0] += gainStep[0];
                    gain[1] += gainStep[1];
                    if (--gainLeft == 0) {
                        gain[0] = gainTarget[0];
                        gain[1] = gainTarget[1];
                    }
                }
                if (envelopeLeft > 0) {
                    envelope += envelopeStep;
                    if (--envelopeLeft == 0) {
                        envelope = envelopeTarget;
                    }
                }
                const float l = gain[0] * envelope;
                const float r = gain[1] * envelope;
                if (stereo) {
                    dst[2 * i] += src[2 * i] * l;
                    dst[2 * i + 1] += src[2 * i + 1] * r;
                } else {
                    dst[2 * i] += src[i] * l;
                    dst[2 * i + 1] += src[i] * r;
                }
            }
        } else {
            // Steady state: constant gains over a whole contiguous run of the source.
            const float l = gain[0] * envelope;
            const float r = gain[1] * envelope;
            if (stereo) {
                MixKernel::addStereo(dst, src, n, l, r);
            } else {
                MixKernel::addMono(dst, src, n, l, r);
            }
        }
        position += n;
        done += n;
        data->releaseBefore(position);

        if (envelopeLeft == 0 && envelope == 0.0f) {
            if (state == State::stopping) {
                reason = VoiceEnded::Reason::stopped;
                state = State::free;
                endOffset = done;
                return true;
            }
            if (state == State::pausing) {
                state = State::paused;
                return false;
            }
        }
        // End a finished pass at once, so the end is reported on the frame right after it.
        if (data->isComplete() && position >= data->availableFrames()) {
            if (endOfPass(reason)) {
                endOffset = done;
                return true;
            }
        }
    }
    return false;
}

} // namespace vantelo_sounds::engine
