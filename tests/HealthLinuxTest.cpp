// The Linux backends over a fake root: the power-supply class, the disk under "/" from the mount
// table (device-mapper volumes followed), and smartctl as a stand-in that prints recorded JSON.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include "kit/health/HealthProbe.hpp"
#include "kit/health/LinuxDisk.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"

namespace {

namespace fs = std::filesystem;

TEST(LinuxDisk, WholeDiskOfAPartition) {
    const struct {
        const char* name;
        const char* whole;
    } cases[] = {
        {"nvme0n1p2", "nvme0n1"}, {"nvme0n1", "nvme0n1"}, {"nvme10n2p13", "nvme10n2"}, {"mmcblk0p1", "mmcblk0"},
        {"mmcblk0", "mmcblk0"},   {"sda3", "sda"},        {"sdab12", "sdab"},          {"vda", "vda"},
        {"xvda1", "xvda"},        {"dm-0", "dm-0"},       {"loop7", "loop7"},          {"md127", "md127"},
        {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(brimstell::LinuxDisk::wholeDisk(c.name), c.whole) << c.name;
}

// A Linux host over a folder, with "/" mounted from the given device.
struct FakeLinux {
    testing_support::TempDir dir;
    std::shared_ptr<quorv::Host> host = [this] {
        auto h = std::make_shared<quorv::Host>();
        h->platform = quorv::Platform::linux;
        h->root = dir.path();
        h->sandbox = true;
        h->home = dir / "home/ann";
        h->environment = {{"PATH", "/usr/bin:/bin"}};
        return h;
    }();

    void mountRoot(const std::string& source, const std::string& type = "ext4") {
        write("/proc/self/mountinfo", "22 27 0:21 / /proc rw,relatime - proc proc rw\n27 1 259:2 / / rw,relatime - " + type + " " +
                                          source + " rw\n");
    }
    void write(const std::string& systemPath, const std::string& text) { quorv::files::writeAtomically(dir.path() + systemPath, text); }
    // smartctl that logs its arguments and prints answer.
    void smartctl(const std::string& answer) {
        write("/smartctl-answer.json", answer);
        write("/usr/sbin/smartctl", "#!/bin/sh\necho \"$@\" >> '" + dir.path() + "/smartctl.log'\ncat '" + dir.path() +
                                        "/smartctl-answer.json'\nexit 2\n");
        ::chmod((dir.path() + "/usr/sbin/smartctl").c_str(), 0755);
    }
};

constexpr const char* nvmeAnswer = R"({"device": {"name": "/dev/nvme0n1", "type": "nvme", "protocol": "NVMe"},
  "model_name": "WD PC SN740", "user_capacity": {"bytes": 512110190592}, "smart_status": {"passed": true},
  "nvme_smart_health_information_log": {"available_spare": 100, "percentage_used": 1, "data_units_written": 2}})";

TEST(LinuxDisk, ReadsTheDiskUnderRootThroughSmartctl) {
    FakeLinux f;
    quorv::HostScope scope(f.host);
    f.mountRoot("/dev/nvme0n1p2");
    f.write("/dev/nvme0n1p2", "");
    f.smartctl(nvmeAnswer);
    const auto r = brimstell::HealthProbe::readDisk();
    ASSERT_TRUE(r.disk) << r.problem;
    EXPECT_EQ(r.disk->name, "WD PC SN740");
    EXPECT_EQ(r.disk->size, 512'110'190'592);
    EXPECT_EQ(r.disk->smart, "Verified");
    ASSERT_TRUE(r.disk->wear);
    EXPECT_EQ(r.disk->wear->bytesWritten, 1'024'000.0);
    EXPECT_EQ(testing_support::readText(f.dir / "smartctl.log"), "--json -a /dev/nvme0n1\n");
}

TEST(LinuxDisk, FollowsADeviceMapperVolumeToItsDisk) {
    FakeLinux f;
    quorv::HostScope scope(f.host);
    f.mountRoot("/dev/mapper/vg-root");
    f.write("/dev/dm-1", "");
    quorv::files::makeFolders(f.dir / "dev/mapper");
    fs::create_symlink("../dm-1", f.dir / "dev/mapper/vg-root");
    quorv::files::makeFolders(f.dir / "sys/class/block/dm-1/slaves/dm-0");
    quorv::files::makeFolders(f.dir / "sys/class/block/dm-0/slaves/sda3");
    EXPECT_EQ(brimstell::LinuxDisk::startupDisk(), "sda") << "LVM on LUKS on a partition";
}

TEST(LinuxDisk, NoReadingSaysWhy) {
    const struct {
        const char* name;
        const char* source;
        const char* answer;  // nullptr: no smartctl
        const char* problem;
    } cases[] = {
        {"an overlay root", "overlay", R"({})", "The disk under / isn't a local block device."},
        {"no smartctl", "/dev/sda1", nullptr, "smartctl isn't installed (it comes with smartmontools)."},
        {"not permitted", "/dev/sda1",
         R"({"smartctl": {"messages": [{"string": "Smartctl open device: /dev/sda failed: Permission denied", "severity": "error"}],
             "exit_status": 2}})",
         "smartctl couldn't read /dev/sda: Smartctl open device: /dev/sda failed: Permission denied"},
        {"garbage", "/dev/vda", "Segmentation fault\n", "smartctl couldn't read /dev/vda."},
    };
    for (const auto& c : cases) {
        FakeLinux f;
        quorv::HostScope scope(f.host);
        f.mountRoot(c.source, std::string(c.source) == "overlay" ? "overlay" : "ext4");
        if (c.answer) f.smartctl(c.answer);
        const auto r = brimstell::HealthProbe::readDisk();
        EXPECT_FALSE(r.disk) << c.name;
        EXPECT_EQ(r.problem, c.problem) << c.name;
        EXPECT_FALSE(brimstell::HealthProbe::disk()) << c.name;
    }
}

TEST(LinuxBattery, FromThePowerSupplyClass) {
    FakeLinux f;
    quorv::HostScope scope(f.host);
    EXPECT_FALSE(brimstell::HealthProbe::battery()) << "no power_supply folder: a desktop";
    f.write("/sys/class/power_supply/AC/uevent", "POWER_SUPPLY_NAME=AC\nPOWER_SUPPLY_TYPE=Mains\nPOWER_SUPPLY_ONLINE=1\n");
    EXPECT_FALSE(brimstell::HealthProbe::battery()) << "a charger alone";
    f.write("/sys/class/power_supply/BAT0/uevent",
            "POWER_SUPPLY_NAME=BAT0\nPOWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Not charging\nPOWER_SUPPLY_CHARGE_FULL=3400000\n"
            "POWER_SUPPLY_CHARGE_FULL_DESIGN=4000000\nPOWER_SUPPLY_CYCLE_COUNT=412\nPOWER_SUPPLY_CAPACITY=80\n");
    f.write("/sys/class/power_supply/BAT0/temp", "312\n");
    const auto b = brimstell::HealthProbe::battery();
    ASSERT_TRUE(b);
    EXPECT_DOUBLE_EQ(b->health, 0.85);
    EXPECT_EQ(b->cycles, 412);
    EXPECT_EQ(b->percent, 80);
    EXPECT_FALSE(b->charging);
    EXPECT_TRUE(b->plugged);
    EXPECT_DOUBLE_EQ(b->temperature, 31.2) << "an attribute file the uevent lacks";
}

}  // namespace
