// The process listing and its grouping by program.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "kit/insight/Slowdown.hpp"
#include "kit/updates/AppBundles.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// The next field of line from at, skipping blanks before it.
std::string_view nextField(std::string_view line, std::size_t& at) {
    while (at < line.size() && isBlank(line[at])) ++at;
    const std::size_t start = at;
    while (at < line.size() && !isBlank(line[at])) ++at;
    return line.substr(start, at - start);
}

template <class T>
bool wholeNumber(std::string_view s, T& out) {
    if (s.empty()) return false;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && end == s.data() + s.size();
}

// "12.5", or "12,5" where ps followed a comma-decimal locale.
bool percent(std::string_view s, double& out) {
    std::string text(s);
    std::replace(text.begin(), text.end(), ',', '.');
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) return false;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
    return ec == std::errc() && end == text.data() + text.size() && std::isfinite(out);
}

std::optional<Slowdown::Proc> parseLine(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    std::size_t at = 0;
    Slowdown::Proc p;
    std::int64_t rss = 0;
    if (!wholeNumber(nextField(line, at), p.pid) || !wholeNumber(nextField(line, at), p.uid) ||
        !percent(nextField(line, at), p.cpu) || !wholeNumber(nextField(line, at), rss) || rss < 0 ||
        rss > (INT64_MAX >> 10))
        return std::nullopt;
    while (at < line.size() && isBlank(line[at])) ++at;
    // The command is the rest of the line: an app's path holds spaces ("Google Chrome").
    std::size_t end = line.size();
    while (end > at && isBlank(line[end - 1])) --end;
    if (end == at) return std::nullopt;
    p.path = std::string(line.substr(at, end - at));
    p.memory = rss * 1024;
    return p;
}

// The outermost ".app" folder the executable lies in ("/Applications/X.app"), so that an app's
// helpers count with it; empty when it lies in none.
std::string outerApp(const std::string& path) {
    for (std::size_t at = path.find(".app/"); at != std::string::npos; at = path.find(".app/", at + 1)) {
        const std::size_t slash = path.rfind('/', at);
        if (slash != std::string::npos && slash + 1 < at) return path.substr(0, at + 4);
    }
    return {};
}

std::string fileName(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::vector<Slowdown::Proc> Slowdown::parsePS(std::string_view text) {
    std::vector<Proc> procs;
    while (!text.empty()) {
        const auto nl = text.find('\n');
        const auto line = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
        if (auto p = parseLine(line)) procs.push_back(std::move(*p));
    }
    return procs;
}

// Grouped by app bundle where the executable lies in one, else by the executable's path; the
// bundle's identifier is read from its Info.plist (through the host, so a sandbox Mac's apps
// answer). The name is the bundle's folder name without ".app", else the executable's file name.
// The user's uid plays no part in grouping: a program run by several accounts is one Load with all
// their uids, which the rules tell apart.
std::vector<Slowdown::Load> Slowdown::group(const std::vector<Proc>& procs, std::uint32_t) {
    std::map<std::string, Load> byKey;
    for (const auto& p : procs) {
        const std::string app = outerApp(p.path);
        const std::string key = app.empty() ? p.path : app;
        auto [it, added] = byKey.try_emplace(key);
        Load& load = it->second;
        if (added) {
            load.path = key;
            load.name = app.empty() ? fileName(p.path) : fileName(app).substr(0, fileName(app).size() - 4);
            if (!app.empty())
                if (auto bundle = AppBundles::read(quorv::host().path(app), true)) load.bundle = bundle->bundleID;
        }
        load.pids.push_back(p.pid);
        load.uids.insert(p.uid);
        load.cpu += p.cpu;
        load.memory += p.memory;
    }
    std::vector<Load> loads;
    for (auto& [key, load] : byKey) loads.push_back(std::move(load));
    std::stable_sort(loads.begin(), loads.end(), [](const Load& a, const Load& b) { return a.cpu > b.cpu; });
    return loads;
}

}  // namespace brimstell
