// The health engine's parsers: the NVMe log page, diskutil's property lists, the registry's battery
// dictionaries, Linux's power-supply class and smartctl's JSON, over small fixtures of our own and
// over the real outputs beside the checkout.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "kit/health/BatteryFacts.hpp"
#include "kit/health/DiskutilInfo.hpp"
#include "kit/health/SmartctlReport.hpp"
#include "kit/health/SysfsPower.hpp"
#include "support/TestSupport.hpp"
#include "support/plist/Plist.hpp"
#include "support/posix/Files.hpp"

namespace {

using brimstell::HealthFlag;
using quorv::Value;

std::string realFixture(const std::string& relative) {
    return std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/" + relative;
}

#define REQUIRE_REAL(path) \
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << (path)

// A log page with little-endian counters at their offsets.
std::string page(std::size_t bytes, const std::vector<std::pair<std::size_t, std::uint64_t>>& counters) {
    std::string p(bytes, '\0');
    for (const auto& [offset, value] : counters) {
        for (std::size_t i = 0; i < 8 && offset + i < bytes; ++i) p[offset + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
    }
    return p;
}

TEST(NVMeLog, ParsesThePageByItsOffsets) {
    EXPECT_FALSE(brimstell::NVMeLog::parse(page(511, {{32, 1}}))) << "a short buffer gives no log";

    std::string p = page(512, {{32, 1}, {48, 1'000'000}, {128, 0xFFFF'FFFF'FFFF'FFFFull}, {144, 43}, {160, 7}});
    p[0] = '\x04';
    p[3] = '\x64';
    p[4] = '\x0a';
    p[5] = '\xff';  // endurance used may pass 100
    p[40] = '\x01';  // the high half of the read counter is not taken
    const auto log = brimstell::NVMeLog::parse(p);
    ASSERT_TRUE(log);
    EXPECT_EQ(log->criticalWarning, 4);
    EXPECT_EQ(log->spare, 100);
    EXPECT_EQ(log->spareThreshold, 10);
    EXPECT_EQ(log->percentUsed, 255);
    EXPECT_EQ(log->bytesRead, 512'000.0);
    EXPECT_EQ(log->bytesWritten, 512'000'000'000.0);
    EXPECT_EQ(log->powerOnHours, 0xFFFF'FFFF'FFFF'FFFFull);
    EXPECT_EQ(log->unsafeShutdowns, 43u);
    EXPECT_EQ(log->mediaErrors, 7u);
    EXPECT_TRUE(brimstell::NVMeLog::parse(page(4096, {})));
}

Value dict(Value::Dict d) { return Value(std::move(d)); }

TEST(DiskutilInfo, HopsAndMissingKeys) {
    const struct {
        const char* name;
        Value info;
        std::optional<std::string> hop;
        const char* media;
        const char* smart;
        std::int64_t size;
    } cases[] = {
        {"a physical store by DeviceIdentifier",
         dict({{"APFSPhysicalStores", Value::Array{dict({{"DeviceIdentifier", "disk0s2"}})}}, {"ParentWholeDisk", "disk3"}}),
         "disk0s2", "Startup disk", "Unknown", 0},
        {"an empty store list: the parent", dict({{"APFSPhysicalStores", Value::Array{}}, {"ParentWholeDisk", "disk3"}, {"DeviceIdentifier", "disk3s1"}}),
         "disk3", "Startup disk", "Unknown", 0},
        {"the whole disk itself", dict({{"ParentWholeDisk", "disk0"}, {"DeviceIdentifier", "disk0"}, {"MediaName", "APPLE SSD AP0512Q"},
                                        {"SMARTStatus", "Failing"}, {"Size", std::int64_t{500'277'790'720}}}),
         std::nullopt, "APPLE SSD AP0512Q", "Failing", 500'277'790'720},
        {"empty name and status", dict({{"MediaName", ""}, {"SMARTStatus", ""}, {"TotalSize", std::int64_t{7}}, {"Size", std::int64_t{9}}}),
         std::nullopt, "Startup disk", "Unknown", 7},
        {"keys of the wrong type", dict({{"MediaName", 3}, {"SMARTStatus", true}, {"TotalSize", "big"}}), std::nullopt, "Startup disk",
         "Unknown", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(brimstell::DiskutilInfo::hop(c.info), c.hop) << c.name;
        const auto d = brimstell::DiskutilInfo::health(c.info);
        EXPECT_EQ(d.name, c.media) << c.name;
        EXPECT_EQ(d.smart, c.smart) << c.name;
        EXPECT_EQ(d.size, c.size) << c.name;
        EXPECT_FALSE(d.wear) << c.name;
    }
    EXPECT_FALSE(brimstell::DiskutilInfo::parse("diskutil: not a plist\n"));
}

TEST(DiskutilInfo, RealOutputs) {
    const std::string root = realFixture("diskutil_plist/crystal_info_root_apfs_sealed_snapshot.plist");
    REQUIRE_REAL(root);
    const auto info = brimstell::DiskutilInfo::parse(*quorv::files::read(root));
    ASSERT_TRUE(info);
    EXPECT_EQ(brimstell::DiskutilInfo::hop(*info), "disk0s2") << "diskutil names the store APFSPhysicalStore";
    const auto d = brimstell::DiskutilInfo::health(*info);
    EXPECT_EQ(d.name, "Startup disk");
    EXPECT_EQ(d.size, 500'068'036'608);
    EXPECT_EQ(d.smart, "Verified");
    EXPECT_TRUE(d.solidState);
    EXPECT_FALSE(d.failing());

    const auto usb = brimstell::DiskutilInfo::parse(*quorv::files::read(realFixture("diskutil_plist/crystal_info_external_usb_hfs_not_supported.plist")));
    ASSERT_TRUE(usb);
    EXPECT_EQ(brimstell::DiskutilInfo::hop(*usb), "disk11");
    EXPECT_EQ(brimstell::DiskutilInfo::health(*usb).smart, "Not Supported");
    EXPECT_EQ(brimstell::DiskutilInfo::health(*usb).size, 5'000'603'328'512);

    EXPECT_FALSE(brimstell::DiskutilInfo::parse(*quorv::files::read(realFixture("diskutil_plist/crystal_info_error_could_not_find_disk.plist"))))
        << "diskutil's error dictionary is no reading";
}

TEST(DiskHealth, FailingIsAnyCaseOfFail) {
    const struct {
        const char* smart;
        bool failing;
    } cases[] = {{"Failing", true}, {"FAILED!", true}, {"About to fail", true}, {"Verified", false}, {"Unknown", false}, {"Not Supported", false}};
    for (const auto& c : cases) {
        brimstell::DiskHealth d;
        d.smart = c.smart;
        EXPECT_EQ(d.failing(), c.failing) << c.smart;
    }
}

TEST(BatteryFacts, FromTheRegistrysDictionaries) {
    const Value registry = dict({{"BatteryInstalled", true}, {"CycleCount", 312}, {"DesignCapacity", 5000},
                                 {"NominalChargeCapacity", 4400}, {"AppleRawMaxCapacity", 4500}, {"CurrentCapacity", 76},
                                 {"MaxCapacity", 100}, {"IsCharging", true}, {"ExternalConnected", true}, {"Temperature", 3050}});
    const std::vector<Value> sources = {dict({{"Type", "UPS"}, {"BatteryHealthCondition", "Check Battery"}}),
                                        dict({{"Type", "InternalBattery"}, {"BatteryHealthCondition", "Service Recommended"},
                                              {"Current Capacity", 80}, {"Max Capacity", 100}})};
    const auto b = brimstell::BatteryFacts::fromRegistry(registry, sources, dict({{"Watts", 67}}));
    ASSERT_TRUE(b);
    EXPECT_DOUBLE_EQ(b->health, 0.88);
    EXPECT_EQ(b->flag, HealthFlag::none);
    EXPECT_EQ(b->cycles, 312);
    EXPECT_EQ(b->fullCapacity, 4400);
    EXPECT_EQ(b->designCapacity, 5000);
    EXPECT_EQ(b->percent, 80) << "the power source's own percent";
    EXPECT_TRUE(b->charging);
    EXPECT_TRUE(b->plugged);
    EXPECT_DOUBLE_EQ(b->temperature, 30.5);
    EXPECT_EQ(b->condition, "Service Recommended");
    EXPECT_EQ(b->chargerWatts, 67);

    const auto raw = brimstell::BatteryFacts::fromRegistry(
        dict({{"DesignCapacity", 5000}, {"AppleRawMaxCapacity", 4100}, {"CurrentCapacity", 2000}, {"MaxCapacity", 4000}}), {}, std::nullopt);
    ASSERT_TRUE(raw);
    EXPECT_EQ(raw->fullCapacity, 4100) << "AppleRawMaxCapacity without a nominal capacity";
    EXPECT_EQ(raw->percent, 50);
    EXPECT_FALSE(raw->condition);
    EXPECT_FALSE(raw->chargerWatts);

    EXPECT_FALSE(brimstell::BatteryFacts::fromRegistry(dict({{"BatteryInstalled", false}, {"DesignCapacity", 5000}}), {}, std::nullopt));
    EXPECT_FALSE(brimstell::BatteryFacts::fromRegistry(Value("not a dictionary"), {}, std::nullopt));
}

TEST(BatteryFacts, ReadingsThatArentBelieved) {
    const struct {
        std::int64_t full, design;
        double health;
        HealthFlag flag;
        bool known;
        const char* text;
    } cases[] = {
        {4000, 5000, 0.8, HealthFlag::none, true, ""},
        {5000, 5000, 1.0, HealthFlag::none, true, ""},
        {5260, 5000, 1.0, HealthFlag::aboveDesign, true, "It reports 105% of its design capacity, which no battery holds: counted as 100%."},
        {4400, 0, 0, HealthFlag::noDesign, false, "It reports no design capacity, so its health can't be worked out."},
        {0, 5000, 0, HealthFlag::noCapacity, false, "It reports no full-charge capacity, so its health can't be worked out."},
        {-1, -1, 0, HealthFlag::noDesign, false, "It reports no design capacity, so its health can't be worked out."},
    };
    for (const auto& c : cases) {
        brimstell::BatteryDetails b;
        b.fullCapacity = c.full;
        b.designCapacity = c.design;
        brimstell::BatteryFacts::rate(b);
        EXPECT_DOUBLE_EQ(b.health, c.health) << c.full << "/" << c.design;
        EXPECT_EQ(b.flag, c.flag) << c.full << "/" << c.design;
        EXPECT_EQ(b.healthKnown(), c.known) << c.full << "/" << c.design;
        EXPECT_EQ(brimstell::BatteryFacts::flagText(b), c.text) << c.full << "/" << c.design;
    }
}

// ---- Linux's power-supply class ----

// Lays out a power_supply folder from the real dumps: uevent files, "grep -H . BAT0/*" lines
// and "head" dumps with their "==> file <==" headers.
struct SupplyTree {
    testing_support::TempDir dir;
    std::string folder = dir / "power_supply";

    void put(const std::string& supply, const std::string& attribute, const std::string& value) {
        quorv::files::writeAtomically(folder + "/" + supply + "/" + attribute, value + "\n");
    }
    void uevent(const std::string& text) {
        const auto attrs = brimstell::SysfsPower::parseUevent(text);
        put(attrs.at("name"), "uevent", text);
    }
    // A value at ".../<supply>/<attribute>", the last two names of a dumped path.
    void putAt(const std::string& path, const std::string& value) {
        const auto slash = path.rfind('/');
        const auto supplySlash = path.rfind('/', slash - 1);
        put(path.substr(supplySlash + 1, slash - supplySlash - 1), path.substr(slash + 1), value);
    }
    void grepLines(const std::string& text) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) putAt(line.substr(0, line.find(':')), line.substr(line.find(':') + 1));
    }
    void headDump(const std::string& text) {
        std::string file, body;
        auto flush = [&] {
            if (!file.empty() && file.find("/power/") == std::string::npos) putAt(file, body);
        };
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("==> ", 0) == 0) {
                flush();
                file = line.substr(4, line.size() - 8);
                body.clear();
            } else if (!line.empty()) {
                body += (body.empty() ? "" : "\n") + line;
            }
        }
        flush();
    }
};

std::string realText(const std::string& relative) { return quorv::files::read(realFixture(relative)).value_or(""); }

TEST(SysfsPower, RealBatteries) {
    REQUIRE_REAL(realFixture("linux_power_supply"));
    const struct {
        const char* name;
        std::function<void(SupplyTree&)> layOut;
        std::int64_t full, design;
        const char* unit;
        HealthFlag flag;
        std::int64_t cycles, percent;
        double temperature;
        std::optional<std::string> condition;
    } cases[] = {
        {"energy_* uevent with its adapter", [](SupplyTree& t) {
             t.uevent(realText("linux_power_supply/procfs_BAT0_uevent"));
             t.uevent(realText("linux_power_supply/procfs_AC_uevent"));
         }, 4388, 4400, "mAh", HealthFlag::none, 0, 85, 0, std::nullopt},
        {"attribute files only, above design", [](SupplyTree& t) { t.grepLines(realText("linux_power_supply/procfs_BAT0_attributes_grep.txt")); },
         4635, 4400, "mAh", HealthFlag::aboveDesign, 0, 98, 0, std::nullopt},
        {"charge_* head dump with a USB supply", [](SupplyTree& t) { t.headDump(realText("linux_power_supply/sp-endurance_BAT0_USB0_head_dump.txt")); },
         1563, 1563, "mAh", HealthFlag::none, 0, 15, 3.0, std::nullopt},
        {"smart battery with energy and charge", [](SupplyTree& t) { t.uevent(realText("linux_power_supply/lkml_sbs-battery_uevent_energy_and_charge")); },
         3898, 3800, "mAh", HealthFlag::aboveDesign, 12, 76, 19.8, "Good"},
    };
    for (const auto& c : cases) {
        SupplyTree tree;
        c.layOut(tree);
        const auto b = brimstell::SysfsPower::battery(brimstell::SysfsPower::read(tree.folder));
        ASSERT_TRUE(b) << c.name;
        EXPECT_EQ(b->fullCapacity, c.full) << c.name;
        EXPECT_EQ(b->designCapacity, c.design) << c.name;
        EXPECT_EQ(b->capacityUnit, c.unit) << c.name;
        EXPECT_EQ(b->flag, c.flag) << c.name;
        EXPECT_EQ(b->cycles, c.cycles) << c.name;
        EXPECT_EQ(b->percent, c.percent) << c.name;
        EXPECT_DOUBLE_EQ(b->temperature, c.temperature) << c.name;
        EXPECT_EQ(b->condition, c.condition) << c.name;
        EXPECT_FALSE(b->charging) << c.name << ": all of them discharge";
        EXPECT_FALSE(b->plugged) << c.name;
        EXPECT_LE(b->health, 1.0) << c.name;
    }
}

TEST(SysfsPower, ChargersPeripheralsAndMissingFigures) {
    SupplyTree t;
    t.uevent("POWER_SUPPLY_NAME=hidpp_battery_0\nPOWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY=40\n");
    EXPECT_FALSE(brimstell::SysfsPower::battery(brimstell::SysfsPower::read(t.folder))) << "a mouse's battery is no system battery";

    t.uevent("POWER_SUPPLY_NAME=BAT1\nPOWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_ENERGY_FULL=40000000\n"
             "POWER_SUPPLY_ENERGY_FULL_DESIGN=50000000\nPOWER_SUPPLY_ENERGY_NOW=10000000\n");
    t.uevent("POWER_SUPPLY_NAME=ucsi-source-psy-USBC000:001\nPOWER_SUPPLY_TYPE=USB\nPOWER_SUPPLY_ONLINE=1\n"
             "POWER_SUPPLY_VOLTAGE_MAX=20000000\nPOWER_SUPPLY_CURRENT_MAX=3250000\n");
    auto b = brimstell::SysfsPower::battery(brimstell::SysfsPower::read(t.folder));
    ASSERT_TRUE(b);
    EXPECT_EQ(b->capacityUnit, "mWh") << "energy without a voltage stays energy";
    EXPECT_EQ(b->fullCapacity, 40000);
    EXPECT_DOUBLE_EQ(b->health, 0.8);
    EXPECT_EQ(b->percent, 25) << "worked out from energy_now without a capacity";
    EXPECT_TRUE(b->charging);
    EXPECT_TRUE(b->plugged);
    EXPECT_EQ(b->chargerWatts, 65);

    SupplyTree bare;
    bare.uevent("POWER_SUPPLY_NAME=BAT0\nPOWER_SUPPLY_STATUS=Full\nPOWER_SUPPLY_CAPACITY=garbage\n");
    b = brimstell::SysfsPower::battery(brimstell::SysfsPower::read(bare.folder));
    ASSERT_TRUE(b);
    EXPECT_FALSE(b->healthKnown()) << "no design capacity";
    EXPECT_EQ(b->percent, 0);
    EXPECT_TRUE(b->plugged) << "a full battery sits on its charger";

    EXPECT_TRUE(brimstell::SysfsPower::read(t.dir / "missing").empty());
}

// ---- smartctl ----

TEST(SmartctlReport, RealOutputs) {
    REQUIRE_REAL(realFixture("smartctl_json"));
    const struct {
        const char* file;
        const char* name;
        std::int64_t size;
        const char* smart;
        bool solid;
        bool wear;
    } cases[] = {
        {"nvme_passed_smart-nvme.json", "INTEL SSDPEKNW010T8", 1'024'209'543'168, "Verified", true, true},
        {"nvme_media_errors_smart-nvme-failed.json", "Samsung SSD 970 EVO 500GB", 500'107'862'016, "Verified", true, true},
        {"ata_passed_smart-ata2.json", "X SSD 850 PRO 128GB", 128'035'676'160, "Verified", true, false},
        {"ata_failing_usbjmicron_smart-fail2.json", "Hitachi HDS721050DLE630", 500'107'862'016, "Failing", false, false},
    };
    for (const auto& c : cases) {
        const auto d = brimstell::SmartctlReport::parse(realText("smartctl_json/" + std::string(c.file)));
        ASSERT_TRUE(d) << c.file;
        EXPECT_EQ(d->name, c.name) << c.file;
        EXPECT_EQ(d->size, c.size) << c.file;
        EXPECT_EQ(d->smart, c.smart) << c.file;
        EXPECT_EQ(d->solidState, c.solid) << c.file;
        EXPECT_EQ(d->wear.has_value(), c.wear) << c.file;
    }
    const auto nvme = brimstell::SmartctlReport::parse(realText("smartctl_json/nvme_media_errors_smart-nvme-failed.json"));
    ASSERT_TRUE(nvme && nvme->wear);
    EXPECT_EQ(nvme->wear->percentUsed, 3);
    EXPECT_EQ(nvme->wear->spare, 99);
    EXPECT_EQ(nvme->wear->spareThreshold, 10);
    EXPECT_EQ(nvme->wear->bytesRead, 17'176'794.0 * 512'000);
    EXPECT_EQ(nvme->wear->bytesWritten, 65'602'088.0 * 512'000);
    EXPECT_EQ(nvme->wear->powerOnHours, 12'798u);
    EXPECT_EQ(nvme->wear->unsafeShutdowns, 10u);
    EXPECT_EQ(nvme->wear->mediaErrors, 7u);

    const std::string error = realText("smartctl_json/error_open_failed_windows_smart-fail.json");
    EXPECT_FALSE(brimstell::SmartctlReport::parse(error)) << "it couldn't open the disk";
    EXPECT_EQ(brimstell::SmartctlReport::problem(error).rfind("Smartctl open device: /dev/sda failed: ", 0), 0u);
}

TEST(SmartctlReport, HostileAndPartialOutputs) {
    EXPECT_FALSE(brimstell::SmartctlReport::parse(""));
    EXPECT_FALSE(brimstell::SmartctlReport::parse("[1, 2]"));
    EXPECT_FALSE(brimstell::SmartctlReport::parse(std::string(100'000, '[') + std::string(100'000, ']')));
    const auto d = brimstell::SmartctlReport::parse(R"({"device": {"name": "/dev/vda"}, "model_name": "", "user_capacity": {"bytes": -5},
        "smart_status": {"passed": "yes"}, "nvme_smart_health_information_log": {"percentage_used": 400, "media_errors": -1}})");
    ASSERT_TRUE(d);
    EXPECT_EQ(d->name, "Startup disk");
    EXPECT_EQ(d->size, 0);
    EXPECT_EQ(d->smart, "Unknown");
    ASSERT_TRUE(d->wear);
    EXPECT_EQ(d->wear->percentUsed, 255);
    EXPECT_EQ(d->wear->mediaErrors, 0u);
}

}  // namespace
