#pragma once

#include <memory>
#include <string>

namespace vantelo_sounds::engine {

class SoundData;

/// A sound file as the cache knows it: decoded whole and kept (resident), or too long for that
/// and played from its file, each play through a stream of its own.
struct LoadedSound {
    std::shared_ptr<const SoundData> resident; ///< null when the sound streams
    std::string path;
    int channels = 0;     ///< 1 or 2, as decoded
    double seconds = 0.0; ///< the length the file states (0: unknown), read without decoding

    bool isStreamed() const noexcept { return resident == nullptr; }
};

} // namespace vantelo_sounds::engine
