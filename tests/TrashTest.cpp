// The Trash backends (freedesktop.org, sandbox Mac) and TrashBin over them: hostile names, name
// clashes, the exclusive .trashinfo, links, other mounts, list/erase/restore round trips, dates.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kit/files/FS.hpp"
#include "kit/files/TrashBin.hpp"
#include "kit/files/TrashInfo.hpp"
#include "kit/files/TrashNames.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using brimstell::TrashBin;
using brimstell::TrashInfo;
using brimstell::TrashNames;
using namespace testing_support;

constexpr double now = 1'790'000'000;  // 2026-09-21 14:13:20 UTC, 19:43:20 in Kolkata
constexpr const char* otherDisk = "It is on another disk whose Trash can't be used.";

using Originals = std::map<std::string, std::optional<std::string>>;  // location -> where it was
Originals originals() {
    Originals out;
    for (const auto& i : quorv::host().trash->list()) out[i.location] = i.originalPath;
    return out;
}

// The sentence the current host's Trash refuses path with.
std::string refused(const std::string& path) {
    std::string error;
    EXPECT_EQ(quorv::host().trash->moveToTrash(path, error), std::nullopt) << path;
    return error;
}

// Makes the folders above path, then writes it.
void writeWithFolders(const std::string& path, const std::string& content = "") {
    makeFolders(path.substr(0, path.rfind('/')));
    writeBytes(path, content);
}

// ---- the texts a freedesktop.org Trash keeps

// Encoding is checked end to end by the round trips below; these are what other tools may write.
TEST(TrashInfoText, ParsesWhatTrashToolsWrite) {
    quorv::Calendar utc;
    utc.utc = true;
    const struct {
        const char* text;
        std::optional<std::string> path;
        std::optional<double> date;
    } cases[] = {
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
        {"[Trash Info]\nPath=/a%e2%82%ac\n", "/a€", std::nullopt},  // lower-case escapes
        {"[Trash Info]\nPath=/a%2\n", std::nullopt, std::nullopt},
        {"[Trash Info]\nPath=/a%\n", std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        const TrashInfo info = TrashInfo::parse(c.text, utc);
        EXPECT_EQ(info.path, c.path) << c.text;
        EXPECT_EQ(info.deletionDate, c.date) << c.text;
    }
}

// ---- names in a Trash

TEST(TrashNamesTest, NumberedAndCutToFit) {
    const std::string a255(255, 'a'), x255 = std::string(251, 'x') + ".txt", e252 = "a." + std::string(250, 'e');
    std::string umlauts;
    for (int i = 0; i < 127; ++i) umlauts += "ä";  // 254 bytes
    const struct {
        bool finder;
        std::string name;
        int n;
        std::string expected;
    } cases[] = {
        {false, "rep.tar.gz", 2, "rep.2.tar.gz"}, {false, "notes", 2, "notes.2"}, {false, ".bashrc", 2, ".bashrc.2"},
        {false, a255, 1, std::string(245, 'a')},
        {false, a255, 2, std::string(243, 'a') + ".2"},
        {false, x255, 12, std::string(238, 'x') + ".12.txt"},
        {false, umlauts + "b", 1, umlauts.substr(0, 244)},  // 122 whole "ä", never half of one
        {false, e252, 2, e252.substr(0, 243) + ".2"},
        {true, "archive.tar.gz", 2, "archive.tar 14.05.31.gz"}, {true, ".profile", 2, ".profile 14.05.31"},
        {true, "trailing.", 2, "trailing. 14.05.31"},
        {true, a255, 2, std::string(246, 'a') + " 14.05.31"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.finder ? TrashNames::finder(c.name, "14.05.31", c.n, 255) : TrashNames::freedesktop(c.name, c.n, 245),
                  c.expected)
            << c.name.substr(0, 20) << " " << c.n;
    }
}

// ---- the freedesktop.org Trash

using FreedesktopTrashTest = LinuxTrashTest;

TEST_F(FreedesktopTrashTest, HostileNamesSurviveTheRoundTrip) {
    const std::pair<std::string, std::string> names[] = {  // the name and its .trashinfo's Path
        {"plain.txt", "plain.txt"},           {"line\nfeed", "line%0Afeed"},
        {"tab\there", "tab%09here"},          {"100%.txt", "100%25.txt"},
        {"not utf8 \xff\xfe", "not%20utf8%20%FF%FE"}, {"Grüße", "Gr%C3%BC%C3%9Fe"},
        {"a\\b", "a%5Cb"},                   {" leading space", "%20leading%20space"},
        {"[x]=y;#?&+", "%5Bx%5D%3Dy%3B%23%3F%26%2B"},
    };
    Originals want;
    for (const auto& [name, encoded] : names) {
        const std::string original = item("docs", name, name);
        const auto location = trash(original);
        ASSERT_EQ(location, env.trash + "/files/" + name);
        EXPECT_FALSE(exists(original));
        EXPECT_EQ(readText(*location), name);
        EXPECT_EQ(readText(env.trash + "/info/" + name + ".trashinfo"), "[Trash Info]\nPath=" + TrashInfo::percentEncode(env.base) + "/docs/" + encoded +
                                  "\nDeletionDate=2026-09-21T19:43:20\n");
        EXPECT_TRUE(quorv::host().trash->isInTrash(*location));
        want[*location] = original;
    }
    EXPECT_EQ(originals(), want);
    for (const auto& i : listed()) EXPECT_EQ(i.dateAdded, now) << i.location;
}

TEST_F(FreedesktopTrashTest, ClashesAreNumberedLongNamesCutAndTheInfoClaimedExclusively) {
    const std::string longName = std::string(251, 'x') + ".txt";  // 255 bytes
    const std::string first = env.trash + "/files/" + std::string(241, 'x') + ".txt";
    const std::string second = env.trash + "/files/" + std::string(239, 'x') + ".2.txt";
    EXPECT_EQ(trash(item("a", longName)), first);
    EXPECT_EQ(trash(item("b", longName)), second);
    EXPECT_TRUE(exists(env.trash + "/info/" + std::string(241, 'x') + ".txt.trashinfo"));
    EXPECT_EQ(originals(), (Originals{{first, env.base + "/a/" + longName}, {second, env.base + "/b/" + longName}}));

    // A .trashinfo nobody wrote for us already holds "a.txt"; a stray item holds "b.txt".
    writeWithFolders(env.trash + "/info/a.txt.trashinfo", "keep me");
    writeWithFolders(env.trash + "/files/b.txt", "stray");

    EXPECT_EQ(trash(item("1", "a.txt")), env.trash + "/files/a.2.txt");
    EXPECT_EQ(readText(env.trash + "/info/a.txt.trashinfo"), "keep me");
    EXPECT_FALSE(exists(env.trash + "/files/a.txt"));
    EXPECT_EQ(trash(item("2", "a.txt")), env.trash + "/files/a.3.txt");

    EXPECT_EQ(trash(item("1", "b.txt", "mine")), env.trash + "/files/b.2.txt");
    EXPECT_EQ(readText(env.trash + "/files/b.txt"), "stray");
    EXPECT_FALSE(exists(env.trash + "/info/b.txt.trashinfo"));  // claimed, then given back
    EXPECT_EQ(readText(env.trash + "/files/b.2.txt"), "mine");
}

TEST_F(FreedesktopTrashTest, LinksAreMovedAsLinks) {
    const std::string target = item("t", "target.txt", "kept"), folder = env.base + "/t/folder";
    makeFolders(folder);
    const struct {
        std::string name, target, given;
    } links[] = {
        {"link", target, "link"},
        {"dirlink", folder, "dirlink/"},  // a trailing slash names the link, not the folder it points at
        {"dangling", "/nowhere/at/all", "dangling"},
    };
    for (const auto& l : links) {
        ASSERT_EQ(::symlink(l.target.c_str(), (env.base + "/t/" + l.name).c_str()), 0);
        EXPECT_EQ(trash(env.base + "/t/" + l.given), env.trash + "/files/" + l.name);
        std::error_code ec;
        EXPECT_EQ(std::filesystem::read_symlink(env.trash + "/files/" + l.name, ec).string(), l.target);
    }
    // Erasing the links leaves what they point at.
    EXPECT_EQ(quorv::host().trash->erase({env.trash + "/files/link", env.trash + "/files/dirlink"}).size(), 2u);
    EXPECT_EQ(readText(target), "kept");
    EXPECT_TRUE(exists(folder));
}

TEST_F(FreedesktopTrashTest, RefusesWithASentence) {
    trash(item("x", "in.txt"));
    makeFolders(env.base + "/x/.local");
    const std::pair<std::string, const char*> cases[] = {
        {env.base + "/x/missing", "It no longer exists."}, {env.base + "/nofolder/missing", "It no longer exists."},
        {env.trash, "It is already in the Trash."},       {env.trash + "/files/in.txt", "It is already in the Trash."},
        {env.home + "/.local/share", "The Trash is inside it."}, {env.home, "The Trash is inside it."},
        {"relative/path", "It couldn't be moved to the Trash."}, {"/", "It couldn't be moved to the Trash."},
        {env.base + "/x/..", "It couldn't be moved to the Trash."},
    };
    for (const auto& [path, sentence] : cases) EXPECT_EQ(refused(path), sentence) << path;
    EXPECT_TRUE(exists(env.trash + "/files/in.txt"));
}

TEST_F(FreedesktopTrashTest, ListsItemsWithBrokenOrMissingInfo) {
    for (const char* name : {"no-info", "garbage", "relative", "good"}) writeWithFolders(env.trash + "/files/" + name);
    writeWithFolders(env.trash + "/info/garbage.trashinfo", std::string("\x00\xff[Trash", 8));
    writeBytes(env.trash + "/info/relative.trashinfo", "[Trash Info]\nPath=not/absolute\nDeletionDate=2026-09-21T19:43:20\n");
    writeBytes(env.trash + "/info/good.trashinfo", "[Trash Info]\nPath=/was/here%0A\nDeletionDate=2026-09-21T19:43:21\n");
    writeBytes(env.trash + "/info/orphan.trashinfo", "[Trash Info]\nPath=/orphan\n");
    const struct {
        const char* name;
        std::optional<std::string> original;
        std::optional<double> date;
    } want[] = {
        {"garbage", std::nullopt, std::nullopt},
        {"good", "/was/here\n", now + 1},
        {"no-info", std::nullopt, std::nullopt},
        {"relative", std::nullopt, now},  // a relative Path means nothing in the home Trash; the date counts
    };
    const auto items = listed();
    ASSERT_EQ(items.size(), std::size(want));
    for (std::size_t k = 0; k < items.size(); ++k) {
        EXPECT_EQ(items[k].location, env.trash + "/files/" + want[k].name);
        EXPECT_EQ(items[k].originalPath, want[k].original) << want[k].name;
        EXPECT_EQ(items[k].dateAdded, want[k].date) << want[k].name;
    }
}

TEST_F(FreedesktopTrashTest, ListsTheTrashesOfMountedVolumes) {
    const std::string root = env.base;  // the mount points below are system paths under it
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
    // Read: /vol's own .Trash-<uid> (relative Path) and "/vol two"'s sticky shared .Trash. Not read:
    // /vol3's .Trash-<uid>, a link; /vol4's .Trash, not sticky; pseudo and network file systems.
    for (const std::string& f : {"/vol" + env.ownTrash + "/files/rel x", "/vol two" + env.sharedTrash + "/files/shared",
                                 std::string("/elsewhere/files/planted"), "/vol4" + env.sharedTrash + "/files/unsafe",
                                 "/proc" + env.ownTrash + "/files/pseudo", "/net" + env.ownTrash + "/files/remote"}) {
        writeWithFolders(root + f);
    }
    writeWithFolders(root + "/vol" + env.ownTrash + "/info/rel x.trashinfo",
                     "[Trash Info]\nPath=sub/rel%20x\nDeletionDate=2026-09-21T19:43:20\n");
    ASSERT_EQ(::chmod((root + "/vol two/.Trash").c_str(), 01777), 0);
    makeFolders(root + "/vol3");
    ASSERT_EQ(::symlink((root + "/elsewhere").c_str(), (root + "/vol3" + env.ownTrash).c_str()), 0);

    EXPECT_EQ(originals(), (Originals{{root + "/vol" + env.ownTrash + "/files/rel x", root + "/vol/sub/rel x"},
                                      {root + "/vol two" + env.sharedTrash + "/files/shared", std::nullopt}}));
    ASSERT_FALSE(listed().empty());
    EXPECT_EQ(listed().front().dateAdded, now);
    auto& bin = *quorv::host().trash;
    EXPECT_TRUE(bin.isInTrash(root + "/vol" + env.ownTrash + "/files/rel x"));
    EXPECT_EQ(bin.erase({root + "/vol" + env.ownTrash + "/files/rel x", root + "/vol3" + env.ownTrash + "/files/planted"}),
              std::vector<std::string>{root + "/vol" + env.ownTrash + "/files/rel x"});
    EXPECT_FALSE(exists(root + "/vol" + env.ownTrash + "/info/rel x.trashinfo"));
    EXPECT_TRUE(exists(root + "/elsewhere/files/planted"));
}

TEST_F(FreedesktopTrashTest, EraseDeletesLockedTreesAndBookkeepingWithoutFollowingLinks) {
    const std::string outside = item("outside", "precious.txt", "precious");
    item("proj/deep/er/still", "file");
    item("proj", "top.txt");
    ASSERT_EQ(::symlink(outside.c_str(), (env.base + "/proj/deep/link").c_str()), 0);
    ASSERT_EQ(::symlink((env.base + "/outside").c_str(), (env.base + "/proj/dirlink").c_str()), 0);
    // A read-only folder, as module caches leave them, between two nobody may even read.
    ASSERT_EQ(::chmod((env.base + "/proj/deep/er/still").c_str(), 0), 0);
    ASSERT_EQ(::chmod((env.base + "/proj/deep/er").c_str(), 0555), 0);
    ASSERT_EQ(::chmod((env.base + "/proj/deep").c_str(), 0), 0);
    const auto location = trash(env.base + "/proj");
    const auto other = trash(item("x", "other"));
    ASSERT_TRUE(location && other);
    writeBytes(env.trash + "/directorysizes", "4096 1790000000 proj\n12 1790000000 pro%20j\n8 1 other\n");

    std::vector<std::string> gone;
    const auto erase = [&] {
        quorv::HostScope inner(env.host);
        gone = quorv::host().trash->erase({*location, env.base + "/outside/precious.txt", env.trash + "/files/missing"});
    };
    if (!withoutFileOverrides(erase)) erase();  // as root, where root can't give up its override
    EXPECT_EQ(gone, (std::vector<std::string>{*location, env.trash + "/files/missing"}));
    EXPECT_FALSE(exists(*location));
    EXPECT_FALSE(exists(env.trash + "/info/proj.trashinfo"));
    EXPECT_EQ(readText(outside), "precious");
    EXPECT_EQ(readText(env.trash + "/directorysizes"), "12 1790000000 pro%20j\n8 1 other\n");
    EXPECT_TRUE(exists(*other));
    EXPECT_TRUE(exists(env.trash + "/info/other.trashinfo"));
    EXPECT_EQ(listed().size(), 1u);
}

TEST_F(FreedesktopTrashTest, ForgetRestoredDropsOnlyWhatLeft) {
    const auto gone = trash(item("r", "back.txt"));
    const auto stays = trash(item("r", "stays.txt"));
    ASSERT_TRUE(gone && stays);
    makeFolders(env.trash + "/files/dir");
    writeBytes(env.trash + "/directorysizes", "1 2 dir\n3 4 other\n");
    ASSERT_EQ(::rename(gone->c_str(), (env.base + "/r/back.txt").c_str()), 0);
    ASSERT_EQ(::rename((env.trash + "/files/dir").c_str(), (env.base + "/r/dir").c_str()), 0);

    for (const auto& l : {*gone, *stays, env.trash + "/files/dir", env.base + "/r/back.txt"}) {
        quorv::host().trash->forgetRestored(l);  // the last is in no Trash: nothing happens
    }
    EXPECT_FALSE(exists(env.trash + "/info/back.txt.trashinfo"));
    EXPECT_TRUE(exists(env.trash + "/info/stays.txt.trashinfo"));
    EXPECT_EQ(readText(env.trash + "/directorysizes"), "3 4 other\n");
    EXPECT_TRUE(exists(env.base + "/r/back.txt"));
    EXPECT_EQ(listed().size(), 1u);
}

TEST_F(FreedesktopTrashTest, KnowsItsTrashFolders) {
    const std::string other = std::to_string(quorv::host().uid + 1);  // another user's
    const std::pair<std::string, bool> cases[] = {
        {env.trash + "/files/x", true},           {env.trash + "/files/x/", true},
        {env.trash + "/files/x/inner", false},   {env.trash + "/info/x.trashinfo", false},
        {env.trash + "/files", false},           {"/media/usb" + env.ownTrash + "/files/x", true},
        {"/media/usb" + env.sharedTrash + "/files/x", true},   {"/media/usb/.Trash-" + other + "/files/x", false},
        {"/media/usb/.Trash/" + other + "/files/x", false}, {"/media/usb/Trash/files/x", false},
        {"/home/other/.local/share/Trash/files/x", false}, {"files/x", false},
    };
    for (const auto& [location, inTrash] : cases) EXPECT_EQ(quorv::host().trash->isInTrash(location), inTrash) << location;
}

TEST_F(FreedesktopTrashTest, OtherDisksUseTheirOwnTrashOrRefuse) {
    const std::string vol = env.base + "/vol";
    TmpfsMount mount(vol);
    if (!mount.mounted()) GTEST_SKIP() << "mounting a tmpfs is not allowed here";
    env.mounts({"/vol"}, "tmpfs");

    // No .Trash: a .Trash-$uid of our own, made 0700, Path relative to the volume's top.
    writeWithFolders(vol + "/sub/doc.txt", "doc");
    EXPECT_EQ(trash(vol + "/sub/doc.txt"), vol + env.ownTrash + "/files/doc.txt");
    EXPECT_EQ(readText(vol + env.ownTrash + "/info/doc.txt.trashinfo"),
              "[Trash Info]\nPath=sub/doc.txt\nDeletionDate=2026-09-21T19:43:20\n");
    struct stat st{};
    ASSERT_EQ(::lstat((vol + env.ownTrash).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    EXPECT_FALSE(exists(env.trash + "/files/doc.txt"));  // never copied home
    // How a volume's Trash is listed is the mounted-volumes test's (it runs where no tmpfs can be mounted).

    // A sticky .Trash takes precedence: its folder for our uid.
    ASSERT_EQ(::mkdir((vol + "/.Trash").c_str(), 01777), 0);
    ASSERT_EQ(::chmod((vol + "/.Trash").c_str(), 01777), 0);
    writeBytes(vol + "/b.txt", "b");
    EXPECT_EQ(trash(vol + "/b.txt"), vol + env.sharedTrash + "/files/b.txt");
    EXPECT_EQ(readText(vol + env.sharedTrash + "/info/b.txt.trashinfo"),
              "[Trash Info]\nPath=b.txt\nDeletionDate=2026-09-21T19:43:20\n");

    // Unsafe Trashes: .Trash not sticky and .Trash-<uid> a link, or .Trash-<uid> someone else's.
    ASSERT_EQ(::chmod((vol + "/.Trash").c_str(), 0777), 0);
    ASSERT_EQ(::rename((vol + env.ownTrash).c_str(), (vol + "/old").c_str()), 0);
    ASSERT_EQ(::symlink((vol + "/old").c_str(), (vol + env.ownTrash).c_str()), 0);
    writeBytes(vol + "/c.txt", "c");
    EXPECT_EQ(refused(vol + "/c.txt"), otherDisk);
    ASSERT_EQ(::unlink((vol + env.ownTrash).c_str()), 0);
    ASSERT_EQ(::mkdir((vol + env.ownTrash).c_str(), 0700), 0);
    ASSERT_EQ(::chown((vol + env.ownTrash).c_str(), 4321, 4321), 0);
    EXPECT_EQ(refused(vol + "/c.txt"), otherDisk);
    EXPECT_EQ(readText(vol + "/c.txt"), "c");
    EXPECT_FALSE(exists(env.trash + "/files/c.txt"));

    // The mount point itself can't be moved anywhere.
    EXPECT_EQ(refused(vol), "It couldn't be moved to the Trash.");
}

// ---- the sandbox Mac's Trash

class SandboxTrashTest : public ::testing::Test {
protected:
    SandboxHost sandbox{1'789'999'531};  // 2026-09-21 14:05:31 UTC, the sandbox's calendar zone
    quorv::HostScope scope{sandbox.host};
    std::string trashFolder = sandbox.mac.path("~/.Trash");
};

TEST_F(SandboxTrashTest, FinderNamesAndTheLedger) {
    const std::string hostileName = "line\nfeed \xff%";
    const struct {
        std::string path, location;
        double at;  // the clock when it is trashed
    } cases[] = {
        {sandbox.mac.writeFile("~/Documents/report.pdf", "a"), "report.pdf", 1'789'999'531},
        {sandbox.mac.writeFile("~/Desktop/report.pdf", "b"), "report 14.05.31.pdf", 1'789'999'531},
        {sandbox.mac.writeFile("~/Downloads/report.pdf", "c"), "report 14.05.32.pdf", 1'789'999'532},
        {sandbox.mac.makeFolder("~/Documents/Photos"), "Photos", 1'789'999'532},
        {sandbox.mac.makeFolder("~/Desktop/Photos"), "Photos 14.05.32", 1'789'999'532},
        {sandbox.mac.writeFile("~/Desktop/" + hostileName, "h"), hostileName, 1'789'999'532},
    };
    std::map<std::string, std::pair<std::optional<std::string>, std::optional<double>>> want, got;
    for (const auto& c : cases) {
        sandbox.setNow(c.at);
        EXPECT_EQ(trash(c.path), trashFolder + "/" + c.location);
        want[trashFolder + "/" + c.location] = {c.path, c.at};
    }
    EXPECT_EQ(readText(trashFolder + "/report 14.05.31.pdf"), "b");
    for (const auto& i : listed()) got[i.location] = {i.originalPath, i.dateAdded};
    EXPECT_EQ(got, want);  // the ledger and its lock are not items
    // Names sorted as encoded, each entry's keys in alphabetical order, indented by one.
    EXPECT_EQ(readText(trashFolder + "/.brimstell-trash.json").substr(0, 55),
              "{\n \"Photos\": {\n  \"dateAdded\": 1789999532.0,\n  \"file\": \"");

    // A third clash in the same second gets " 2".
    sandbox.setNow(1'789'999'531);
    EXPECT_EQ(trash(sandbox.mac.writeFile("~/Music/report.pdf", "f")),
              trashFolder + "/report 14.05.31 2.pdf");
}

TEST_F(SandboxTrashTest, ItemsWithoutALedgerEntryUseTheirChangeTime) {
    ASSERT_TRUE(trash(sandbox.mac.writeFile("~/Documents/a.txt", "a")));
    // Finder (or anyone) put this one there; and a.txt was swapped for another file meanwhile.
    sandbox.mac.writeFile("~/.Trash/by-hand.txt", "x");
    ASSERT_EQ(::unlink((trashFolder + "/a.txt").c_str()), 0);
    sandbox.mac.writeFile("~/.Trash/a.txt", "not the same file");
    const auto items = listed();
    EXPECT_EQ(items.size(), 2u);
    for (const auto& i : items) {
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
    const std::string ledgerPath = trashFolder + "/.brimstell-trash.json";
    const auto bigIn = trash(folder), keepIn = trash(keep);
    const auto backIn = trash(back);
    ASSERT_TRUE(bigIn && keepIn && backIn);
    auto& t = *quorv::host().trash;
    EXPECT_TRUE(t.isInTrash(*bigIn));
    EXPECT_FALSE(t.isInTrash(ledgerPath));
    EXPECT_FALSE(t.isInTrash(*bigIn + "/inner"));

    EXPECT_EQ(t.erase({*bigIn, keep, ledgerPath}), std::vector<std::string>{*bigIn});
    EXPECT_FALSE(exists(*bigIn));
    EXPECT_TRUE(exists(ledgerPath));
    ASSERT_EQ(::rename(backIn->c_str(), back.c_str()), 0);
    t.forgetRestored(*backIn);
    t.forgetRestored(*keepIn);  // still there: kept
    const std::string ledger = readText(ledgerPath);
    EXPECT_EQ(ledger.find("big"), std::string::npos) << ledger;
    EXPECT_EQ(ledger.find("back.txt"), std::string::npos) << ledger;
    EXPECT_EQ(originals(), (Originals{{*keepIn, keep}}));
}

TEST_F(SandboxTrashTest, RefusesItemsOnAnotherDisk) {
    const std::string volume = sandbox.mac.path("/Volumes/USB");
    TmpfsMount mount(volume);
    if (!mount.mounted()) GTEST_SKIP() << "mounting a tmpfs is not allowed here";
    writeBytes(volume + "/movie.mov", "m");
    EXPECT_EQ(refused(volume + "/movie.mov"), otherDisk);
    EXPECT_EQ(readText(volume + "/movie.mov"), "m");
    EXPECT_TRUE(listed().empty());
}

// ---- TrashBin over any backend

// A Trash that lists what it is given and erases by deleting the files.
class ListedTrash : public quorv::TrashBackend {
public:
    std::vector<quorv::TrashedItem> items;
    std::vector<std::string> erased;
    std::optional<std::string> moveToTrash(const std::string&, std::string& error) override { return error = "no", std::nullopt; }
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
    const struct {
        std::optional<double> added;
        int days;
        bool old;
    } cases[] = {
        // Exactly 30 days and undated items are covered by the emptying test below.
        {now - 30 * day - 0.001, 30, true}, {now - 30 * day + 1, 30, false}, {now - 1, 0, true}, {now, 0, false},
        {now + 5 * day, 0, false},  // from the future
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
    auto fake = std::make_shared<ListedTrash>();
    h->trash = fake;
    h->clock = [] { return now; };
    quorv::HostScope scope(h);
    const std::string folder = dir / "big";
    writeWithFolders(folder + "/inside", std::string(100000, 'x'));
    writeBytes(dir / "old", std::string(50000, 'o'));
    writeBytes(dir / "boundary", std::string(20000, 'b'));
    writeBytes(dir / "undated", std::string(30000, 'u'));
    const std::int64_t folderSize = brimstell::FS::size(folder), oldSize = brimstell::FS::size(dir / "old");
    ASSERT_GT(oldSize, 0);
    fake->items = {
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
    EXPECT_EQ(fake->erased, (std::vector<std::string>{folder, dir / "old"}));
    EXPECT_TRUE(exists(dir / "boundary"));
    EXPECT_TRUE(exists(dir / "undated"));
    EXPECT_TRUE(TrashBin::deleteForGood({}).empty());
}

TEST(TrashBinTest, NoBackendIsAnEmptyTrash) {
    testing_support::TempDir home;  // the clean lock's folder
    auto h = quorv::hostFromEnvironment({{"HOME", home.path()}});
    h->trash = nullptr;
    quorv::HostScope scope(h);
    EXPECT_TRUE(TrashBin::items().empty());
    EXPECT_EQ(TrashBin::totalSize(), 0);
    EXPECT_EQ(TrashBin::emptyOlderThan(0), 0);
    EXPECT_TRUE(TrashBin::deleteForGood({"/x"}).empty());
}

}  // namespace
