#pragma once

#include <cstddef>

namespace vantelo_sounds::engine {

/// The inner loops of the mix: constant-gain multiply-adds into interleaved stereo and the final
/// clamp. Written with explicit vectors so that they run wide at any optimisation level; on x86-64
/// an AVX2 version is picked at first use when the processor has it, and the binary stays
/// portable. Each output sample is computed exactly as the plain scalar loop would (no fused
/// multiply-add), so results do not depend on the processor.
struct MixKernel {
    /// One implementation of the loops: plain scalar code, 4-wide vectors (SSE on x86-64) or
    /// 8-wide AVX2 vectors.
    enum class Variant { scalar, sse, avx2 };
    /// The loops of one variant, with the signatures of the functions below.
    struct Table {
        void (*addMono)(float*, const float*, std::size_t, float, float) noexcept;
        void (*addStereo)(float*, const float*, std::size_t, float, float) noexcept;
        void (*clampToFullScale)(float*, std::size_t) noexcept;
    };
    /// The loops of `variant`, so that each can be checked against the others; null when this
    /// build or this processor lacks it. The functions below use the best one there is.
    static const Table* kernels(Variant variant) noexcept;
    /// Chooses the variant now (the mixer calls it on the control thread, so that the audio
    /// thread's first block does not ask the processor). Cheap, and harmless to call again.
    static void prepare() noexcept;

    /// out[2i] += src[i] * left, out[2i + 1] += src[i] * right, for i < frames.
    static void addMono(float* out, const float* src, std::size_t frames, float left,
                        float right) noexcept;
    /// out[2i] += src[2i] * left, out[2i + 1] += src[2i + 1] * right, for i < frames.
    static void addStereo(float* out, const float* src, std::size_t frames, float left,
                          float right) noexcept;
    /// NaN becomes 0, everything else is clamped to [-1, 1].
    static void clampToFullScale(float* samples, std::size_t count) noexcept;
};

} // namespace vantelo_sounds::engine
