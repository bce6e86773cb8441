// The slowdown reading on a Mac (and a sandbox Mac): ps, sysctl, vm_stat and tmutil by their
// system paths through the host; the thermal state and Low Power Mode from the process-info
// interface (SlowdownMac.mm), or in a sandbox Mac from its recorded answers.

#include "kit/files/FS.hpp"
#include "kit/insight/SlowdownMac.hpp"
#include "kit/insight/SlowdownReaders.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/process/Shell.hpp"

namespace brimstell::slowdownRead {

namespace {

// Ten seconds is far beyond what these tools take, but a Mac that is being asked why it is slow
// may be very slow.
constexpr double toolTimeLimit = 10;

std::string output(const std::string& systemPath, const std::vector<std::string>& args) {
    const std::string program = quorv::host().path(systemPath);
    quorv::ShellOptions options;
    options.timeLimit = toolTimeLimit;
    options.maxOutput = 8u << 20;
    // Numbers with a decimal point, whatever the user's locale.
    options.environment = {{"LC_ALL", "C"}};
    const auto r = quorv::Shell::run(program, args, options);
    // sysctl exits with 1 when one name is unknown yet prints the others: keep what it printed.
    return r.started && !r.timedOut ? r.output : std::string();
}

std::pair<Slowdown::Thermal, bool> processInfo() {
    if (quorv::host().sandbox) {
        const auto record = quorv::files::read(quorv::host().path(recordedProcessInfo), 4096);
        return processInfoRecord(record.value_or(""));
    }
    return macProcessInfo();
}

}  // namespace

// All processes ("-A"), our columns without headers. "/bin/ps" is where both systems keep it.
std::vector<Slowdown::Proc> runPS() {
    return Slowdown::parsePS(output("/bin/ps", {"-A", "-o", "pid=,uid=,pcpu=,rss=,comm="}));
}

Slowdown::Reading readMac() {
    Slowdown::Reading r;
    r.me = static_cast<std::uint32_t>(quorv::host().uid);
    r.procs = runPS();
    const auto sysctl = sysctlValues(output("/usr/sbin/sysctl", {"hw.memsize", "vm.swapusage",
                                                                   "kern.memorystatus_vm_pressure_level", "kern.boottime"}));
    auto value = [&](const char* name) { return sysctl.count(name) ? sysctl.at(name) : std::string(); };
    r.memory.total = std::max<std::int64_t>(0, std::strtoll(value("hw.memsize").c_str(), nullptr, 10));
    r.memory.swap = swapUsed(value("vm.swapusage")).value_or(0);
    r.memory.pressure = pressureLevel(value("kern.memorystatus_vm_pressure_level"));
    std::tie(r.memory.used, r.memory.compressed) = vmStatUsage(output("/usr/bin/vm_stat", {}));
    if (const auto boot = bootTime(value("kern.boottime")); boot && quorv::host().now() > *boot)
        r.uptime = quorv::host().now() - *boot;
    std::tie(r.thermal, r.lowPower) = processInfo();
    const auto disk = FS::volumeStats(quorv::host().path("/"));
    r.free = disk.free;
    r.total = disk.total;
    r.backupRunning = tmutilRunning(output("/usr/bin/tmutil", {"status"}));
    return r;
}

}  // namespace brimstell::slowdownRead
