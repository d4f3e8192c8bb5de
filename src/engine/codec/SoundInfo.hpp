#pragma once

#include <string>

namespace vantelo_sounds::engine {

/// What the decoder learnt about a file when it opened it.
struct SoundInfo {
    int channels = 0;              ///< after decoding: 1 (mono source) or 2 (everything else)
    int sourceRate = 0;            ///< Hz, as the container declares it
    int sourceChannels = 0;        ///< as the container declares it
    double durationEstimate = 0.0; ///< seconds from the headers; 0 when unknown; never trusted
    std::string container;         ///< FFmpeg demuxer name, e.g. "wav", "mov,mp4,m4a,3gp,3g2,mj2"
    std::string codec;             ///< FFmpeg decoder name, e.g. "pcm_s16le", "aac", "mp3float"
};

} // namespace vantelo_sounds::engine
