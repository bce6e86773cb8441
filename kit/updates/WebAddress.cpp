#include "kit/updates/WebAddress.hpp"

namespace brimstell {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Where the scheme ends (the ":"), or npos when the text doesn't start with one.
std::size_t schemeEnd(std::string_view t) {
    if (t.empty() || !isAlpha(t[0])) return std::string_view::npos;
    for (std::size_t i = 1; i < t.size(); ++i) {
        const char c = t[i];
        if (c == ':') return i;
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return std::string_view::npos;
    }
    return std::string_view::npos;
}

}  // namespace

bool WebAddress::isAddress(std::string_view t) {
    const auto end = schemeEnd(t);
    if (end == std::string_view::npos || end + 1 == t.size()) return false;
    for (const char c : t) {
        const auto b = static_cast<unsigned char>(c);
        if (b <= 0x20 || b >= 0x7F || std::string_view("<>\"\\^`{|}").find(c) != std::string_view::npos) return false;
    }
    return true;
}

std::string WebAddress::scheme(std::string_view t) {
    if (!isAddress(t)) return {};
    std::string s(t.substr(0, schemeEnd(t)));
    for (auto& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

std::string WebAddress::queryValue(std::string_view t) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    for (const char c : t) {
        if (isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            out += c;
        } else {
            const auto b = static_cast<unsigned char>(c);
            out += '%';
            out += hex[b >> 4];
            out += hex[b & 15];
        }
    }
    return out;
}

}  // namespace brimstell
