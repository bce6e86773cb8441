#pragma once
// A sandbox Mac's battery and disk facts: the dictionaries a Mac's registry and power-source
// interface would give, as property-list files the sandbox lays out, and the NVMe log as a
// 512-byte file. A missing file is a Mac without that part.

#include "support/host/HealthSource.hpp"

namespace brimstell {

class SandboxHealthSource : public quorv::HealthSource {
public:
    // System paths inside the sandbox.
    static constexpr const char* folder = "/private/var/db/sandbox-hardware";
    static constexpr const char* smartBatteryFile = "/private/var/db/sandbox-hardware/AppleSmartBattery.plist";
    static constexpr const char* powerSourcesFile = "/private/var/db/sandbox-hardware/PowerSources.plist";  // an array
    static constexpr const char* powerAdapterFile = "/private/var/db/sandbox-hardware/PowerAdapter.plist";
    static constexpr const char* nvmeLogFile = "/private/var/db/sandbox-hardware/NVMeSMARTLog.bin";
    // What the fake diskutil prints for "info -plist <disk>": <disk>.plist, "root.plist" for "/".
    static constexpr const char* diskutilFolder = "/private/var/db/sandbox-hardware/diskutil";

    std::optional<quorv::Value> smartBattery() override;
    std::vector<quorv::Value> powerSources() override;
    std::optional<quorv::Value> powerAdapter() override;
    std::optional<std::string> nvmeSmartLog() override;
};

}  // namespace brimstell
