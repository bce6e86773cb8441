#include "support/text/TextHash.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quorv {

namespace {

constexpr std::uint64_t multiplier = 0xFF51AFD7ED558CCDull;

std::uint64_t littleEndianWord(const char* p) {
    std::uint64_t w = 0;
    std::memcpy(&w, p, sizeof w);
    if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
    return w;
}

std::uint64_t finalMix(std::uint64_t h) {
    h = (h ^ (h >> 33)) * multiplier;
    return h ^ (h >> 29);
}

}  // namespace

void TextHash::mix(const char* bytes) {
    for (std::size_t k = 0; k < lanes_.size(); ++k) {
        std::uint64_t& lane = lanes_[k];
        lane = (lane ^ littleEndianWord(bytes + 8 * k)) * multiplier;
        lane ^= lane >> 29;
    }
}

void TextHash::update(std::string_view text) {
    std::size_t i = 0;
    if (const std::size_t held = length_ % block; held != 0) {
        // First complete the block left over from the last piece.
        const std::size_t n = std::min(block - held, text.size());
        std::copy_n(text.data(), n, pending_.data() + held);
        i = n;
        if (held + n == block) mix(pending_.data());
    }
    for (; i + block <= text.size(); i += block) mix(text.data() + i);
    std::copy(text.data() + i, text.data() + text.size(), pending_.data());
    length_ += text.size();
}

std::uint64_t TextHash::value() const {
    std::uint64_t h = length_;
    for (const std::uint64_t lane : lanes_) h = finalMix(h ^ lane) + 0x9E3779B97F4A7C15ull;
    const std::size_t held = length_ % block;
    for (std::size_t k = 0; k < held; ++k) h = (h ^ static_cast<unsigned char>(pending_[k])) * multiplier;
    return finalMix(h);
}

}  // namespace quorv
