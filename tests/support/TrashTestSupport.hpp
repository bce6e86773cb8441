#pragma once
// Shared pieces of the Trash tests; file helpers take names as bytes.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TestSupport.hpp"
#include "support/host/Host.hpp"
#include "support/host/TrashBackend.hpp"

namespace testing_support {

// A Linux host with the freedesktop.org Trash, a fixed clock and local time, rooted in a fresh
// temporary folder so that only the mounts written to <base>/proc/self/mountinfo are listed.
struct LinuxTrashHost {
    explicit LinuxTrashHost(double now = 1'790'000'000);
    // Writes the mountinfo: these mount points (system paths, so "/vol" is <base>/vol).
    void mounts(const std::vector<std::string>& systemPaths, const std::string& fileSystem = "ext4") const;
    TempDir dir;
    std::string base;  // dir's real path
    std::string home;  // base + "/home/someone"
    std::string trash; // home + "/.local/share/Trash"
    // This user's Trash folders at the top of another disk, for the uid the tests run as:
    // "/.Trash-<uid>" of its own and "/.Trash/<uid>" in a shared one.
    std::string ownTrash;
    std::string sharedTrash;
    std::shared_ptr<quorv::Host> host;
    std::map<std::string, std::string> toolEnvironment() const;  // HOME, XDG_DATA_HOME, TZ, LC_ALL
};

// Sets TZ for the process while it lives (the calendar's local zone), then puts the old one back.
class TimeZoneScope {
public:
    explicit TimeZoneScope(const std::string& zone);
    ~TimeZoneScope();
    TimeZoneScope(const TimeZoneScope&) = delete;
    TimeZoneScope& operator=(const TimeZoneScope&) = delete;

private:
    bool had_ = false;
    std::string old_;
};

// A zone with a half-hour offset and no summer time, written out so no zone database is needed.
inline constexpr const char* kolkata = "<+0530>-5:30";

// A tmpfs mounted at path while it lives; mounted() false when this machine doesn't allow it.
class TmpfsMount {
public:
    explicit TmpfsMount(const std::string& path);
    ~TmpfsMount();
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;
    bool mounted() const { return mounted_; }

private:
    std::string path_;
    bool mounted_ = false;
};

// A test whose host is a LinuxTrashHost at 2026-09-21 19:43:20 in Kolkata's zone.
class LinuxTrashTest : public ::testing::Test {
protected:
    LinuxTrashHost env{1'790'000'000};
    quorv::HostScope scope{env.host};
    TimeZoneScope zone{kolkata};

    // Writes <base>/folder/name, making the folder; returns its path.
    std::string item(const std::string& folder, const std::string& name, const std::string& content = "data") const;
};

// Moves path to the current host's Trash; a refusal fails the test with its sentence.
std::optional<std::string> trash(const std::string& path);
std::vector<quorv::TrashedItem> listed();  // the current host's Trash

// Runs fn on a thread that has given up root's power to ignore file permissions (the thread
// only); false, without running it, when the kernel won't allow that.
bool withoutFileOverrides(const std::function<void()>& fn);

void writeBytes(const std::string& path, const std::string& content);
bool exists(const std::string& path);  // anything, a dangling link included
void makeFolders(const std::string& path);

}  // namespace testing_support
