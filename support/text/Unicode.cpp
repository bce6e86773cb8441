#include "support/text/Unicode.hpp"

#include <algorithm>

#include "support/text/UnicodeTables.hpp"
#include "support/text/Utf8.hpp"

namespace quorv {

Utf8Char utf8CharAt(std::string_view text, std::size_t offset) {
    const std::size_t n = utf8SequenceLength(text, offset);
    if (n == 0) return {0xFFFD, 1, false};
    const auto lead = static_cast<unsigned char>(text[offset]);
    char32_t c = n == 1 ? lead : n == 2 ? (lead & 0x1Fu) : n == 3 ? (lead & 0x0Fu) : (lead & 0x07u);
    for (std::size_t k = 1; k < n; ++k) c = (c << 6) | (static_cast<unsigned char>(text[offset + k]) & 0x3Fu);
    return {c, n, true};
}

bool isNumeric(char32_t c) {
    if (c < 0x80) return c >= '0' && c <= '9';
    const auto* end = unicode::numericRanges + unicode::numericRangeCount;
    const auto* it = std::upper_bound(unicode::numericRanges, end, c,
                                      [](char32_t v, const unicode::CodeRange& r) { return v < r.first; });
    return it != unicode::numericRanges && c <= (it - 1)->last;
}

char32_t lowerCase(char32_t c) {
    if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + 32 : c;
    const auto* end = unicode::lowerRuns + unicode::lowerRunCount;
    const auto* it = std::upper_bound(unicode::lowerRuns, end, c,
                                      [](char32_t v, const unicode::LowerRun& r) { return v < r.first; });
    if (it == unicode::lowerRuns) return c;
    const auto& run = *(it - 1);
    if (c > run.last || (c - run.first) % static_cast<char32_t>(run.stride) != 0) return c;
    return static_cast<char32_t>(static_cast<std::int32_t>(c) + run.delta);
}

std::string lowerCased(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto ch = utf8CharAt(text, i);
        if (!ch.valid) {
            out += text[i];
        } else if (ch.codePoint == 0x130) {
            out += "i\xCC\x87";  // LATIN CAPITAL LETTER I WITH DOT ABOVE: i and a combining dot
        } else {
            appendUtf8(out, lowerCase(ch.codePoint));
        }
        i += ch.length;
    }
    return out;
}

}  // namespace quorv
