#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace vantelo_sounds {

/// A random (version 4) universally unique identifier.
class UUID {
public:
    /// A new random identifier. Safe to call from any thread.
    static UUID make();

    /// The canonical text form: 8-4-4-4-12 upper-case hexadecimal digits, 36 characters.
    std::string uuidString() const;
    const std::array<std::uint8_t, 16>& bytes() const noexcept { return mBytes; }

    friend bool operator==(const UUID&, const UUID&) = default;

private:
    std::array<std::uint8_t, 16> mBytes{};
};

} // namespace vantelo_sounds
