#pragma once

#include <string>
#include <vantelo_sounds/Expected.hpp>

namespace vantelo_sounds::engine {

/// Rewrites the fragmented M4A at `path` as a plain one, in place: the same AAC packets, one index
/// at the end and an edit list that hides the encoder's `primingSamples`, so that players start
/// on the first recorded sample and report the exact length. The new file is written beside the
/// old one and renamed over it, so the old one stays whole until the new one is complete. On
/// failure the fragmented file is left as it was.
Expected<void> remuxToPlainM4a(const std::string& path, int primingSamples);

} // namespace vantelo_sounds::engine
