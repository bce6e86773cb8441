#pragma once
// The start-up disk of a Linux system: the device under "/" from the mount table, its whole disk,
// and its reading through "smartctl --json" (smartmontools).

#include <optional>
#include <string>

#include "kit/health/HealthTypes.hpp"

namespace brimstell {

struct DiskReading {
    std::optional<DiskHealth> disk;
    std::string problem;  // why there is no reading, for people
};

struct LinuxDisk {
    // The whole disk of a partition's kernel name: "nvme0n1p2" → "nvme0n1", "mmcblk0p1" →
    // "mmcblk0", "sda3" → "sda"; a name that is no partition stays as it is.
    static std::string wholeDisk(const std::string& name);

    // The kernel name of the whole disk under "/" ("nvme0n1"), following device-mapper volumes
    // (LVM, LUKS) to the disk beneath them; nullopt when "/" isn't on a block device.
    static std::optional<std::string> startupDisk();

    // smartctl's reading of that disk; none when smartctl is missing, the disk isn't one it can
    // read, or reading it is not permitted.
    static DiskReading read();
};

}  // namespace brimstell
