#pragma once
// A 64-bit hash of a text fed in pieces of any size, the same however the text is cut: a state
// file's hash is taken as it is written, piece by piece, and again when it is read whole, to tell
// whether someone else changed it. Not for anything an adversary chooses to collide.

#include <array>
#include <cstdint>
#include <string_view>

namespace quorv {

class TextHash {
public:
    void update(std::string_view text);
    std::uint64_t value() const;

    static std::uint64_t of(std::string_view text) {
        TextHash h;
        h.update(text);
        return h.value();
    }

private:
    static constexpr std::size_t block = 32;  // four words, mixed in four independent lanes
    void mix(const char* bytes);

    std::array<std::uint64_t, 4> lanes_{0x9E3779B97F4A7C15ull, 0xC2B2AE3D27D4EB4Full, 0x165667B19E3779F9ull,
                                        0x27D4EB2F165667C5ull};
    std::uint64_t length_ = 0;
    std::array<char, block> pending_{};  // the start of a block not yet whole
};

}  // namespace quorv
