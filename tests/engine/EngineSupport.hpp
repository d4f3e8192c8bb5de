#pragma once

#include <memory>
#include <vector>

#include "engine/Engine.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

/// A sound holding `interleaved`, with a second of room for more while it is not complete.
inline std::shared_ptr<SoundData> soundOf(const std::vector<float>& interleaved, int channels = 1,
                                          bool complete = true) {
    const std::size_t frames = interleaved.size() / static_cast<std::size_t>(channels);
    auto data = std::make_shared<SoundData>(channels, frames + kMixRate);
    data->append(interleaved.data(), frames);
    if (complete) {
        data->finish(true);
    }
    return data;
}

inline std::shared_ptr<SoundData> constantSound(std::size_t frames, float value,
                                                bool complete = true) {
    return soundOf(std::vector<float>(frames, value), 1, complete);
}

} // namespace vantelo_sounds::engine
