#include "zerko/foundation/uuid.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <random>

namespace zerko::foundation {

std::string uuid4_hex() {
    // One generator for the process, seeded from the system's entropy; the
    // lock keeps concurrent callers from sharing a state mid-update.
    static std::mutex mutex;
    static std::mt19937_64 engine{[] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }()};
    std::array<std::uint8_t, 16> bytes{};
    {
        const std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < bytes.size(); i += 8) {
            const std::uint64_t word = engine();
            for (std::size_t k = 0; k < 8; ++k) bytes[i + k] = static_cast<std::uint8_t>(word >> (8 * k));
        }
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(32);
    for (const std::uint8_t b : bytes) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 0x0F]);
    }
    return out;
}

double wall_time() {
    const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(since_epoch).count();
}

}  // namespace zerko::foundation
