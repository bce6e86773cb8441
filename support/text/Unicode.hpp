#pragma once
// The few Unicode character properties Brimstell needs, without a library for them: whether a
// character is numeric, and lower case.

#include <cstddef>
#include <string>
#include <string_view>

namespace quorv {

// One character of UTF-8 text: its code point and the bytes it takes. A byte that doesn't start
// well-formed UTF-8 is one character of its own, marked invalid, with the code point U+FFFD.
struct Utf8Char {
    char32_t codePoint = 0;
    std::size_t length = 1;
    bool valid = true;
};
Utf8Char utf8CharAt(std::string_view text, std::size_t offset);

// True for a character with a numeric value: the digits of every script, fractions, Roman
// numerals, numeric ideographs.
bool isNumeric(char32_t c);
// The simple lower case of a character (itself when it has none).
char32_t lowerCase(char32_t c);
// The text in lower case; bytes that aren't well-formed UTF-8 stay as they are. "İ" becomes "i̇",
// as the full case mapping has it.
std::string lowerCased(std::string_view text);

}  // namespace quorv
