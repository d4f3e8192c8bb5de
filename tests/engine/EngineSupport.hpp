#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
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

/// Interleaved stereo frames whose left sample is the frame's number and right sample its negative.
inline std::vector<float> numbered(std::size_t first, std::size_t frames) {
    std::vector<float> samples(frames * 2);
    for (std::size_t i = 0; i < frames; ++i) {
        samples[2 * i] = static_cast<float>(first + i);
        samples[2 * i + 1] = -static_cast<float>(first + i);
    }
    return samples;
}

/// Waits, bounded, for the engine to report an end rendered by an output's own thread.
inline std::optional<VoiceEnded> awaitEnd(Engine& engine) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::optional<VoiceEnded> ended;
    while (!ended && std::chrono::steady_clock::now() < deadline) {
        engine.drainEvents([&](const VoiceEnded& event) { ended = event; });
        std::this_thread::yield();
    }
    return ended;
}

} // namespace vantelo_sounds::engine
