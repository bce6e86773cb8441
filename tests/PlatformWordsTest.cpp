// Texts that name the Mac: the Mac's own words on a Mac (and a sandbox Mac), Linux's on Linux.

#include <gtest/gtest.h>

#include <unistd.h>

#include <map>
#include <string>

#include "kit/agent/Agent.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/host/PlatformWords.hpp"
#include "support/settings/PlistFileStore.hpp"

namespace {

using quorv::Phrase;

std::shared_ptr<quorv::Host> hostOn(const std::string& platform, const std::string& root) {
    return quorv::hostFromEnvironment(
        {{"HOME", root + "/home/a"}, {"BRIMSTELL_ROOT", root}, {"BRIMSTELL_PLATFORM", platform}});
}

TEST(PlatformWords, OneTableOfBoth) {
    const auto mac = hostOn("mac", "/m");
    const auto linux = hostOn("linux", "/l");
    const struct {
        Phrase phrase;
        const char* volume;
        const char* onMac;
        const char* onLinux;
    } rows[] = {
        {Phrase::startupDisk, "", "Macintosh HD", "the disk"},
        {Phrase::startupDisk, "Data", "Macintosh HD", "Data"},
        {Phrase::yourMac, "", "your Mac", "your computer"},
        {Phrase::finder, "", "Finder", "the file manager"},
        {Phrase::yourLibrary, "", "your Library", "~/.var/app"},
        {Phrase::wornRule, "", "Apple considers under 80% worn.", "Under 80% counts as worn."},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(quorv::phrase(r.phrase, *mac, r.volume), r.onMac);
        EXPECT_EQ(quorv::phrase(r.phrase, *linux, r.volume), r.onLinux);
    }
    EXPECT_EQ(quorv::phraseTable().size(), std::size(rows) - 1) << "every phrase has a row here (the disk has two)";
}

TEST(PlatformWords, AVolumeIsNamedByItsLabelElseItsMountPoint) {
    const std::string mountinfo =
        "22 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n"
        "30 22 8:17 / /home rw,relatime shared:2 - ext4 /dev/sdb1 rw\n"
        "31 22 8:33 / /mnt/my\\040disk rw - vfat /dev/sdc1 rw\n"
        "garbage line\n"
        "32 22 0:40 / /home rw - tmpfs tmpfs rw\n";
    const std::map<std::string, std::string> labels = {{"/dev/sda2", "Data Disk"}, {"/dev/sdc1", "USB"}};
    const struct {
        const char* path;
        const char* name;
    } cases[] = {
        {"/", "Data Disk"},
        {"/var/log", "Data Disk"},
        {"/home/a", "/home"},           // the later mount on /home covers the earlier; no label
        {"/homework", "Data Disk"},     // not inside /home
        {"/mnt/my disk/x", "USB"},
        {"relative", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(quorv::volumeName(mountinfo, labels, c.path), c.name) << c.path;
}

// The low-disk alert as a person reads it, on each platform.
TEST(PlatformWords, TheLowDiskAlertNamesTheDiskInThePlatformsWords) {
    const struct {
        const char* platform;
        const char* label;  // nullptr: the root's volume has none
        const char* body;
    } cases[] = {
        {"mac", "Ignored", "Only 4 GB free on Macintosh HD. Open Brimstell to make room."},
        {"linux", "Data Disk", "Only 4 GB free on Data Disk. Open Brimstell to make room."},
        {"linux", nullptr, "Only 4 GB free on /. Open Brimstell to make room."},
    };
    for (const auto& c : cases) {
        testing_support::TempDir dir;
        const std::string root = dir.path();
        testing_support::makeFolders(root + "/proc/self");
        testing_support::makeFolders(root + "/dev/disk/by-label");
        testing_support::makeFolders(root + "/home/a");
        testing_support::writeBytes(root + "/proc/self/mountinfo", "22 1 8:2 / / rw - ext4 /dev/sda2 rw\n");
        if (c.label) {
            const std::string link = root + "/dev/disk/by-label/" + std::string(c.label == std::string("Data Disk") ? "Data\\x20Disk" : c.label);
            ASSERT_EQ(::symlink("../../sda2", link.c_str()), 0);
        }
        auto host = hostOn(c.platform, root);
        auto notifier = std::make_shared<testing_support::RecordingNotifier>();
        host->notifier = notifier;
        host->settings = std::make_shared<quorv::PlistFileStore>(root + "/settings.plist");
        quorv::HostScope scope(host);
        brimstell::AgentRun run(*host->settings, 1'790'000'000);
        run.lowDisk({100'000'000'000, 4'000'000'000, 4'000'000'000});
        ASSERT_EQ(notifier->sent().size(), 1u) << c.platform;
        EXPECT_EQ(notifier->sent()[0].second, c.body);
    }
}

}  // namespace
