#pragma once

#include <cstddef>

namespace vantelo_sounds::engine {

/// Where a decoder puts the frames it makes (32-bit float, interleaved, at the mixer's rate).
class FrameSink {
public:
    virtual int channels() const noexcept = 0;
    /// Takes up to `frames` frames; returns how many it took (fewer when it is full).
    virtual std::size_t append(const float* interleaved, std::size_t frames) = 0;

protected:
    ~FrameSink() = default;
};

} // namespace vantelo_sounds::engine
