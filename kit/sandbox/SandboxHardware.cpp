// A sandbox Mac's battery and start-up disk: the dictionaries a Mac's registry, power sources and
// diskutil give, as files (SandboxHealthSource reads them), shaped like real Macs' outputs.

#include <unistd.h>

#include <fmt/format.h>

#include "kit/health/NVMeLog.hpp"
#include "kit/health/SandboxHealthSource.hpp"
#include "kit/sandbox/SandboxMac.hpp"
#include "support/plist/Plist.hpp"

namespace brimstell {

using quorv::Value;

void SandboxMac::addBattery(const SandboxBattery& b) {
    const Value registry(Value::Dict{
        {"BatteryInstalled", true},
        {"CycleCount", b.cycles},
        {"DesignCapacity", b.designCapacity},
        {"NominalChargeCapacity", b.fullCapacity},
        {"AppleRawMaxCapacity", b.fullCapacity + 40},
        {"CurrentCapacity", b.percent},
        {"MaxCapacity", 100},
        {"IsCharging", b.charging},
        {"ExternalConnected", b.plugged},
        {"FullyCharged", b.percent >= 100},
        {"Temperature", static_cast<std::int64_t>(b.temperature * 100)},
    });
    writeFile(SandboxHealthSource::smartBatteryFile, quorv::plist::toXml(registry));
    Value::Dict source{
        {"Name", "InternalBattery-0"},
        {"Type", "InternalBattery"},
        {"Transport Type", "Internal"},
        {"Is Present", true},
        {"Is Charging", b.charging},
        {"Current Capacity", b.percent},
        {"Max Capacity", 100},
        {"Power Source State", b.plugged ? "AC Power" : "Battery Power"},
    };
    if (!b.condition.empty()) source.emplace_back("BatteryHealthCondition", b.condition);
    writeFile(SandboxHealthSource::powerSourcesFile, quorv::plist::toXml(Value(Value::Array{Value(std::move(source))})));
    const std::string adapter = path(SandboxHealthSource::powerAdapterFile);
    if (b.plugged && b.chargerWatts > 0) {
        writeFile(SandboxHealthSource::powerAdapterFile,
                  quorv::plist::toXml(Value(Value::Dict{{"Watts", b.chargerWatts}, {"Name", fmt::format("{}W USB-C Power Adapter", b.chargerWatts)},
                                                        {"FamilyCode", -536854528}})));
    } else {
        ::unlink(adapter.c_str());
    }
}

namespace {

// What diskutil prints for the volume at "/": a sealed system snapshot whose figures are the
// APFS container's physical store's.
Value rootVolume() {
    return Value(Value::Dict{
        {"APFSContainerReference", "disk3"},
        {"APFSPhysicalStores", Value::Array{Value(Value::Dict{{"APFSPhysicalStore", "disk0s2"}})}},
        {"APFSSnapshot", true},
        {"DeviceIdentifier", "disk3s1s1"},
        {"FilesystemType", "apfs"},
        {"MediaName", ""},
        {"MountPoint", "/"},
        {"ParentWholeDisk", "disk3"},
        {"SMARTStatus", "Verified"},
        {"VolumeName", "Macintosh HD"},
        {"WholeDisk", false},
    });
}

Value physical(const SandboxDisk& d, const std::string& id, const std::string& parent, bool whole) {
    return Value(Value::Dict{
        {"BusProtocol", "Apple Fabric"},
        {"DeviceIdentifier", id},
        {"Internal", true},
        {"MediaName", d.mediaName},
        {"ParentWholeDisk", parent},
        {"SMARTStatus", d.smart},
        {"Size", d.size},
        {"SolidState", true},
        {"TotalSize", d.size},
        {"WholeDisk", whole},
    });
}

std::string logPage(const SandboxDisk& d) {
    std::string page(NVMeLog::pageBytes, '\0');
    auto put = [&](std::size_t offset, std::uint64_t v) {
        for (std::size_t i = 0; i < 8; ++i) page[offset + i] = static_cast<char>((v >> (8 * i)) & 0xFF);
    };
    page[3] = static_cast<char>(d.spare);
    page[4] = static_cast<char>(d.spareThreshold);
    page[5] = static_cast<char>(d.percentUsed);
    put(32, d.dataUnitsRead);
    put(48, d.dataUnitsWritten);
    put(128, d.powerOnHours);
    put(144, d.unsafeShutdowns);
    put(160, d.mediaErrors);
    return page;
}

}  // namespace

void SandboxMac::addDisk(const SandboxDisk& d) {
    const std::string folder = SandboxHealthSource::diskutilFolder;
    writeFile(folder + "/root.plist", quorv::plist::toXml(rootVolume()));
    writeFile(folder + "/disk0s2.plist", quorv::plist::toXml(physical(d, "disk0s2", "disk0", false)));
    writeFile(folder + "/disk0.plist", quorv::plist::toXml(physical(d, "disk0", "disk0", true)));
    writeFile(folder + "/error.plist",
              quorv::plist::toXml(Value(Value::Dict{{"Error", true}, {"ErrorMessage", "Could not find disk"}, {"ExitCode", 1}})));
    const std::string answers = path(folder);
    addFakeTool("/usr/sbin/diskutil", fmt::format(
        "d=\"$3\"; [ \"$d\" = / ] && d=root\n"
        "case \"$d\" in */*|'') d=error ;; esac\n"
        "if [ \"$1\" = info ] && [ \"$2\" = -plist ] && [ -f '{0}'/\"$d\".plist ]; then cat '{0}'/\"$d\".plist; exit 0; fi\n"
        "cat '{0}/error.plist'\nexit 1",
        answers));
    if (d.nvmeLog) {
        writeFile(SandboxHealthSource::nvmeLogFile, logPage(d));
    } else {
        ::unlink(path(SandboxHealthSource::nvmeLogFile).c_str());
    }
}

}  // namespace brimstell
