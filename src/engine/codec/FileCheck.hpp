#pragma once

#include <cstdint>
#include <string>
#include <vantelo_sounds/Expected.hpp>

#include "engine/codec/OpenError.hpp"

namespace vantelo_sounds::engine {

/// What identifies one version of a file on disk: a change of either means "decode again".
struct FileStamp {
    std::uint64_t size = 0;
    std::int64_t mtimeNs = 0;

    bool operator==(const FileStamp&) const = default;
};

/// Checks that `path` names a regular file (following symlinks) without opening it, so that a
/// FIFO or a device is refused before anything could block on it.
Expected<FileStamp> checkRegularFile(const std::string& path);

/// Opens `path` for reading without blocking (a FIFO swapped in after the check cannot hang
/// the caller) and checks again, on the descriptor, that it is a regular file. Returns the fd.
Expected<int> openRegularFile(const std::string& path);

} // namespace vantelo_sounds::engine
