#pragma once
// Reading the machine for the slowdown check: the parsers of what the system prints or keeps in
// files (portable, so the tests cover them here), and the readers of each platform.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/insight/Slowdown.hpp"

namespace brimstell::slowdownRead {

// ---- macOS ----

// "name: value" lines of `sysctl name…`, by name (values trimmed).
std::map<std::string, std::string> sysctlValues(std::string_view text);
// The swap in use from vm.swapusage ("total = 4096.00M  used = 2743.50M  free = …"), in bytes; the
// decimal separator may be a comma, as sysctl follows the locale.
std::optional<std::int64_t> swapUsed(std::string_view value);
// Seconds since 1970 from kern.boottime ("{ sec = 1711644864, usec = 393940 } Thu Mar 28 …").
std::optional<double> bootTime(std::string_view value);
// kern.memorystatus_vm_pressure_level: 1 normal, 2 warning, 4 critical.
Slowdown::MemoryPressure pressureLevel(std::string_view value);
// vm_stat's pages: used (active, wired and compressed) and compressed bytes.
std::pair<std::int64_t, std::int64_t> vmStatUsage(std::string_view text);
// Whether `tmutil status` shows a backup running ("Running = 1;").
bool tmutilRunning(std::string_view text);
// A sandbox Mac's recorded process-info answers ("thermalState: serious", "lowPowerMode: 1").
std::pair<Slowdown::Thermal, bool> processInfoRecord(std::string_view text);

// ---- Linux ----

// Total, used (total less MemAvailable) and swap in use from /proc/meminfo.
Slowdown::Memory meminfo(std::string_view text);
// The memory pressure from /proc/pressure/memory (see SlowdownLinux.cpp for the levels).
Slowdown::MemoryPressure pressureStall(std::string_view text);
// One thermal zone: its temperature and its trip points (type, temperature), in millidegrees.
struct Zone {
    long long temperature = 0;
    std::vector<std::pair<std::string, long long>> trips;
};
// The hottest state any zone has reached by its own trip points.
Slowdown::Thermal thermalState(const std::vector<Zone>& zones);
// Seconds since boot from /proc/uptime's first figure.
std::optional<double> uptime(std::string_view text);
// The executable's path to put in place of ps's command name: exe when its file name starts with
// the name (the kernel keeps 15 characters); the name when it doesn't (a script run by its
// interpreter) or exe is unknown.
std::string linuxProgram(const std::string& comm, const std::optional<std::string>& exe);

// ---- readers ----

// The process listing of the system's ps (through the host, so a sandbox's fake answers).
std::vector<Slowdown::Proc> runPS();
Slowdown::Reading readMac();
Slowdown::Reading readLinux();
// Asks one process to quit: as from the Dock on a Mac, SIGTERM on Linux, recorded in a sandbox.
bool quitProcess(std::uint32_t pid);
// Where a sandbox writes the processes it was asked to quit, one id a line.
inline constexpr const char* quitLog = "/private/var/log/quit.log";

}  // namespace brimstell::slowdownRead
