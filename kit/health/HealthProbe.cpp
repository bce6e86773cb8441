#include "kit/health/HealthProbe.hpp"

#include "kit/health/BatteryFacts.hpp"
#include "kit/health/DiskutilInfo.hpp"
#include "kit/health/NVMeSMART.hpp"
#include "kit/health/SysfsPower.hpp"
#include "support/host/HealthSource.hpp"
#include "support/host/Host.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

std::optional<NVMeLog> NVMeSMART::read() {
    const auto source = quorv::host().health;
    if (!source) return std::nullopt;
    const auto page = source->nvmeSmartLog();
    return page ? NVMeLog::parse(*page) : std::nullopt;
}

std::optional<BatteryDetails> HealthProbe::battery() {
    const auto& h = quorv::host();
    if (!h.isMac()) return SysfsPower::battery(SysfsPower::read(h.path("/sys/class/power_supply")));
    if (!h.health) return std::nullopt;
    const auto registry = h.health->smartBattery();
    if (!registry) return std::nullopt;
    return BatteryFacts::fromRegistry(*registry, h.health->powerSources(), h.health->powerAdapter());
}

namespace {

std::optional<quorv::Value> diskutilInfo(const std::string& disk, double seconds) {
    const std::string tool = quorv::host().path("/usr/sbin/diskutil");
    quorv::ShellOptions options;
    options.timeLimit = seconds;
    const auto r = quorv::Shell::run(tool, {"info", "-plist", disk}, options);
    if (!r.started || r.timedOut) return std::nullopt;
    return DiskutilInfo::parse(r.output);
}

DiskReading macDisk() {
    DiskReading out;
    auto info = diskutilInfo("/", HealthProbe::firstDiskutilSeconds);
    if (info) {
        if (const auto next = DiskutilInfo::hop(*info)) info = diskutilInfo(*next, HealthProbe::nextDiskutilSeconds);
    }
    if (!info) {
        out.problem = "diskutil couldn't describe the start-up disk.";
        return out;
    }
    out.disk = DiskutilInfo::health(*info);
    out.disk->wear = NVMeSMART::read();
    return out;
}

}  // namespace

DiskReading HealthProbe::readDisk() { return quorv::host().isMac() ? macDisk() : LinuxDisk::read(); }

std::optional<DiskHealth> HealthProbe::disk() { return readDisk().disk; }

}  // namespace brimstell
