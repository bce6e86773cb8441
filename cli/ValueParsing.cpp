#include "cli/ValueParsing.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace cli {

using brimstell::SettingType;

namespace {

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

std::optional<bool> parseBool(const std::string& s) {
    const std::string l = lower(s);
    if (l == "true" || l == "yes" || l == "on" || l == "1") return true;
    if (l == "false" || l == "no" || l == "off" || l == "0") return false;
    return std::nullopt;
}

std::optional<std::int64_t> parseInt(const std::string& s) {
    std::int64_t v = 0;
    const char* begin = s.data();
    if (!s.empty() && s[0] == '+') ++begin;
    auto [ptr, ec] = std::from_chars(begin, s.data() + s.size(), v);
    if (ec != std::errc() || ptr != s.data() + s.size() || begin == s.data() + s.size()) return std::nullopt;
    return v;
}

std::optional<double> parseDouble(const std::string& s) {
    if (s.empty()) return std::nullopt;
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    if (end != s.c_str() + s.size() || !std::isfinite(v)) return std::nullopt;
    return v;
}

std::optional<double> parseDate(const std::string& s, double now) {
    if (lower(s) == "now") return now;
    if (auto d = parseDouble(s)) return *d;
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0;
    std::tm tm{};
    const char* p = s.c_str();
    int used = 0;
    if (std::sscanf(p, "%4d-%2d-%2d%n", &y, &mo, &d, &used) != 3 || used != 10) return std::nullopt;
    p += used;
    if (*p == 'T' || *p == ' ') {
        ++p;
        used = 0;
        if (std::sscanf(p, "%2d:%2d%n", &h, &mi, &used) != 2) return std::nullopt;
        p += used;
        if (*p == ':') {
            used = 0;
            if (std::sscanf(p, ":%2d%n", &sec, &used) != 1) return std::nullopt;
            p += used;
        }
    }
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = sec;
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || sec > 60) return std::nullopt;
    if (*p == '\0') {
        tm.tm_isdst = -1;
        return static_cast<double>(std::mktime(&tm));
    }
    long offset = 0;
    if (*p == 'Z' && p[1] == '\0') {
        offset = 0;
    } else if ((*p == '+' || *p == '-') && std::strlen(p) == 6 && p[3] == ':') {
        int oh = 0, om = 0;
        if (std::sscanf(p + 1, "%2d:%2d", &oh, &om) != 2) return std::nullopt;
        offset = (oh * 3600L + om * 60L) * (*p == '-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    return static_cast<double>(timegm(&tm) - offset);
}

}  // namespace

std::optional<SettingType> typeNamed(const std::string& name) {
    const std::string l = lower(name);
    if (l == "boolean" || l == "bool") return SettingType::boolean;
    if (l == "integer" || l == "int") return SettingType::integer;
    if (l == "double" || l == "real" || l == "number") return SettingType::number;
    if (l == "string") return SettingType::string;
    if (l == "array") return SettingType::stringArray;
    if (l == "date") return SettingType::date;
    return std::nullopt;
}

SettingType typeFor(const std::string& key, const std::vector<std::string>& words, std::optional<SettingType> asked) {
    if (asked) return *asked;
    if (const auto* known = brimstell::findSettingKey(key)) return known->type;
    if (words.size() != 1) return SettingType::stringArray;
    const std::string l = lower(words[0]);
    if (l == "true" || l == "false") return SettingType::boolean;
    if (parseInt(words[0])) return SettingType::integer;
    if (parseDouble(words[0])) return SettingType::number;
    return SettingType::string;
}

std::optional<quorv::Value> parseValue(SettingType type, const std::vector<std::string>& words, double now,
                                       std::string& error) {
    if (type == SettingType::stringArray) return quorv::Value::strings(words);
    if (words.size() != 1) {
        error = "give exactly one value for a " + std::string(brimstell::typeName(type));
        return std::nullopt;
    }
    const std::string& w = words[0];
    switch (type) {
        case SettingType::boolean:
            if (auto b = parseBool(w)) return quorv::Value(*b);
            error = "\"" + w + "\" is not a boolean (use true or false)";
            return std::nullopt;
        case SettingType::integer:
            if (auto i = parseInt(w)) return quorv::Value(*i);
            error = "\"" + w + "\" is not a whole number";
            return std::nullopt;
        case SettingType::number:
            if (auto d = parseDouble(w)) return quorv::Value(*d);
            error = "\"" + w + "\" is not a number";
            return std::nullopt;
        case SettingType::date:
            if (auto d = parseDate(w, now)) return quorv::Value(quorv::Date{*d});
            error = "\"" + w + "\" is not a date (use now, seconds since 1970, or 2026-11-21T09:30:00Z)";
            return std::nullopt;
        case SettingType::string:
            return quorv::Value(w);
        case SettingType::stringArray:
            break;
    }
    return std::nullopt;
}

}  // namespace cli
