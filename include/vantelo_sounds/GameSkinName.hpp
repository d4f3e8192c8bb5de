#pragma once

#include <cstddef>
#include <functional>

namespace vantelo_sounds {

/// The host game's skins, in their fixed order (case indexes 0 to 9). Not used by the library.
enum class GameSkinName {
    classic,
    neon,
    forest,
    ocean,
    desert,
    arctic,
    volcano,
    space,
    candy,
    retro,
};

} // namespace vantelo_sounds

/// Hashes the case index as one unsigned machine word.
template <>
struct std::hash<vantelo_sounds::GameSkinName> {
    std::size_t operator()(vantelo_sounds::GameSkinName skin) const noexcept {
        return std::hash<std::size_t>{}(static_cast<std::size_t>(skin));
    }
};
