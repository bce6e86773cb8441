#pragma once
// Lays out a sandbox Mac: a folder shaped like a Mac's disk (Users/<name> with its Library,
// /Library, /Applications, /private/var, fake system tools) that every engine runs against on
// Linux. The tests and `brimstell demo` build theirs here, so both see the same Mac.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "support/host/Host.hpp"

namespace brimstell {

// An app to put into a sandbox Mac; empty fields are left out of its Info.plist.
struct SandboxApp {
    std::string bundleID{};
    std::string name{};         // CFBundleName
    std::string version{};      // CFBundleShortVersionString
    std::string build{};        // CFBundleVersion
    std::string feed{};         // SUFeedURL
    std::string edKey{};        // SUPublicEDKey
    bool fromAppStore = false;  // with a Contents/_MASReceipt/receipt
    bool binary = false;        // the Info.plist in the binary form
};

// A battery as a sandbox Mac's registry and power sources describe it.
struct SandboxBattery {
    std::int64_t designCapacity = 5000;  // mAh
    std::int64_t fullCapacity = 4460;    // mAh
    std::int64_t cycles = 312;
    std::int64_t percent = 76;
    bool charging = false;
    bool plugged = true;
    double temperature = 30.5;  // degrees Celsius
    std::string condition;      // "BatteryHealthCondition"; empty leaves it out
    std::int64_t chargerWatts = 67;  // 0: no adapter details
};

// The start-up disk as diskutil and the NVMe log describe it.
struct SandboxDisk {
    std::string mediaName = "APPLE SSD AP0512Q";
    std::int64_t size = 500'277'790'720;
    std::string smart = "Verified";
    bool nvmeLog = true;
    std::uint8_t percentUsed = 2;
    std::uint8_t spare = 100;
    std::uint8_t spareThreshold = 99;
    std::uint64_t dataUnitsRead = 38'000'000;
    std::uint64_t dataUnitsWritten = 29'000'000;
    std::uint64_t powerOnHours = 1'870;
    std::uint64_t unsafeShutdowns = 14;
    std::uint64_t mediaErrors = 0;
};

class SandboxMac {
public:
    // Creates the skeleton under root (which may exist). user is the account's short name.
    static SandboxMac create(const std::string& root, const std::string& user = "ann");

    // Adds the demo's sample content: launch items, caches, logs, downloads, apps, a battery and
    // a disk.
    void addSampleContent();
    // The demo's apps (App Store ones, ones with feeds, one in a sub-folder, one too deep) and
    // what a removed app left in the Library.
    void addSampleApps();

    // The battery's registry entry, power sources and adapter (written over any earlier one).
    void addBattery(const SandboxBattery& battery = {});
    // The fake "/usr/sbin/diskutil" with what it prints for "/", the APFS physical store and its
    // whole disk, and the NVMe log page (removed when nvmeLog is false).
    void addDisk(const SandboxDisk& disk = {});

    const std::string& root() const { return root_; }
    const std::string& user() const { return user_; }
    std::string home() const;
    // A system path ("/Library/LaunchDaemons/x.plist") as a location in the sandbox.
    std::string path(std::string_view systemPath) const;

    // Writes a file at a system path (parents created). "~/" at the start means the home folder.
    std::string writeFile(std::string_view systemPath, std::string_view content);
    // A file of the given logical size whose blocks are really allocated.
    std::string writeFileOfSize(std::string_view systemPath, std::size_t bytes);
    std::string makeFolder(std::string_view systemPath);
    // Sets a location's access and modification times (seconds since 1970), a final link not followed.
    static void setTimes(const std::string& location, double time);

    // A launchd property list with this label in folder ("~/Library/LaunchAgents",
    // "/Library/LaunchAgents" or "/Library/LaunchDaemons"); returns its location.
    std::string addLaunchItem(std::string_view folder, std::string_view label, std::string_view program);

    // An executable script at a system path ("/usr/sbin/diskutil") that appends its arguments to
    // <root>/private/var/log/tools.log, one line per call, and runs body.
    std::string addFakeTool(std::string_view systemPath, std::string_view body);

    // An app at a system path ("/Applications/Example.app", "~/Applications/X.app"), with its
    // Contents/Info.plist and executable; returns its location.
    std::string addApp(std::string_view systemPath, const SandboxApp& app);

    // The file a Mac keeps its version in (System/Library/CoreServices/SystemVersion.plist).
    void addSystemVersion(std::string_view version);

    // The variables that point a command at this sandbox.
    std::map<std::string, std::string> environment() const;

private:
    std::string root_;
    std::string user_;
};

}  // namespace brimstell
