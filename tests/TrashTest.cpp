// The Trash backends (freedesktop.org, sandbox Mac) and TrashBin over them: hostile names, name
// clashes, the exclusive .trashinfo, links, other mounts, list/erase/restore round trips, dates.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "kit/files/FS.hpp"
#include "kit/files/FreedesktopTrash.hpp"
#include "kit/files/SandboxTrash.hpp"
#include "kit/files/TrashBin.hpp"
#include "kit/files/TrashInfo.hpp"
#include "kit/files/TrashNames.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/host/TrashBackend.hpp"

namespace {

using brimstell::TrashBin;
using brimstell::TrashInfo;
using brimstell::TrashNames;
using namespace testing_support;

constexpr double now = 1'790'000'000;  // 2026-09-21 14:13:20 UTC, 19:43:20 in Kolkata
constexpr const char* otherDisk = "It is on another disk whose Trash can't be used.";

std::vector<quorv::TrashedItem> listed() { return quorv::host().trash->list(); }

const quorv::TrashedItem* find(const std::vector<quorv::TrashedItem>& items, const std::string& location) {
    for (const auto& i : items) {
        if (i.location == location) return &i;
    }
    return nullptr;
}

std::string linkTarget(const std::string& path) {
    char buf[4096];
    const ssize_t n = ::readlink(path.c_str(), buf, sizeof buf);
    return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
}

// ---- the texts a freedesktop.org Trash keeps

TEST(TrashInfoText, PercentEncodingKeepsEveryByte) {
    struct Case {
        std::string raw, encoded;
    };
    const std::vector<Case> cases = {
        {"/home/ann/plain-name_1.0~x", "/home/ann/plain-name_1.0~x"},
        {"/a b/line\nfeed\ttab", "/a%20b/line%0Afeed%09tab"},
        {"/100%.txt", "/100%25.txt"},
        {std::string("/bad\xff\xfe", 6), "/bad%FF%FE"},
        {"/Grüße", "/Gr%C3%BC%C3%9Fe"},
        {"/[x]=y;#?&+", "/%5Bx%5D%3Dy%3B%23%3F%26%2B"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TrashInfo::percentEncode(c.raw), c.encoded);
        EXPECT_EQ(TrashInfo::percentDecode(c.encoded), c.raw);
    }
    EXPECT_EQ(TrashInfo::percentDecode("/a%2"), std::nullopt);
    EXPECT_EQ(TrashInfo::percentDecode("/a%zz"), std::nullopt);
    EXPECT_EQ(TrashInfo::percentDecode("/a%"), std::nullopt);
    EXPECT_EQ(TrashInfo::percentDecode("/a%e2%82%ac"), "/a€");
}

TEST(TrashInfoText, ParsesWhatTrashToolsWrite) {
    quorv::Calendar utc;
    utc.utc = true;
    struct Case {
        const char* text;
        std::optional<std::string> path;
        std::optional<double> date;
    };
    const std::vector<Case> cases = {
        {"[Trash Info]\nPath=/home/a/x%20y\nDeletionDate=2026-09-21T14:13:20\n", "/home/a/x y", now},
        {"[Trash Info]\r\nPath=/a\r\nDeletionDate=2026-09-21T14:13:20\r\n", "/a", now},
        {"[Trash Info]\nDeletionDate=2026-09-21T14:13:20.123\nPath=rel/x\n", "rel/x", now},
        {"# comment\n[Other]\nPath=/no\n[Trash Info]\nPath=/yes\n", "/yes", std::nullopt},
        {"Path=/outside/group\nDeletionDate=2026-09-21T14:13:20\n", std::nullopt, std::nullopt},
        {"[Trash Info]\nPath=/a%zz\nDeletionDate=2026-02-30T10:00:00\n", std::nullopt, std::nullopt},
        {"[Trash Info]\nPath=/a\nDeletionDate=2026-09-21 14:13:20\n", "/a", std::nullopt},
        {"[Trash Info]\nPath=/a\nDeletionDate=2026-09-21T14:13:20+02:00\n", "/a", std::nullopt},
        {"[Trash Info]\nPath=\nDeletionDate=yesterday\n", std::nullopt, std::nullopt},
        {"\xff\xfe garbage \n\n", std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        const TrashInfo info = TrashInfo::parse(c.text, utc);
        EXPECT_EQ(info.path, c.path) << c.text;
        EXPECT_EQ(info.deletionDate, c.date) << c.text;
    }
}

TEST(TrashInfoText, DeletionDateIsLocalWallClockWithoutZone) {
    TimeZoneScope zone(kolkata);
    quorv::Calendar local;
    EXPECT_EQ(TrashInfo::format("/home/ann/a b", now, local),
              "[Trash Info]\nPath=/home/ann/a%20b\nDeletionDate=2026-09-21T19:43:20\n");
    EXPECT_EQ(TrashInfo::parseDate("2026-09-21T19:43:20", local), now);
}

// ---- names in a Trash

TEST(TrashNamesTest, NumberedAndCutToFit) {
    const std::string a255(255, 'a');
    const std::string x251txt = std::string(251, 'x') + ".txt";
    std::string umlauts;
    for (int i = 0; i < 127; ++i) umlauts += "ä";  // 254 bytes
    struct Case {
        std::string name;
        int n;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"rep.tar.gz", 1, "rep.tar.gz"},
        {"rep.tar.gz", 2, "rep.2.tar.gz"},
        {"rep.tar.gz", 3, "rep.3.tar.gz"},
        {"notes", 2, "notes.2"},
        {".bashrc", 2, ".bashrc.2"},
        {a255, 1, std::string(245, 'a')},
        {a255, 2, std::string(243, 'a') + ".2"},
        {x251txt, 1, std::string(241, 'x') + ".txt"},
        {x251txt, 12, std::string(238, 'x') + ".12.txt"},
        // Never half a character: 122 whole "ä" (244 bytes), not 122½.
        {umlauts + "b", 1, umlauts.substr(0, 244)},
        {"a." + std::string(250, 'e'), 2, ("a." + std::string(250, 'e')).substr(0, 243) + ".2"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TrashNames::freedesktop(c.name, c.n, 245), c.expected) << c.name.substr(0, 20) << " " << c.n;
    }

    struct FinderCase {
        std::string name;
        int n;
        std::string expected;
    };
    const std::vector<FinderCase> finder = {
        {"report.pdf", 1, "report.pdf"},
        {"report.pdf", 2, "report 14.05.31.pdf"},
        {"report.pdf", 3, "report 14.05.31 2.pdf"},
        {"report.pdf", 4, "report 14.05.31 3.pdf"},
        {"Photos", 2, "Photos 14.05.31"},
        {"archive.tar.gz", 2, "archive.tar 14.05.31.gz"},
        {".profile", 2, ".profile 14.05.31"},
        {"trailing.", 2, "trailing. 14.05.31"},
        {a255, 2, std::string(246, 'a') + " 14.05.31"},
    };
    for (const auto& c : finder) {
        EXPECT_EQ(TrashNames::finder(c.name, "14.05.31", c.n, 255), c.expected) << c.name.substr(0, 20) << " " << c.n;
    }
}

// ---- the freedesktop.org Trash

class FreedesktopTrashTest : public ::testing::Test {
protected:
    LinuxTrashHost env{now};
    quorv::HostScope scope{env.host};
    TimeZoneScope zone{kolkata};

    std::string item(const std::string& folder, const std::string& name, const std::string& content = "data") {
        makeFolders(env.base + "/" + folder);
        const std::string path = env.base + "/" + folder + "/" + name;
        writeBytes(path, content);
        return path;
    }
    std::optional<std::string> trash(const std::string& path) {
        std::string error;
        auto location = quorv::host().trash->moveToTrash(path, error);
        EXPECT_TRUE(location) << error;
        return location;
    }
    std::string refused(const std::string& path) {
        std::string error;
        EXPECT_EQ(quorv::host().trash->moveToTrash(path, error), std::nullopt);
        return error;
    }
    std::string info(const std::string& name) { return readText(env.trash + "/info/" + name + ".trashinfo"); }
};

TEST_F(FreedesktopTrashTest, HostileNamesSurviveTheRoundTrip) {
    const std::vector<std::string> names = {
        "plain.txt",        "line\nfeed",        "tab\there", "100%.txt", std::string("not utf8 \xff\xfe", 11),
        "Grüße und Küsse", " leading space",    "-dash",     "a\\b",     "semi;colon=equals",
    };
    std::map<std::string, std::string> where;
    for (const auto& name : names) {
        const std::string original = item("docs", name, name);
        const auto location = trash(original);
        ASSERT_TRUE(location);
        EXPECT_EQ(*location, env.trash + "/files/" + name);
        EXPECT_FALSE(exists(original));
        EXPECT_EQ(readText(*location), name);
        where[*location] = original;
    }
    EXPECT_EQ(info("line\nfeed"), "[Trash Info]\nPath=" + TrashInfo::percentEncode(env.base) +
                                      "/docs/line%0Afeed\nDeletionDate=2026-09-21T19:43:20\n");
    EXPECT_EQ(info(std::string("not utf8 \xff\xfe", 11)),
              "[Trash Info]\nPath=" + TrashInfo::percentEncode(env.base) +
                  "/docs/not%20utf8%20%FF%FE\nDeletionDate=2026-09-21T19:43:20\n");
    EXPECT_EQ(info("100%.txt"), "[Trash Info]\nPath=" + TrashInfo::percentEncode(env.base) +
                                    "/docs/100%25.txt\nDeletionDate=2026-09-21T19:43:20\n");

    const auto items = listed();
    ASSERT_EQ(items.size(), names.size());
    for (const auto& i : items) {
        ASSERT_TRUE(where.count(i.location)) << i.location;
        EXPECT_EQ(i.originalPath, where[i.location]);
        EXPECT_EQ(i.dateAdded, now);
        EXPECT_TRUE(quorv::host().trash->isInTrash(i.location));
    }
}

TEST_F(FreedesktopTrashTest, LongNamesLeaveRoomForTheInfoName) {
    const std::string longName = std::string(251, 'x') + ".txt";  // 255 bytes
    const auto first = trash(item("a", longName));
    const auto second = trash(item("b", longName));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(*first, env.trash + "/files/" + std::string(241, 'x') + ".txt");
    EXPECT_EQ(*second, env.trash + "/files/" + std::string(239, 'x') + ".2.txt");
    EXPECT_TRUE(exists(env.trash + "/info/" + std::string(241, 'x') + ".txt.trashinfo"));
    const auto items = listed();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(find(items, *first)->originalPath, env.base + "/a/" + longName);
    EXPECT_EQ(find(items, *second)->originalPath, env.base + "/b/" + longName);
}

TEST_F(FreedesktopTrashTest, ClashesAreNumberedAndTheInfoIsClaimedExclusively) {
    // A .trashinfo nobody wrote for us already holds "a.txt"; a stray item holds "b.txt".
    makeFolders(env.trash + "/info");
    makeFolders(env.trash + "/files");
    writeBytes(env.trash + "/info/a.txt.trashinfo", "keep me");
    writeBytes(env.trash + "/files/b.txt", "stray");

    EXPECT_EQ(trash(item("1", "a.txt")), env.trash + "/files/a.2.txt");
    EXPECT_EQ(readText(env.trash + "/info/a.txt.trashinfo"), "keep me");
    EXPECT_FALSE(exists(env.trash + "/files/a.txt"));

    EXPECT_EQ(trash(item("1", "b.txt", "mine")), env.trash + "/files/b.2.txt");
    EXPECT_EQ(readText(env.trash + "/files/b.txt"), "stray");
    EXPECT_FALSE(exists(env.trash + "/info/b.txt.trashinfo"));  // claimed, then given back
    EXPECT_EQ(readText(env.trash + "/files/b.2.txt"), "mine");

    EXPECT_EQ(trash(item("1", "rep.tar.gz")), env.trash + "/files/rep.tar.gz");
    EXPECT_EQ(trash(item("2", "rep.tar.gz")), env.trash + "/files/rep.2.tar.gz");
    EXPECT_EQ(trash(item("3", "rep.tar.gz")), env.trash + "/files/rep.3.tar.gz");
    struct stat st{};
    ASSERT_EQ(::stat(env.trash.c_str(), &st), 0);
}

TEST_F(FreedesktopTrashTest, LinksAreMovedAsLinks) {
    const std::string target = item("t", "target.txt", "kept");
    makeFolders(env.base + "/t/folder");
    ASSERT_EQ(::symlink(target.c_str(), (env.base + "/t/link").c_str()), 0);
    ASSERT_EQ(::symlink((env.base + "/t/folder").c_str(), (env.base + "/t/dirlink").c_str()), 0);
    ASSERT_EQ(::symlink("/nowhere/at/all", (env.base + "/t/dangling").c_str()), 0);

    EXPECT_EQ(trash(env.base + "/t/link"), env.trash + "/files/link");
    // A trailing slash names the link, not the folder it points at.
    EXPECT_EQ(trash(env.base + "/t/dirlink/"), env.trash + "/files/dirlink");
    EXPECT_EQ(trash(env.base + "/t/dangling"), env.trash + "/files/dangling");

    EXPECT_EQ(linkTarget(env.trash + "/files/link"), target);
    EXPECT_EQ(linkTarget(env.trash + "/files/dirlink"), env.base + "/t/folder");
    EXPECT_EQ(linkTarget(env.trash + "/files/dangling"), "/nowhere/at/all");
    EXPECT_EQ(readText(target), "kept");
    EXPECT_TRUE(exists(env.base + "/t/folder"));

    // Erasing the links leaves what they point at.
    const auto gone = quorv::host().trash->erase({env.trash + "/files/link", env.trash + "/files/dirlink"});
    EXPECT_EQ(gone.size(), 2u);
    EXPECT_EQ(readText(target), "kept");
    EXPECT_TRUE(exists(env.base + "/t/folder"));
}

TEST_F(FreedesktopTrashTest, RefusesWithASentence) {
    trash(item("x", "in.txt"));
    makeFolders(env.base + "/x/.local");
    struct Case {
        std::string path;
        std::string sentence;
    };
    const std::vector<Case> cases = {
        {env.base + "/x/missing", "It no longer exists."},
        {env.base + "/nofolder/missing", "It no longer exists."},
        {env.trash, "It is already in the Trash."},
        {env.trash + "/files/in.txt", "It is already in the Trash."},
        {env.home + "/.local/share", "The Trash is inside it."},
        {env.home, "The Trash is inside it."},
        {"relative/path", "It couldn't be moved to the Trash."},
        {"/", "It couldn't be moved to the Trash."},
        {env.base + "/x/..", "It couldn't be moved to the Trash."},
    };
    for (const auto& c : cases) EXPECT_EQ(refused(c.path), c.sentence) << c.path;
    EXPECT_TRUE(exists(env.trash + "/files/in.txt"));
}

TEST_F(FreedesktopTrashTest, ListsItemsWithBrokenOrMissingInfo) {
    makeFolders(env.trash + "/files");
    makeFolders(env.trash + "/info");
    writeBytes(env.trash + "/files/no-info", "");
    writeBytes(env.trash + "/files/garbage", "");
    writeBytes(env.trash + "/info/garbage.trashinfo", std::string("\x00\xff[Trash", 8));
    writeBytes(env.trash + "/files/relative", "");
    writeBytes(env.trash + "/info/relative.trashinfo", "[Trash Info]\nPath=not/absolute\nDeletionDate=2026-09-21T19:43:20\n");
    writeBytes(env.trash + "/files/good", "");
    writeBytes(env.trash + "/info/good.trashinfo", "[Trash Info]\nPath=/was/here%0A\nDeletionDate=2026-09-21T19:43:21\n");
    writeBytes(env.trash + "/info/orphan.trashinfo", "[Trash Info]\nPath=/orphan\n");

    const auto items = listed();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].location, env.trash + "/files/garbage");
    EXPECT_EQ(items[0].originalPath, std::nullopt);
    EXPECT_EQ(items[0].dateAdded, std::nullopt);
    EXPECT_EQ(items[1].location, env.trash + "/files/good");
    EXPECT_EQ(items[1].originalPath, "/was/here\n");
    EXPECT_EQ(items[1].dateAdded, now + 1);
    EXPECT_EQ(items[2].location, env.trash + "/files/no-info");
    EXPECT_EQ(items[2].dateAdded, std::nullopt);
    // A relative Path means nothing in the home Trash; the date still counts.
    EXPECT_EQ(items[3].location, env.trash + "/files/relative");
    EXPECT_EQ(items[3].originalPath, std::nullopt);
    EXPECT_EQ(items[3].dateAdded, now);
}

TEST(FreedesktopTrashMounts, ListsTheTrashesOfMountedVolumes) {
    // The host's root holds a made-up mountinfo: its mount points are system paths under that root.
    LinuxTrashHost env(now);
    const std::string root = env.base;
    quorv::HostScope scope(env.host);
    TimeZoneScope zone(kolkata);
    writeBytes(root + "/proc/self/mountinfo",
               "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
               "30 22 0:5 / /proc rw - proc proc rw\n"
               "31 22 8:2 / /vol rw shared:1 - ext4 /dev/sdb1 rw\n"
               "32 22 8:3 / /vol\\040two rw - vfat /dev/sdc1 rw\n"
               "33 22 8:4 / /vol3 rw - ext4 /dev/sdd1 rw\n"
               "34 22 8:5 / /vol4 rw - ext4 /dev/sde1 rw\n"
               "35 22 8:6 / /vol rw - ext4 /dev/sdb1 rw\n"
               "36 22 0:50 / /net rw - nfs4 server:/export rw\n"
               "garbage line\n");
    const std::string info = "[Trash Info]\nPath=sub/rel%20x\nDeletionDate=2026-09-21T19:43:20\n";
    // /vol: its own .Trash-0 with a relative Path.
    makeFolders(root + "/vol/.Trash-0/files");
    makeFolders(root + "/vol/.Trash-0/info");
    writeBytes(root + "/vol/.Trash-0/files/rel x", "");
    writeBytes(root + "/vol/.Trash-0/info/rel x.trashinfo", info);
    // "/vol two": the shared sticky .Trash with a folder per user.
    makeFolders(root + "/vol two/.Trash/0/files");
    ASSERT_EQ(::chmod((root + "/vol two/.Trash").c_str(), 01777), 0);
    writeBytes(root + "/vol two/.Trash/0/files/shared", "");
    // /vol3: .Trash-0 is a link, /vol4: .Trash without the sticky bit: neither is read.
    makeFolders(root + "/elsewhere/files");
    writeBytes(root + "/elsewhere/files/planted", "");
    makeFolders(root + "/vol3");
    ASSERT_EQ(::symlink((root + "/elsewhere").c_str(), (root + "/vol3/.Trash-0").c_str()), 0);
    makeFolders(root + "/vol4/.Trash/0/files");
    writeBytes(root + "/vol4/.Trash/0/files/unsafe", "");
    // Pseudo and network file systems are never looked into.
    makeFolders(root + "/proc/.Trash-0/files");
    writeBytes(root + "/proc/.Trash-0/files/pseudo", "");
    makeFolders(root + "/net/.Trash-0/files");
    writeBytes(root + "/net/.Trash-0/files/remote", "");

    const auto items = listed();
    std::vector<std::string> locations;
    for (const auto& i : items) locations.push_back(i.location);
    EXPECT_EQ(locations, (std::vector<std::string>{root + "/vol/.Trash-0/files/rel x",
                                                   root + "/vol two/.Trash/0/files/shared"}));
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].originalPath, root + "/vol/sub/rel x");
    EXPECT_EQ(items[0].dateAdded, now);
    EXPECT_EQ(items[1].originalPath, std::nullopt);

    auto& trash = *quorv::host().trash;
    EXPECT_TRUE(trash.isInTrash(root + "/vol/.Trash-0/files/rel x"));
    EXPECT_EQ(trash.erase({root + "/vol/.Trash-0/files/rel x", root + "/vol3/.Trash-0/files/planted"}),
              std::vector<std::string>{root + "/vol/.Trash-0/files/rel x"});
    EXPECT_FALSE(exists(root + "/vol/.Trash-0/info/rel x.trashinfo"));
    EXPECT_TRUE(exists(root + "/elsewhere/files/planted"));
}

TEST_F(FreedesktopTrashTest, EraseDeletesTreesAndBookkeepingWithoutFollowingLinks) {
    const std::string outside = item("outside", "precious.txt", "precious");
    makeFolders(env.base + "/proj/deep/er/still");
    writeBytes(env.base + "/proj/deep/er/still/file", "x");
    writeBytes(env.base + "/proj/top.txt", "x");
    ASSERT_EQ(::symlink(outside.c_str(), (env.base + "/proj/deep/link").c_str()), 0);
    ASSERT_EQ(::symlink((env.base + "/outside").c_str(), (env.base + "/proj/dirlink").c_str()), 0);
    // Read-only folders, as module caches leave them.
    ASSERT_EQ(::chmod((env.base + "/proj/deep/er").c_str(), 0555), 0);
    ASSERT_EQ(::chmod((env.base + "/proj/deep/er/still").c_str(), 0), 0);
    const auto location = trash(env.base + "/proj");
    const auto other = trash(item("x", "other"));
    ASSERT_TRUE(location && other);
    writeBytes(env.trash + "/directorysizes", "4096 1790000000 proj\n12 1790000000 pro%20j\n8 1 other\n");

    auto& trash = *quorv::host().trash;
    const auto gone = trash.erase({*location, env.base + "/outside/precious.txt", env.trash + "/files/missing"});
    EXPECT_EQ(gone, (std::vector<std::string>{*location, env.trash + "/files/missing"}));
    EXPECT_FALSE(exists(*location));
    EXPECT_FALSE(exists(env.trash + "/info/proj.trashinfo"));
    EXPECT_EQ(readText(outside), "precious");
    EXPECT_EQ(readText(env.trash + "/directorysizes"), "12 1790000000 pro%20j\n8 1 other\n");
    EXPECT_TRUE(exists(*other));
    EXPECT_TRUE(exists(env.trash + "/info/other.trashinfo"));
    ASSERT_EQ(listed().size(), 1u);
}

TEST_F(FreedesktopTrashTest, EraseEmptiesReadOnlyAndLockedFolders) {
    // A Go module cache: read-only folders; and a folder nobody may even read.
    makeFolders(env.base + "/cache/mod@v1/sub");
    writeBytes(env.base + "/cache/mod@v1/sub/go.mod", "module x");
    writeBytes(env.base + "/cache/mod@v1/a.go", "package x");
    makeFolders(env.base + "/cache/locked/inner");
    writeBytes(env.base + "/cache/locked/inner/secret", "s");
    for (const char* f : {"/cache/mod@v1/sub", "/cache/mod@v1", "/cache/locked/inner"}) {
        ASSERT_EQ(::chmod((env.base + f).c_str(), 0555), 0);
    }
    ASSERT_EQ(::chmod((env.base + "/cache/locked").c_str(), 0), 0);
    const auto location = trash(env.base + "/cache");
    ASSERT_TRUE(location);
    std::vector<std::string> gone;
    const bool ran = withoutFileOverrides([&] {
        quorv::HostScope inner(env.host);
        gone = quorv::host().trash->erase({*location});
    });
    if (!ran) GTEST_SKIP() << "cannot give up root's permission override here";
    EXPECT_EQ(gone, std::vector<std::string>{*location});
    EXPECT_FALSE(exists(*location));
}

TEST_F(FreedesktopTrashTest, ForgetRestoredDropsOnlyWhatLeft) {
    const auto gone = trash(item("r", "back.txt"));
    const auto stays = trash(item("r", "stays.txt"));
    makeFolders(env.trash + "/files/dir");
    writeBytes(env.trash + "/directorysizes", "1 2 dir\n3 4 other\n");
    ASSERT_TRUE(gone && stays);
    ASSERT_EQ(::rename(gone->c_str(), (env.base + "/r/back.txt").c_str()), 0);
    ASSERT_EQ(::rename((env.trash + "/files/dir").c_str(), (env.base + "/r/dir").c_str()), 0);

    auto& trash = *quorv::host().trash;
    trash.forgetRestored(*gone);
    trash.forgetRestored(*stays);
    trash.forgetRestored(env.trash + "/files/dir");
    trash.forgetRestored(env.base + "/r/back.txt");  // not in a Trash: nothing happens
    EXPECT_FALSE(exists(env.trash + "/info/back.txt.trashinfo"));
    EXPECT_TRUE(exists(env.trash + "/info/stays.txt.trashinfo"));
    EXPECT_EQ(readText(env.trash + "/directorysizes"), "3 4 other\n");
    EXPECT_TRUE(exists(env.base + "/r/back.txt"));
    ASSERT_EQ(listed().size(), 1u);
}

TEST_F(FreedesktopTrashTest, KnowsItsTrashFolders) {
    auto& trash = *quorv::host().trash;
    struct Case {
        std::string location;
        bool inTrash;
    };
    const std::vector<Case> cases = {
        {env.trash + "/files/x", true},
        {env.trash + "/files/x/", true},
        {env.trash + "/files/x/inner", false},
        {env.trash + "/info/x.trashinfo", false},
        {env.trash + "/files", false},
        {"/media/usb/.Trash-0/files/x", true},
        {"/media/usb/.Trash/0/files/x", true},
        {"/media/usb/.Trash-1000/files/x", false},
        {"/media/usb/.Trash/1000/files/x", false},
        {"/media/usb/Trash/files/x", false},
        {"/home/other/.local/share/Trash/files/x", false},
        {"files/x", false},
    };
    for (const auto& c : cases) EXPECT_EQ(trash.isInTrash(c.location), c.inTrash) << c.location;
}

TEST(FreedesktopTrashOtherDisk, UsesTheVolumesOwnTrashOrRefuses) {
    LinuxTrashHost env(now);
    quorv::HostScope scope(env.host);
    TimeZoneScope zone(kolkata);
    const std::string vol = env.base + "/vol";
    TmpfsMount mount(vol);
    if (!mount.mounted()) GTEST_SKIP() << "mounting a tmpfs is not allowed here";
    env.mounts({"/vol"}, "tmpfs");
    auto& trash = *quorv::host().trash;
    std::string error;

    // No .Trash: a .Trash-$uid of our own, made 0700, Path relative to the volume's top.
    makeFolders(vol + "/sub");
    writeBytes(vol + "/sub/doc.txt", "doc");
    EXPECT_EQ(trash.moveToTrash(vol + "/sub/doc.txt", error), vol + "/.Trash-0/files/doc.txt") << error;
    EXPECT_EQ(readText(vol + "/.Trash-0/info/doc.txt.trashinfo"),
              "[Trash Info]\nPath=sub/doc.txt\nDeletionDate=2026-09-21T19:43:20\n");
    struct stat st{};
    ASSERT_EQ(::lstat((vol + "/.Trash-0").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    EXPECT_FALSE(exists(env.trash + "/files/doc.txt"));  // never copied home
    auto items = listed();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].location, vol + "/.Trash-0/files/doc.txt");
    EXPECT_EQ(items[0].originalPath, vol + "/sub/doc.txt");
    EXPECT_EQ(items[0].dateAdded, now);

    // A sticky .Trash takes precedence: its folder for our uid.
    ASSERT_EQ(::mkdir((vol + "/.Trash").c_str(), 01777), 0);
    ASSERT_EQ(::chmod((vol + "/.Trash").c_str(), 01777), 0);
    writeBytes(vol + "/b.txt", "b");
    EXPECT_EQ(trash.moveToTrash(vol + "/b.txt", error), vol + "/.Trash/0/files/b.txt") << error;
    EXPECT_EQ(readText(vol + "/.Trash/0/info/b.txt.trashinfo"),
              "[Trash Info]\nPath=b.txt\nDeletionDate=2026-09-21T19:43:20\n");
    EXPECT_EQ(listed().size(), 2u);

    // Unsafe Trashes: .Trash not sticky and .Trash-0 a link, or .Trash-0 someone else's.
    ASSERT_EQ(::chmod((vol + "/.Trash").c_str(), 0777), 0);
    ASSERT_EQ(::rename((vol + "/.Trash-0").c_str(), (vol + "/old").c_str()), 0);
    ASSERT_EQ(::symlink((vol + "/old").c_str(), (vol + "/.Trash-0").c_str()), 0);
    writeBytes(vol + "/c.txt", "c");
    EXPECT_EQ(trash.moveToTrash(vol + "/c.txt", error), std::nullopt);
    EXPECT_EQ(error, otherDisk);
    ASSERT_EQ(::unlink((vol + "/.Trash-0").c_str()), 0);
    ASSERT_EQ(::mkdir((vol + "/.Trash-0").c_str(), 0700), 0);
    ASSERT_EQ(::chown((vol + "/.Trash-0").c_str(), 4321, 4321), 0);
    EXPECT_EQ(trash.moveToTrash(vol + "/c.txt", error), std::nullopt);
    EXPECT_EQ(error, otherDisk);
    EXPECT_EQ(readText(vol + "/c.txt"), "c");
    EXPECT_FALSE(exists(env.trash + "/files/c.txt"));

    // The mount point itself can't be moved anywhere.
    EXPECT_EQ(trash.moveToTrash(vol, error), std::nullopt);
    EXPECT_EQ(error, "It couldn't be moved to the Trash.");
}

// ---- the sandbox Mac's Trash

class SandboxTrashTest : public ::testing::Test {
protected:
    SandboxHost sandbox{1'789'999'531};  // 2026-09-21 14:05:31 UTC, the sandbox's calendar zone
    quorv::HostScope scope{sandbox.host};
    std::string trashFolder = sandbox.mac.path("~/.Trash");

    std::optional<std::string> trash(const std::string& path) {
        std::string error;
        auto location = quorv::host().trash->moveToTrash(path, error);
        EXPECT_TRUE(location) << error;
        return location;
    }
};

TEST_F(SandboxTrashTest, FinderNamesAndTheLedger) {
    const std::string hostileName = "line\nfeed \xff%";
    const std::string a = sandbox.mac.writeFile("~/Documents/report.pdf", "a");
    const std::string b = sandbox.mac.writeFile("~/Desktop/report.pdf", "b");
    const std::string c = sandbox.mac.writeFile("~/Downloads/report.pdf", "c");
    const std::string d = sandbox.mac.makeFolder("~/Documents/Photos");
    const std::string e = sandbox.mac.makeFolder("~/Desktop/Photos");
    const std::string hostile = sandbox.mac.writeFile(std::string("~/Desktop/") + hostileName, "h");
    EXPECT_EQ(trash(a), trashFolder + "/report.pdf");
    EXPECT_EQ(trash(b), trashFolder + "/report 14.05.31.pdf");
    sandbox.setNow(1'789'999'532);
    EXPECT_EQ(trash(c), trashFolder + "/report 14.05.32.pdf");
    EXPECT_EQ(trash(d), trashFolder + "/Photos");
    EXPECT_EQ(trash(e), trashFolder + "/Photos 14.05.32");
    EXPECT_EQ(trash(hostile), trashFolder + "/" + hostileName);
    EXPECT_EQ(readText(trashFolder + "/report 14.05.31.pdf"), "b");

    auto items = listed();
    ASSERT_EQ(items.size(), 6u);  // the ledger and its lock are not items
    std::map<std::string, std::pair<std::string, double>> expected = {
        {trashFolder + "/report.pdf", {a, 1'789'999'531}},
        {trashFolder + "/report 14.05.31.pdf", {b, 1'789'999'531}},
        {trashFolder + "/report 14.05.32.pdf", {c, 1'789'999'532}},
        {trashFolder + "/Photos", {d, 1'789'999'532}},
        {trashFolder + "/Photos 14.05.32", {e, 1'789'999'532}},
        {trashFolder + "/" + hostileName, {hostile, 1'789'999'532}},
    };
    for (const auto& i : items) {
        ASSERT_TRUE(expected.count(i.location)) << i.location;
        EXPECT_EQ(i.originalPath, expected[i.location].first);
        EXPECT_EQ(i.dateAdded, expected[i.location].second);
    }

    // A third clash in the same second gets " 2".
    sandbox.setNow(1'789'999'531);
    const std::string f = sandbox.mac.writeFile("~/Music/report.pdf", "f");
    EXPECT_EQ(trash(f), trashFolder + "/report 14.05.31 2.pdf");
}

TEST_F(SandboxTrashTest, ItemsWithoutALedgerEntryUseTheirChangeTime) {
    const std::string a = sandbox.mac.writeFile("~/Documents/a.txt", "a");
    ASSERT_TRUE(trash(a));
    // Finder (or anyone) put this one there; and a.txt was swapped for another file meanwhile.
    sandbox.mac.writeFile("~/.Trash/by-hand.txt", "x");
    ASSERT_EQ(::unlink((trashFolder + "/a.txt").c_str()), 0);
    sandbox.mac.writeFile("~/.Trash/a.txt", "not the same file");
    for (const auto& i : listed()) {
        struct stat st{};
        ASSERT_EQ(::lstat(i.location.c_str(), &st), 0);
        EXPECT_EQ(i.originalPath, std::nullopt) << i.location;
        ASSERT_TRUE(i.dateAdded);
        EXPECT_NEAR(*i.dateAdded, static_cast<double>(st.st_ctim.tv_sec) + st.st_ctim.tv_nsec / 1e9, 1e-6);
    }
}

TEST_F(SandboxTrashTest, EraseAndForgetKeepTheLedgerTidy) {
    const std::string folder = sandbox.mac.makeFolder("~/Library/Caches/big");
    sandbox.mac.writeFile("~/Library/Caches/big/inner/file", "x");
    const std::string keep = sandbox.mac.writeFile("~/Documents/keep.txt", "k");
    const std::string back = sandbox.mac.writeFile("~/Documents/back.txt", "b");
    const auto bigIn = trash(folder);
    const auto keepIn = trash(keep);
    const auto backIn = trash(back);
    ASSERT_TRUE(bigIn && keepIn && backIn);
    auto& t = *quorv::host().trash;
    EXPECT_TRUE(t.isInTrash(*bigIn));
    EXPECT_FALSE(t.isInTrash(trashFolder + "/.brimstell-trash.json"));
    EXPECT_FALSE(t.isInTrash(*bigIn + "/inner"));

    EXPECT_EQ(t.erase({*bigIn, keep, trashFolder + "/.brimstell-trash.json"}), std::vector<std::string>{*bigIn});
    EXPECT_FALSE(exists(*bigIn));
    EXPECT_TRUE(exists(trashFolder + "/.brimstell-trash.json"));
    ASSERT_EQ(::rename(backIn->c_str(), back.c_str()), 0);
    t.forgetRestored(*backIn);
    t.forgetRestored(*keepIn);  // still there: kept
    const std::string ledger = readText(trashFolder + "/.brimstell-trash.json");
    EXPECT_EQ(ledger.find("big"), std::string::npos) << ledger;
    EXPECT_EQ(ledger.find("back.txt"), std::string::npos) << ledger;
    const auto items = listed();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].originalPath, keep);
}

TEST_F(SandboxTrashTest, RefusesItemsOnAnotherDisk) {
    const std::string volume = sandbox.mac.path("/Volumes/USB");
    TmpfsMount mount(volume);
    if (!mount.mounted()) GTEST_SKIP() << "mounting a tmpfs is not allowed here";
    writeBytes(volume + "/movie.mov", "m");
    std::string error;
    EXPECT_EQ(quorv::host().trash->moveToTrash(volume + "/movie.mov", error), std::nullopt);
    EXPECT_EQ(error, otherDisk);
    EXPECT_EQ(readText(volume + "/movie.mov"), "m");
    EXPECT_TRUE(listed().empty());
}

// ---- TrashBin over any backend

// A Trash that lists what it is given and erases by deleting the files.
class ListedTrash : public quorv::TrashBackend {
public:
    std::vector<quorv::TrashedItem> items;
    std::vector<std::string> erased;
    std::optional<std::string> moveToTrash(const std::string&, std::string& error) override {
        error = "no";
        return std::nullopt;
    }
    std::vector<quorv::TrashedItem> list() override { return items; }
    std::vector<std::string> erase(const std::vector<std::string>& locations) override {
        std::vector<std::string> gone;
        for (const auto& l : locations) {
            erased.push_back(l);
            if (::unlink(l.c_str()) == 0) gone.push_back(l);
        }
        return gone;
    }
    void forgetRestored(const std::string&) override {}
    bool isInTrash(const std::string&) override { return true; }
};

TEST(TrashBinTest, OlderThanCountsWholeDaysBackFromNow) {
    constexpr double day = 86400;
    struct Case {
        std::optional<double> added;
        int days;
        bool old;
    };
    const std::vector<Case> cases = {
        {now - 30 * day, 30, false},  // exactly 30 days old: not older
        {now - 30 * day - 1, 30, true},
        {now - 30 * day - 0.001, 30, true},
        {now - 30 * day + 1, 30, false},
        {now - 400 * day, 30, true},
        {std::nullopt, 30, false},    // no date: never chosen
        {std::nullopt, 0, false},
        {now - 1, 0, true},
        {now, 0, false},
        {now + 5 * day, 0, false},    // from the future
        {now - 400 * day, -1, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TrashBin::isOlderThan(c.added, c.days, now), c.old)
            << (c.added ? std::to_string(now - *c.added) : "none") << " days " << c.days;
    }
}

TEST(TrashBinTest, EmptiesOnlyOldItemsAndCountsWhatItFreed) {
    TempDir dir;
    auto h = quorv::hostFromEnvironment({{"HOME", dir.path()}});
    auto trash = std::make_shared<ListedTrash>();
    h->trash = trash;
    h->clock = [] { return now; };
    quorv::HostScope scope(h);
    const std::string folder = dir / "big";
    makeFolders(folder);
    writeBytes(folder + "/inside", std::string(100000, 'x'));
    writeBytes(dir / "old", std::string(50000, 'o'));
    writeBytes(dir / "boundary", std::string(20000, 'b'));
    writeBytes(dir / "undated", std::string(30000, 'u'));
    const std::int64_t folderSize = brimstell::FS::size(folder), oldSize = brimstell::FS::size(dir / "old");
    ASSERT_GT(oldSize, 0);
    trash->items = {
        {folder, "/was/big", now - 31 * 86400.0},
        {dir / "old", std::nullopt, now - 30 * 86400.0 - 1},
        {dir / "boundary", "/was/boundary", now - 30 * 86400.0},
        {dir / "undated", "/was/undated", std::nullopt},
    };

    const auto all = TrashBin::items();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].size, folderSize);
    EXPECT_EQ(all[0].originalPath, "/was/big");
    EXPECT_EQ(TrashBin::totalSize(), folderSize + oldSize + brimstell::FS::size(dir / "boundary") +
                                         brimstell::FS::size(dir / "undated"));
    const auto old = TrashBin::olderThan(30, now);
    ASSERT_EQ(old.size(), 2u);
    EXPECT_EQ(old[0].location, folder);
    EXPECT_EQ(old[1].location, dir / "old");

    // The folder can't be unlinked by this Trash: only what is gone counts as freed.
    EXPECT_EQ(TrashBin::emptyOlderThan(30), oldSize);
    EXPECT_EQ(trash->erased, (std::vector<std::string>{folder, dir / "old"}));
    EXPECT_TRUE(exists(dir / "boundary"));
    EXPECT_TRUE(exists(dir / "undated"));
    EXPECT_TRUE(TrashBin::deleteForGood({}).empty());
}

TEST(TrashBinTest, NoBackendIsAnEmptyTrash) {
    auto h = quorv::hostFromEnvironment({});
    h->trash = nullptr;
    quorv::HostScope scope(h);
    EXPECT_TRUE(TrashBin::items().empty());
    EXPECT_EQ(TrashBin::totalSize(), 0);
    EXPECT_EQ(TrashBin::emptyOlderThan(0), 0);
    EXPECT_TRUE(TrashBin::deleteForGood({"/x"}).empty());
}

TEST(TrashBinTest, SandboxMacEndToEnd) {
    SandboxHost sandbox;
    quorv::HostScope scope(sandbox.host);
    const std::string a = sandbox.mac.writeFileOfSize("~/Downloads/old.dmg", 64 * 1024);
    const std::string b = sandbox.mac.writeFileOfSize("~/Downloads/new.dmg", 32 * 1024);
    std::string error;
    ASSERT_TRUE(quorv::host().trash->moveToTrash(a, error)) << error;
    sandbox.setNow(sandbox.now + 10 * 86400.0);
    ASSERT_TRUE(quorv::host().trash->moveToTrash(b, error)) << error;
    sandbox.setNow(sandbox.now + 20 * 86400.0 + 1);  // a: 30 days and a second, b: 20 days
    EXPECT_EQ(TrashBin::items().size(), 2u);
    EXPECT_EQ(TrashBin::emptyOlderThan(30), 64 * 1024);
    const auto left = TrashBin::items();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].originalPath, b);
    EXPECT_EQ(left[0].size, 32 * 1024);
}

}  // namespace
