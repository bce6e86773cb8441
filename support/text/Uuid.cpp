#include "support/text/Uuid.hpp"

#include <cstdint>
#include <random>

#include <fmt/format.h>

namespace quorv {

std::string newUuid() {
    thread_local std::mt19937_64 rng{[] {
        std::random_device rd;
        std::seed_seq seq{rd(), rd(), rd(), rd()};
        return std::mt19937_64(seq);
    }()};
    uint64_t hi = rng(), lo = rng();
    hi = (hi & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
    lo = (lo & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;  // RFC 4122 variant
    return fmt::format("{:08X}-{:04X}-{:04X}-{:04X}-{:012X}", hi >> 32, (hi >> 16) & 0xFFFF, hi & 0xFFFF, lo >> 48,
                       lo & 0xFFFFFFFFFFFFull);
}

}  // namespace quorv
