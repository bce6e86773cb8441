#include "kit/files/TrashNames.hpp"

namespace brimstell {
namespace {

bool continuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The longest prefix of s of at most n bytes that doesn't end inside a UTF-8 sequence; bytes
// that aren't UTF-8 are cut anywhere.
std::string prefix(const std::string& s, std::size_t n) {
    if (n >= s.size()) return s;
    std::size_t cut = n;
    for (int i = 0; i < 4 && cut > 0 && continuationByte(s[cut]); ++i) --cut;
    if (cut == 0 || continuationByte(s[cut])) cut = n;
    return s.substr(0, cut);
}

}  // namespace

std::string TrashNames::fit(const std::string& stem, const std::string& tail, const std::string& extension,
                            std::size_t maxBytes) {
    if (stem.size() + tail.size() + extension.size() <= maxBytes) return stem + tail + extension;
    if (tail.size() + extension.size() < maxBytes && extension.size() <= maxBytes / 4) {
        return prefix(stem, maxBytes - tail.size() - extension.size()) + tail + extension;
    }
    // The extension is too long to keep: it is cut as part of the stem.
    if (tail.size() >= maxBytes) return {};
    return prefix(stem + extension, maxBytes - tail.size()) + tail;
}

std::string TrashNames::freedesktop(const std::string& name, int n, std::size_t maxBytes) {
    const auto dot = name.size() > 1 ? name.find('.', 1) : std::string::npos;
    const std::string stem = dot == std::string::npos ? name : name.substr(0, dot);
    const std::string extension = dot == std::string::npos ? std::string() : name.substr(dot);
    const std::string tail = n <= 1 ? std::string() : "." + std::to_string(n);
    return fit(stem, tail, extension, maxBytes);
}

std::string TrashNames::finder(const std::string& name, const std::string& time, int n, std::size_t maxBytes) {
    const auto dot = name.find_last_of('.');
    const bool hasExtension = dot != std::string::npos && dot > 0 && dot + 1 < name.size();
    const std::string stem = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? name.substr(dot) : std::string();
    std::string tail;
    if (n > 1) tail = " " + time;
    if (n > 2) tail += " " + std::to_string(n - 1);
    return fit(stem, tail, extension, maxBytes);
}

}  // namespace brimstell
