#pragma once
// Word-at-a-time scans over JSON string text, shared by the reader and the writer: a history of
// 20,000 entries is mostly path text, read and written on every clean, and looking at it eight
// bytes at a time instead of one is most of what reading and writing it costs.

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace quorv::jsonscan {

constexpr std::uint64_t ones = 0x0101010101010101ull;
constexpr std::uint64_t highs = 0x8080808080808080ull;

// The high bit of each byte of w that is below n (n <= 0x80). Only the lowest marked byte is
// exact: a borrow may mark bytes above it, which callers never look at.
constexpr std::uint64_t below(std::uint64_t w, unsigned n) { return (w - ones * n) & ~w & highs; }
constexpr std::uint64_t equal(std::uint64_t w, unsigned char c) { return below(w ^ (ones * c), 1); }

// Where the first byte that a JSON string can't hold as it is lies ('"', '\\' or a control
// character), from `from`; text.size() when there is none. high collects the high bits of the
// bytes looked at (at least those before the one found), so that a caller knows whether the run
// needs a UTF-8 check.
inline std::size_t special(std::string_view text, std::size_t from, std::uint64_t& high) {
    std::size_t i = from;
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 8 <= text.size(); i += 8) {
            std::uint64_t w;
            std::memcpy(&w, text.data() + i, 8);
            high |= w;
            const std::uint64_t hit = equal(w, '"') | equal(w, '\\') | below(w, 0x20);
            if (hit != 0) return i + static_cast<std::size_t>(std::countr_zero(hit) / 8);
        }
    }
    for (; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\' || c < 0x20) return i;
        high |= c;
    }
    return i;
}

// True when every byte is ASCII.
inline bool isAscii(std::string_view text) {
    std::uint64_t high = 0;
    std::size_t i = 0;
    for (; i + 8 <= text.size(); i += 8) {
        std::uint64_t w;
        std::memcpy(&w, text.data() + i, 8);
        high |= w;
    }
    for (; i < text.size(); ++i) high |= static_cast<unsigned char>(text[i]);
    return (high & highs) == 0;
}

}  // namespace quorv::jsonscan
