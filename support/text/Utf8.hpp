#pragma once
// File names are bytes. These tell text that is valid UTF-8 from bytes that only look like it,
// and give text that is safe to put where only UTF-8 may go (JSON, D-Bus, the terminal).

#include <cstddef>
#include <string>
#include <string_view>

namespace quorv {

// True when s is well-formed UTF-8: no stray continuation bytes, no overlong forms, no
// surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view s);
// Appends the code point c (at most U+10FFFF) as UTF-8.
void appendUtf8(std::string& out, char32_t c);

// s with every byte that is not part of well-formed UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view s);

// The length of the well-formed UTF-8 sequence that starts at s[i], or 0 when none does.
std::size_t utf8SequenceLength(std::string_view s, std::size_t i);

// Standard base64 with padding, and back; decoding text that is not base64 gives false.
std::string base64Encode(std::string_view bytes);
bool base64Decode(std::string_view text, std::string& out);

}  // namespace quorv
