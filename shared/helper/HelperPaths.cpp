#include "shared/helper/HelperPaths.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace brimstell::helperpaths {

std::optional<Split> split(std::string_view path) {
    if (path.empty() || path.front() != '/') return std::nullopt;
    const auto slash = path.rfind('/');
    Split s{slash == 0 ? std::string("/") : std::string(path.substr(0, slash)), std::string(path.substr(slash + 1))};
    if (s.name.empty() || s.name == "." || s.name == "..") return std::nullopt;
    return s;
}

bool breaksLines(std::string_view s) {
    for (char c : s) {
        if (c == '\n' || c == '\r' || c == '\t' || c == '\0') return true;
    }
    return false;
}

std::string echo(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c == '\n' || c == '\r' || c == '\0') c = '?';
    }
    return out;
}

std::string identity(const struct stat& st) {
#ifdef __APPLE__
    // dev_t is a signed 32-bit value on macOS.
    return std::to_string(static_cast<std::int32_t>(st.st_dev)) + ":" + std::to_string(static_cast<std::uint64_t>(st.st_ino));
#else
    return std::to_string(static_cast<std::uint64_t>(st.st_dev)) + ":" + std::to_string(static_cast<std::uint64_t>(st.st_ino));
#endif
}

std::vector<std::string> lines(std::string_view text) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start < text.size()) {
        auto end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) out.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

bool globMatch(std::string_view pattern, std::string_view text) {
    std::size_t p = 0, t = 0;
    std::size_t star = std::string_view::npos, resume = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

}  // namespace brimstell::helperpaths
