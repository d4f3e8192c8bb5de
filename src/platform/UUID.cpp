#include <random>
#include <sys/random.h>
#include <vantelo_sounds/platform/UUID.hpp>

namespace vantelo_sounds {

UUID UUID::make() {
    UUID uuid;
    // The kernel's generator: nothing to seed, and forked processes never repeat each other.
    if (::getrandom(uuid.mBytes.data(), uuid.mBytes.size(), 0) !=
        static_cast<ssize_t>(uuid.mBytes.size())) {
        thread_local std::mt19937_64 generator = [] {
            std::random_device device;
            std::seed_seq seed{device(), device(), device(), device(), device(), device()};
            return std::mt19937_64(seed);
        }();
        for (std::size_t i = 0; i < uuid.mBytes.size(); i += 8) {
            const std::uint64_t bits = generator();
            for (std::size_t j = 0; j < 8; ++j) {
                uuid.mBytes[i + j] = static_cast<std::uint8_t>(bits >> (8 * j));
            }
        }
    }
    uuid.mBytes[6] = static_cast<std::uint8_t>((uuid.mBytes[6] & 0x0F) | 0x40); // version 4
    uuid.mBytes[8] = static_cast<std::uint8_t>((uuid.mBytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    return uuid;
}

std::string UUID::uuidString() const {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < mBytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += kHex[mBytes[i] >> 4];
        text += kHex[mBytes[i] & 0x0F];
    }
    return text;
}

} // namespace vantelo_sounds
