#include "engine/mix/MixKernel.hpp"

#include <atomic>

namespace vantelo_sounds::engine {

namespace {

// GCC vector extensions: plain arithmetic on them compiles to SSE/AVX at any -O level, with no
// reliance on the auto-vectoriser's cost model. Loads and stores go through memcpy, so nothing
// needs to be aligned.
using F4 = float __attribute__((vector_size(16)));
using F8 = float __attribute__((vector_size(32)));

template <typename V>
struct Lanes;
template <>
struct Lanes<F4> {
    static constexpr std::size_t kCount = 4;
};
template <>
struct Lanes<F8> {
    static constexpr std::size_t kCount = 8;
};

#if defined(__x86_64__)
#define VANTELO_MIX_AVX2 1
#endif

// The plain loops: the scalar variant, and the tails of the vector ones.
void addMonoScalar(float* out, const float* src, std::size_t frames, float left,
                   float right) noexcept {
    for (std::size_t i = 0; i < frames; ++i) {
        out[2 * i] += src[i] * left;
        out[2 * i + 1] += src[i] * right;
    }
}

void addStereoScalar(float* out, const float* src, std::size_t frames, float left,
                     float right) noexcept {
    for (std::size_t i = 0; i < 2 * frames; i += 2) {
        out[i] += src[i] * left;
        out[i + 1] += src[i + 1] * right;
    }
}

void clampScalar(float* samples, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        const float x = samples[i];
        if (!(x >= -1.0f && x <= 1.0f)) {
            samples[i] = x != x ? 0.0f : (x > 0.0f ? 1.0f : -1.0f);
        }
    }
}

// The bodies are force-inlined into one wrapper per instruction set, so each is compiled for
// the wrapper's target; vectors never cross a call (no ABI concerns).
template <typename V>
[[gnu::always_inline]] inline void addMonoWith(float* __restrict out, const float* __restrict src,
                                               std::size_t frames, float left,
                                               float right) noexcept {
    using L = Lanes<V>;
    constexpr std::size_t n = L::kCount;
    V gains;
    for (std::size_t k = 0; k < n; k += 2) {
        gains[k] = left;
        gains[k + 1] = right;
    }
    std::size_t i = 0;
    for (; i + n <= frames; i += n) {
        V s;
        V a;
        V b;
        __builtin_memcpy(&s, src + i, sizeof s);
        __builtin_memcpy(&a, out + 2 * i, sizeof a);
        __builtin_memcpy(&b, out + 2 * i + n, sizeof b);
        // The first and second half of the mono samples, each spread over left and right. Written
        // in place (not as helper calls) so that no vector crosses a function boundary.
        if constexpr (n == 4) {
            a += __builtin_shufflevector(s, s, 0, 0, 1, 1) * gains;
            b += __builtin_shufflevector(s, s, 2, 2, 3, 3) * gains;
        } else {
            a += __builtin_shufflevector(s, s, 0, 0, 1, 1, 2, 2, 3, 3) * gains;
            b += __builtin_shufflevector(s, s, 4, 4, 5, 5, 6, 6, 7, 7) * gains;
        }
        __builtin_memcpy(out + 2 * i, &a, sizeof a);
        __builtin_memcpy(out + 2 * i + n, &b, sizeof b);
    }
    addMonoScalar(out + 2 * i, src + i, frames - i, left, right);
}

template <typename V>
[[gnu::always_inline]] inline void addStereoWith(float* __restrict out, const float* __restrict src,
                                                 std::size_t frames, float left,
                                                 float right) noexcept {
    constexpr std::size_t n = Lanes<V>::kCount;
    V gains;
    for (std::size_t k = 0; k < n; k += 2) {
        gains[k] = left;
        gains[k + 1] = right;
    }
    const std::size_t count = 2 * frames;
    std::size_t i = 0;
    for (; i + 2 * n <= count; i += 2 * n) {
        V s0;
        V s1;
        V a;
        V b;
        __builtin_memcpy(&s0, src + i, sizeof s0);
        __builtin_memcpy(&s1, src + i + n, sizeof s1);
        __builtin_memcpy(&a, out + i, sizeof a);
        __builtin_memcpy(&b, out + i + n, sizeof b);
        a += s0 * gains;
        b += s1 * gains;
        __builtin_memcpy(out + i, &a, sizeof a);
        __builtin_memcpy(out + i + n, &b, sizeof b);
    }
    addStereoScalar(out + i, src + i, frames - i / 2, left, right);
}

template <typename V>
[[gnu::always_inline]] inline void clampWith(float* samples, std::size_t count) noexcept {
    constexpr std::size_t n = Lanes<V>::kCount;
    const V one = V{} + 1.0f;
    const V minusOne = V{} - 1.0f;
    const V zero = V{};
    std::size_t i = 0;
    for (; i + n <= count; i += n) {
        V x;
        __builtin_memcpy(&x, samples + i, sizeof x);
        V c = x > one ? one : x;
        c = c < minusOne ? minusOne : c;
        c = x == x ? c : zero; // NaN compares unequal to itself
        __builtin_memcpy(samples + i, &c, sizeof c);
    }
    clampScalar(samples + i, count - i);
}

void addMonoSse(float* out, const float* src, std::size_t frames, float left,
                float right) noexcept {
    addMonoWith<F4>(out, src, frames, left, right);
}
void addStereoSse(float* out, const float* src, std::size_t frames, float left,
                  float right) noexcept {
    addStereoWith<F4>(out, src, frames, left, right);
}
void clampSse(float* samples, std::size_t count) noexcept {
    clampWith<F4>(samples, count);
}

constexpr MixKernel::Table kScalar{addMonoScalar, addStereoScalar, clampScalar};
constexpr MixKernel::Table kSse{addMonoSse, addStereoSse, clampSse};

#ifdef VANTELO_MIX_AVX2
__attribute__((target("avx2"))) void addMonoAvx2(float* out, const float* src, std::size_t frames,
                                                 float left, float right) noexcept {
    addMonoWith<F8>(out, src, frames, left, right);
}
__attribute__((target("avx2"))) void addStereoAvx2(float* out, const float* src, std::size_t frames,
                                                   float left, float right) noexcept {
    addStereoWith<F8>(out, src, frames, left, right);
}
__attribute__((target("avx2"))) void clampAvx2(float* samples, std::size_t count) noexcept {
    clampWith<F8>(samples, count);
}

constexpr MixKernel::Table kAvx2{addMonoAvx2, addStereoAvx2, clampAvx2};
#endif

bool processorHasAvx2() noexcept {
#ifdef VANTELO_MIX_AVX2
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

// The best variant, chosen at first use from the processor's features (not by the loader: an
// ifunc resolver runs before a sanitizer's runtime is ready). Racing first uses all store the same
// answer, so a relaxed atomic is enough, and the audio thread never waits on a guard.
std::atomic<const MixKernel::Table*> gBest{nullptr};

const MixKernel::Table& best() noexcept {
    const MixKernel::Table* table = gBest.load(std::memory_order_relaxed);
    if (table == nullptr) {
        table = MixKernel::kernels(MixKernel::Variant::avx2);
        if (table == nullptr) {
            table = &kSse;
        }
        gBest.store(table, std::memory_order_relaxed);
    }
    return *table;
}

} // namespace

const MixKernel::Table* MixKernel::kernels(Variant variant) noexcept {
    switch (variant) {
    case Variant::scalar:
        return &kScalar;
    case Variant::sse:
        return &kSse;
    case Variant::avx2:
#ifdef VANTELO_MIX_AVX2
        return processorHasAvx2() ? &kAvx2 : nullptr;
#else
        return nullptr;
#endif
    }
    return nullptr;
}

void MixKernel::prepare() noexcept {
    best();
}

void MixKernel::addMono(float* out, const float* src, std::size_t frames, float left,
                        float right) noexcept {
    best().addMono(out, src, frames, left, right);
}

void MixKernel::addStereo(float* out, const float* src, std::size_t frames, float left,
                          float right) noexcept {
    best().addStereo(out, src, frames, left, right);
}

void MixKernel::clampToFullScale(float* samples, std::size_t count) noexcept {
    best().clampToFullScale(samples, count);
}

} // namespace vantelo_sounds::engine
