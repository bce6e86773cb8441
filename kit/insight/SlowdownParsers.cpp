// What sysctl, vm_stat, tmutil and the Linux kernel's files say, read into the slowdown reading.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <regex>

#include "kit/insight/SlowdownReaders.hpp"

namespace brimstell::slowdownRead {

using Thermal = Slowdown::Thermal;
using MemoryPressure = Slowdown::MemoryPressure;

namespace {

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

template <class F>
void eachLine(std::string_view text, F&& f) {
    while (!text.empty()) {
        const auto nl = text.find('\n');
        f(text.substr(0, nl));
        text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
    }
}

// A whole number at the start of s (after blanks); nullopt when there is none or it overflows.
std::optional<long long> leadingNumber(std::string_view s) {
    s = trimmed(s);
    char* end = nullptr;
    const std::string text(s);
    errno = 0;
    const long long n = std::strtoll(text.c_str(), &end, 10);
    if (end == text.c_str() || errno == ERANGE) return std::nullopt;
    return n;
}

// "name: value" lines, split at the first ':' (vm_stat's and meminfo's, too).
std::map<std::string, std::string> colonValues(std::string_view text) {
    std::map<std::string, std::string> values;
    eachLine(text, [&](std::string_view line) {
        const auto colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0) return;
        values.emplace(std::string(trimmed(line.substr(0, colon))), std::string(trimmed(line.substr(colon + 1))));
    });
    return values;
}

}  // namespace

std::map<std::string, std::string> sysctlValues(std::string_view text) { return colonValues(text); }

std::optional<std::int64_t> swapUsed(std::string_view value) {
    static const std::regex used(R"(used\s*=\s*([0-9]+)(?:[.,]([0-9]+))?([KMGT])?)");
    std::match_results<std::string_view::const_iterator> m;
    if (!std::regex_search(value.begin(), value.end(), m, used)) return std::nullopt;
    const double whole = std::strtod(m[1].str().c_str(), nullptr);
    const double fraction = m[2].matched ? std::strtod(("0." + m[2].str()).c_str(), nullptr) : 0.0;
    const std::string unit = m[3].str();
    const double scale = unit == "K" ? 1024.0 : unit == "M" ? 1048576.0 : unit == "G" ? 1073741824.0 : unit == "T" ? 1099511627776.0 : 1.0;
    const double bytes = (whole + fraction) * scale;
    if (!std::isfinite(bytes) || bytes >= 9.2e18) return std::nullopt;
    return static_cast<std::int64_t>(std::llround(bytes));
}

std::optional<double> bootTime(std::string_view value) {
    const auto at = value.find("sec =");
    if (at == std::string_view::npos || (at > 0 && value[at - 1] == 'u')) return std::nullopt;
    const auto sec = leadingNumber(value.substr(at + 5));
    if (!sec || *sec <= 0) return std::nullopt;
    return static_cast<double>(*sec);
}

MemoryPressure pressureLevel(std::string_view value) {
    const auto n = leadingNumber(value);
    if (n == 4) return MemoryPressure::critical;
    if (n == 2) return MemoryPressure::warning;
    return MemoryPressure::normal;
}

std::pair<std::int64_t, std::int64_t> vmStatUsage(std::string_view text) {
    static const std::regex pageSize(R"(page size of ([0-9]+) bytes)");
    std::match_results<std::string_view::const_iterator> m;
    if (!std::regex_search(text.begin(), text.end(), m, pageSize)) return {0, 0};
    const long long page = std::strtoll(m[1].str().c_str(), nullptr, 10);
    const auto values = colonValues(text);
    auto pages = [&](const char* name) -> long long {
        const auto it = values.find(name);
        const auto n = it == values.end() ? std::nullopt : leadingNumber(it->second);
        return n && *n > 0 && *n < (1LL << 40) ? *n : 0;
    };
    if (page <= 0 || page > (1 << 24)) return {0, 0};
    const long long compressed = pages("Pages occupied by compressor") * page;
    return {(pages("Pages active") + pages("Pages wired down")) * page + compressed, compressed};
}

bool tmutilRunning(std::string_view text) {
    bool running = false;
    eachLine(text, [&](std::string_view line) {
        line = trimmed(line);
        if (line == "Running = 1;") running = true;
    });
    return running;
}

std::pair<Thermal, bool> processInfoRecord(std::string_view text) {
    const auto values = colonValues(text);
    auto value = [&](const char* key) { return values.count(key) ? values.at(key) : std::string(); };
    const std::string state = value("thermalState");
    const Thermal thermal = state == "fair" ? Thermal::fair : state == "serious" ? Thermal::serious
                            : state == "critical" ? Thermal::critical : Thermal::nominal;
    return {thermal, value("lowPowerMode") == "1"};
}

}  // namespace brimstell::slowdownRead
