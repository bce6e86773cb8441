#include "shared/trash/TrashInfo.hpp"

#include <cmath>
#include <ctime>

#include <fmt/format.h>

namespace brimstell {
namespace {

bool unreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Reads exactly `digits` decimal digits at text[at]; nullopt otherwise.
std::optional<int> number(std::string_view text, std::size_t at, std::size_t digits) {
    if (at + digits > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = at; i < at + digits; ++i) {
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.back() == '\r' || s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    return s;
}

}  // namespace

std::string TrashInfo::percentEncode(std::string_view bytes) {
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size());
    for (const char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        if (unreserved(c) || c == '/') {
            out.push_back(ch);
        } else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 0xF]);
        }
    }
    return out;
}

std::optional<std::string> TrashInfo::percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int hi = hexValue(text[i + 1]);
        const int lo = hexValue(text[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
    }
    return out;
}

std::string TrashInfo::dateText(double t, const quorv::Calendar& calendar) {
    if (!std::isfinite(t)) return {};
    const auto secs = static_cast<std::time_t>(std::floor(t));
    std::tm tm{};
    const bool ok = calendar.utc ? gmtime_r(&secs, &tm) != nullptr : localtime_r(&secs, &tm) != nullptr;
    if (!ok) return {};
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                       tm.tm_hour, tm.tm_min, tm.tm_sec);
}

std::optional<double> TrashInfo::parseDate(std::string_view text, const quorv::Calendar& calendar) {
    text = trimmed(text);
    if (text.size() < 19 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':') {
        return std::nullopt;
    }
    if (text.size() > 19) {
        // A fraction of a second, as some writers add: digits only.
        if (text[19] != '.' || text.size() == 20) return std::nullopt;
        for (std::size_t i = 20; i < text.size(); ++i) {
            if (text[i] < '0' || text[i] > '9') return std::nullopt;
        }
    }
    const auto year = number(text, 0, 4), month = number(text, 5, 2), day = number(text, 8, 2);
    const auto hour = number(text, 11, 2), minute = number(text, 14, 2), second = number(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
    if (*month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23 || *minute > 59 || *second > 60) {
        return std::nullopt;
    }
    std::tm tm{};
    tm.tm_year = *year - 1900;
    tm.tm_mon = *month - 1;
    tm.tm_mday = *day;
    tm.tm_hour = *hour;
    tm.tm_min = *minute;
    tm.tm_sec = *second;
    tm.tm_isdst = -1;
    const std::tm asked = tm;
    const std::time_t secs = calendar.utc ? timegm(&tm) : std::mktime(&tm);
    if (secs == static_cast<std::time_t>(-1) && !(asked.tm_year == 69 && asked.tm_mon == 11 && asked.tm_mday == 31)) {
        return std::nullopt;
    }
    // 31 February normalises to 3 March: not a real date.
    if (tm.tm_mday != asked.tm_mday || tm.tm_mon != asked.tm_mon) return std::nullopt;
    return static_cast<double>(secs);
}

std::string TrashInfo::format(std::string_view path, double deletionDate, const quorv::Calendar& calendar) {
    return "[Trash Info]\nPath=" + percentEncode(path) + "\nDeletionDate=" + dateText(deletionDate, calendar) +
           "\n";
}

TrashInfo TrashInfo::parse(std::string_view text, const quorv::Calendar& calendar) {
    TrashInfo info;
    bool inGroup = false;
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        line = trimmed(line);
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            inGroup = line == "[Trash Info]";
            continue;
        }
        if (!inGroup) continue;
        const auto eq = line.find('=');
        if (eq == std::string_view::npos) continue;
        const std::string_view key = trimmed(line.substr(0, eq));
        const std::string_view value = trimmed(line.substr(eq + 1));
        if (key == "Path" && !info.path) {
            auto decoded = percentDecode(value);
            if (decoded && !decoded->empty() && decoded->find('\0') == std::string::npos) info.path = std::move(decoded);
        } else if (key == "DeletionDate" && !info.deletionDate) {
            info.deletionDate = parseDate(value, calendar);
        }
    }
    return info;
}

}  // namespace brimstell
