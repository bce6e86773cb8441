// The slowdown reading on Linux: ps as it is, memory from /proc/meminfo and /proc/pressure/memory,
// temperature from the thermal zones' trip points, uptime from /proc/uptime, the disk of "/".
// Every path goes through the host, so tests point them at a fake tree.

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "kit/files/FS.hpp"
#include "kit/insight/SlowdownReaders.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell::slowdownRead {

using Thermal = Slowdown::Thermal;
using MemoryPressure = Slowdown::MemoryPressure;

namespace {

std::optional<std::string> readSmall(const std::string& systemPath) {
    return quorv::files::read(quorv::host().path(systemPath), 1u << 20);
}

// The rest of the first line that starts with prefix; nullopt when no line does.
std::optional<std::string> afterPrefix(std::string_view text, std::string_view prefix) {
    while (!text.empty()) {
        const auto nl = text.find('\n');
        const auto line = text.substr(0, nl);
        if (line.substr(0, prefix.size()) == prefix) return std::string(line.substr(prefix.size()));
        text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
    }
    return std::nullopt;
}

// "MemTotal:       16318664 kB" → 16318664 × 1024.
std::int64_t kibibytes(std::string_view text, const char* key) {
    const auto rest = afterPrefix(text, key);
    if (!rest) return 0;
    const long long n = std::strtoll(rest->c_str(), nullptr, 10);
    return n > 0 && n < (1LL << 52) ? n * 1024 : 0;
}

// avg10 of the "some " or "full " line.
double stalled(std::string_view text, const char* kind) {
    const auto rest = afterPrefix(text, kind);
    if (!rest || rest->rfind("avg10=", 0) != 0) return 0;
    const double share = std::strtod(rest->c_str() + 6, nullptr);
    return std::isfinite(share) ? share : 0;
}

std::optional<long long> numberIn(const std::string& location) {
    const auto text = quorv::files::read(location, 4096);
    if (!text || text->empty()) return std::nullopt;
    char* end = nullptr;
    const long long n = std::strtoll(text->c_str(), &end, 10);
    return end == text->c_str() ? std::nullopt : std::optional<long long>(n);
}

std::vector<Zone> thermalZones() {
    std::vector<Zone> zones;
    const std::string folder = quorv::host().path("/sys/class/thermal");
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return zones;
    while (const dirent* e = ::readdir(dir.get())) {
        const std::string name = e->d_name;
        if (name.rfind("thermal_zone", 0) != 0) continue;
        const std::string zone = folder + "/" + name + "/";
        const auto temperature = numberIn(zone + "temp");
        if (!temperature) continue;
        Zone z{*temperature, {}};
        for (int n = 0; n < 32; ++n) {
            const auto type = quorv::files::read(zone + "trip_point_" + std::to_string(n) + "_type", 64);
            const auto at = numberIn(zone + "trip_point_" + std::to_string(n) + "_temp");
            if (!type || !at) break;
            std::string t = *type;
            while (!t.empty() && (t.back() == '\n' || t.back() == ' ')) t.pop_back();
            z.trips.emplace_back(t, *at);
        }
        zones.push_back(std::move(z));
    }
    return zones;
}

std::optional<std::string> exeOf(std::uint32_t pid) {
    const std::string link = quorv::host().path("/proc/" + std::to_string(pid) + "/exe");
    char target[4096];
    const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
    if (n <= 0) return std::nullopt;
    return std::string(target, static_cast<std::size_t>(n));
}

}  // namespace

Slowdown::Memory meminfo(std::string_view text) {
    Slowdown::Memory m;
    m.total = kibibytes(text, "MemTotal:");
    const auto available = kibibytes(text, "MemAvailable:");
    m.used = m.total > available ? m.total - available : 0;
    m.compressed = kibibytes(text, "Zswap:");
    const auto swapTotal = kibibytes(text, "SwapTotal:"), swapFree = kibibytes(text, "SwapFree:");
    m.swap = swapTotal > swapFree ? swapTotal - swapFree : 0;
    return m;
}

// Levels from the share of the last ten seconds that tasks waited for memory. Critical when all
// runnable tasks were stalled at once ("full") a tenth of the time: the desktop visibly freezes.
// Warning when at least one task was stalled ("some") a tenth of the time: pages are being
// reclaimed or swapped in often enough to be felt, well before systemd-oomd (60% full) acts.
MemoryPressure pressureStall(std::string_view text) {
    if (stalled(text, "full ") >= 10) return MemoryPressure::critical;
    if (stalled(text, "some ") >= 10) return MemoryPressure::warning;
    return MemoryPressure::normal;
}

// A zone past a "critical" or "hot" trip is critical; past a "passive" one the kernel is slowing
// the processor to cool it (serious); past an "active" one only fans have started (fair). Trip
// points at zero or below are switched off.
Thermal thermalState(const std::vector<Zone>& zones) {
    Thermal worst = Thermal::nominal;
    for (const auto& z : zones)
        for (const auto& [type, at] : z.trips) {
            if (at <= 0 || z.temperature < at) continue;
            const Thermal t = type == "critical" || type == "hot" ? Thermal::critical
                              : type == "passive"                 ? Thermal::serious
                              : type == "active"                  ? Thermal::fair
                                                                  : Thermal::nominal;
            worst = std::max(worst, t);
        }
    return worst;
}

std::optional<double> uptime(std::string_view text) {
    const std::string s(text);
    char* end = nullptr;
    const double seconds = std::strtod(s.c_str(), &end);
    if (end == s.c_str() || !std::isfinite(seconds) || seconds < 0) return std::nullopt;
    return seconds;
}

std::string linuxProgram(const std::string& comm, const std::optional<std::string>& exe) {
    if (!exe || exe->empty() || (*exe)[0] != '/') return comm;
    std::string path = *exe;
    if (const std::string gone = " (deleted)"; path.size() > gone.size() && path.ends_with(gone)) path.resize(path.size() - gone.size());
    const auto name = path.substr(path.rfind('/') + 1);
    return !comm.empty() && name.rfind(comm, 0) == 0 ? path : comm;
}

Slowdown::Reading readLinux() {
    Slowdown::Reading r;
    r.me = static_cast<std::uint32_t>(quorv::host().uid);
    r.procs = runPS();
    for (auto& p : r.procs) p.path = linuxProgram(p.path, exeOf(p.pid));
    r.memory = meminfo(readSmall("/proc/meminfo").value_or(""));
    r.memory.pressure = pressureStall(readSmall("/proc/pressure/memory").value_or(""));
    r.thermal = thermalState(thermalZones());
    const auto disk = FS::volumeStats(quorv::host().path("/"));
    r.free = disk.free;
    r.total = disk.total;
    // The firmware's platform profile; "low-power" is what the desktop's power saver sets.
    const auto profile = readSmall("/sys/firmware/acpi/platform_profile");
    r.lowPower = profile && profile->rfind("low-power", 0) == 0;
    r.uptime = uptime(readSmall("/proc/uptime").value_or("")).value_or(0);
    return r;
}

}  // namespace brimstell::slowdownRead
