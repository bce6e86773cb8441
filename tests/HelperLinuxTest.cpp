// The root helper under Linux rules: what it may touch on a Linux machine, and its file jobs on a
// folder laid out like one (freedesktop.org Trash folders, the moved log in /var/lib/brimstell,
// the stash swept at start).

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "shared/helper/HelperFiles.hpp"
#include "support/FileTree.hpp"
#include "support/TestSupport.hpp"
#include "support/host/Host.hpp"

namespace {

using namespace std::string_literals;
using brimstell::HelperFiles;
using brimstell::HelperRules;
using testing_support::readText;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr const char* logPath = "/var/lib/brimstell/helper-moved.log";
constexpr const char* annTrash = "/home/ann/.local/share/Trash";
constexpr const char* bobTrash = "/home/bob/.local/share/Trash";

TEST(HelperLinuxRules, Table) {
    struct Row {
        std::string path;
        bool refused;
        std::string callerHome = "/home/ann";
    };
    const std::vector<Row> rows = {
        // The escapes of the Mac rules on a Linux machine; each row names a refusal of its own.
        {"/root/.ssh/authorized_keys", true}, {"/root", true}, {"/ROOT/.ssh/x", true}, {"/boot/vmlinuz", true},
        {"/opt/app/bin/app", true}, {"/srv/www/index.html", true}, {"/mnt/disk/x", true}, {"/media/usb/photos/x", true},
        {"/snap/core/current/x", true}, {"/home/bob/Documents/x", true}, {"/home/bob/.local/share/Trash/files/x", true},
        // System software, configuration, devices, kernel and runtime folders, in any case.
        {"/etc/passwd", true}, {"/Etc/ssh/x", true}, {"/usr/bin/tool", true}, {"/USR/LOCAL/bin/tool", true},
        {"/usr/localx/y", true}, {"/bin/sh", true}, {"/sbin/init", true}, {"/lib/modules/x", true}, {"/lib64/ld.so", true},
        {"/dev/sda", true}, {"/proc/1/mem", true}, {"/sys/kernel/x", true}, {"/run/user/x/bus", true}, {"/efi/EFI/x", true},
        // /var beyond its junk: live logs, the journal, package state, our own folder; near misses of the junk.
        {"/var/log/syslog", true}, {"/var/log/journal/x/system.journal", true}, {"/var/log/a/b/c.gz", true},
        {"/var/log/x.10", true}, {"/var/lib/dpkg/status", true}, {"/var/lib/brimstell/helper-moved.log", true},
        {"/var/cache/apt/archives/partial/x.deb", true}, {"/var/cache/apt/archives/lock", true}, {"/var/crash", true},
        {"/var/lib/systemd/coredump", true}, {"/var/LOG/x.gz", true},
        // Temporary folders: the folder itself, display sockets and services' private folders.
        {"/tmp", true}, {"/tmp/.X11-unix", true}, {"/tmp/.X11-unix/X0", true}, {"/tmp/.ICE-unix/x", true},
        {"/tmp/systemd-private-abc-x.service-y/tmp/z", true}, {"/tmp/snap-private-tmp/x", true},
        {"/var/tmp/systemd-private-abc/x", true},
        // Homes: the folders themselves, another account's beyond its caches (exact case only).
        {"/home", true}, {"/home/ann", true}, {"/home/bob", true}, {"/home/bob/.cache", true},
        {"/home/bob/.Cache/x", true}, {"/home/bob/x/.cache/y", true}, {"/home/ann2/x", true},
        // Synced folders in any home, at any depth, in any case.
        {"/home/ann/Dropbox", true}, {"/home/ann/dropbox (Work)/x", true}, {"/home/ann/Documents/Dropbox/x", true},
        {"/home/ann/OneDrive/x", true}, {"/home/ann/Google Drive/x", true}, {"/home/ann/MEGA/x", true},
        {"/home/ann/pCloud Drive/x", true}, {"/home/ann/Box", true}, {"/home/ann/box/x", true},
        {"/home/ann/Box Sync/x", true}, {"/home/ann/Sync", true}, {"/home/ann/sync/x", true},
        {"/home/bob/.cache/Dropbox/x", true}, {"/home/ann/Dropbox/.dropbox.cachex", true},
        // Top folders nobody listed: other disks and anything unknown.
        {"/swapfile", true}, {"/nix/store/x", true}, {"/data/projects/x", true}, {"/lost+found/x", true},
        // Not a plain absolute path.
        {"", true}, {"relative/x/y", true}, {"/home//ann/x", true}, {"/home/ann/../bob/x", true},
        {"/home/bob/.cache/../Documents/x", true}, {"/home/ann/./x", true}, {"/home/ann/x/..", true},
        {"/tmp/x\0y"s, true},
        // The caller's own home when it is odd, or lies where nothing is allowed.
        {"/root/x", true, "/root"}, {"/srv/ann/x", true, "/srv/ann"}, {"/home/ann/x", true, "/home/ann/"},
        {"/home/bob/x", true, "/home"}, {"/home/ann/x", true, ""}, {"/etc/x/y", true, "/"},
        {"/home/ann/x", true, "/home/ann/../ann"},
        // Allowed: /usr/local, temporary files, junk in /var.
        {"/usr/local/bin/tool", false}, {"/usr/local/x", false}, {"/tmp/x", false}, {"/tmp/x/y", false},
        {"/tmp/.hidden", false}, {"/var/tmp/x", false}, {"/var/log/syslog.1", false}, {"/var/log/syslog.2.gz", false},
        {"/var/log/apt/term.log.1.gz", false}, {"/var/log/installer/x.xz", false}, {"/var/log/x.old", false},
        {"/var/log/x.zst", false}, {"/var/log/x.bz2", false}, {"/var/crash/_usr_bin_x.0.crash", false},
        {"/var/crash/x/y", false}, {"/var/lib/systemd/coredump/core.x.zst", false},
        {"/var/cache/apt/archives/tool_1.0_amd64.deb", false},
        {"/var/cache/pacman/pkg/tool-1.0-1-x86_64.pkg.tar.zst", false},
        {"/var/cache/dnf/fedora-x/packages/tool.rpm", false},
        // The caller's own home as on a Mac; another account's caches.
        {"/home/ann/x", false}, {"/home/ann/.ssh/x", false}, {"/home/ann/Downloads/big.iso", false},
        {"/home/ann/boxes", false}, {"/home/ann/Sync Folder", false}, {"/home/ann/syncthing/x", false},
        {"/home/ann/Dropbox/.dropbox.cache", false}, {"/home/ann/Dropbox/.debris", false},
        {"/home/ann/\xff\xfe/x", false}, {"/home/bob/.cache/x", false}, {"/home/bob/.cache/thumbnails/large/x.png", false},
        {"/home/bob/.thumbnails/normal/x", false}, {"/data/ann/x", false, "/data/ann"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HelperFiles::isProtected(row.path, HelperRules::linux, row.callerHome), row.refused)
            << "path: " << row.path << ", caller's home: " << row.callerHome;
    }
    // The Mac rules stay what they were, and are what the one-argument test means.
    for (const auto& [path, refused] : std::vector<std::pair<std::string, bool>>{
             {"/root/.ssh/authorized_keys", false}, {"/Users/ann/x", false}, {"/tmp/x", true}, {"/private/tmp/x", false},
             {"/home/bob/Documents/x", false}, {"/usr/bin/x", true}}) {
        EXPECT_EQ(HelperFiles::isProtected(path, HelperRules::mac, "/Users/ann"), refused) << path;
        EXPECT_EQ(HelperFiles::isProtected(path), refused) << path;
    }
}

// A uid no account has, for the other user's files when running as root.
uid_t unusedUid() {
    for (uid_t uid = 60000; uid > 2000; --uid) {
        if (::getpwuid(uid) == nullptr) return uid;
    }
    return 60000;
}

// A Linux machine in <temp>/linux: /home/ann (the caller, the test's own user) and /home/bob
// (another user when running as root, else the test's own user too), /tmp, /etc, /var/log, /var/lib.
class LinuxRoot {
public:
    LinuxRoot() : root_(dir_.path() + "/linux") {
        me = ::geteuid();
        bob = me == 0 ? unusedUid() : me;
        for (const char* path : {"/", "/home", "/tmp", "/etc", "/var", "/var/log", "/var/lib", "/root"}) folder(path);
        folder("/home/ann", me, 0755);
        folder("/home/ann/Downloads", me);
        folder("/home/bob", bob, 0755);
        folder("/home/bob/.cache", bob, 0700);
        folder("/home/bob/Documents", bob);
        // The helper's dates: a fixed clock, in UTC.
        auto h = std::make_shared<quorv::Host>();
        h->clock = [] { return 1'795'557'343.0; };  // 2026-11-24 21:55:43 UTC
        h->calendar.utc = true;
        host = h;
    }

    std::string at(const std::string& path) const { return path == "/" ? root_ : root_ + path; }
    void folder(const std::string& path, uid_t uid = 0, mode_t mode = 0755) const {
        ::mkdir(at(path).c_str(), mode);
        ::chmod(at(path).c_str(), mode);
        if (::geteuid() == 0) {
            EXPECT_EQ(::lchown(at(path).c_str(), uid, uid), 0) << path;
        }
    }
    void file(const std::string& path, const std::string& content = "x", uid_t uid = 0) const {
        std::FILE* f = std::fopen(at(path).c_str(), "w");
        ASSERT_NE(f, nullptr) << path;
        std::fputs(content.c_str(), f);
        std::fclose(f);
        if (::geteuid() == 0) {
            EXPECT_EQ(::lchown(at(path).c_str(), uid, uid), 0) << path;
        }
    }
    std::optional<struct stat> stat(const std::string& path) const {
        struct stat st {};
        if (::lstat(at(path).c_str(), &st) != 0) return std::nullopt;
        return st;
    }
    bool exists(const std::string& path) const { return stat(path).has_value(); }
    std::string text(const std::string& path) const { return exists(path) ? readText(at(path)) : "(none)"; }
    // Every name beneath path, sorted, as "a", "a/b"…
    Lines names(const std::string& path) const {
        Lines out;
        for (const auto& node : testing_support::snapshotTree(at(path))) {
            if (!node.path.empty()) out.push_back(node.path);
        }
        return out;
    }
    HelperFiles files(HelperRules rules = HelperRules::linux) const {
        auto opened = HelperFiles::open(root_, rules);
        EXPECT_TRUE(opened.has_value());
        return std::move(*opened);
    }

    uid_t me = 0, bob = 0;
    std::shared_ptr<const quorv::Host> host;

private:
    testing_support::TempDir dir_;
    std::string root_;
};

TEST(HelperLinuxFiles, AnotherAccountsCacheGoesToItsFreedesktopTrash) {
    LinuxRoot linux;
    quorv::HostScope scope(linux.host);
    linux.file("/home/bob/.cache/a b%c", "thumbs", linux.bob);
    const auto before = *linux.stat("/home/bob/.cache/a b%c");
    EXPECT_EQ(linux.files().trash({"/home/bob/.cache/a b%c"}, "/home/ann"),
              "OK\t/home/bob/.cache/a b%c\t/home/bob/.local/share/Trash/files/a b%c\n");

    EXPECT_FALSE(linux.exists("/home/bob/.cache/a b%c"));
    EXPECT_EQ(linux.text("/home/bob/.local/share/Trash/files/a b%c"), "thumbs");
    EXPECT_EQ(linux.text("/home/bob/.local/share/Trash/info/a b%c.trashinfo"),
              "[Trash Info]\nPath=/home/bob/.cache/a%20b%25c\nDeletionDate=2026-11-24T21:55:43\n");
    // Every folder made on the way, and the .trashinfo, belong to bob and to nobody else.
    for (const std::string& made : Lines{"/home/bob/.local", "/home/bob/.local/share", bobTrash, bobTrash + "/files"s,
                                         bobTrash + "/info"s, bobTrash + "/info/a b%c.trashinfo"s}) {
        const auto st = linux.stat(made);
        ASSERT_TRUE(st) << made;
        EXPECT_EQ(st->st_uid, linux.bob) << made;
        EXPECT_EQ(st->st_mode & 07777, made.ends_with(".trashinfo") ? 0600u : 0700u) << made;
    }
    // trash-cli lists it as that account's.
    if (const auto trashList = testing_support::findTool("trash-list")) {
        const auto listed = testing_support::runProgram(
            *trashList, {}, {{"XDG_DATA_HOME", linux.at("/home/bob/.local/share")}, {"HOME", linux.at("/home/bob")}});
        EXPECT_NE(listed.output.find("2026-11-24 21:55:43 /home/bob/.cache/a b%c\n"), std::string::npos) << listed.output;
    }
    // The moved log lies in a root-only folder made with its parents.
    EXPECT_EQ(linux.text(logPath), "/home/bob/.local/share/Trash/files/a b%c\t/home/bob/.cache/a b%c\t" +
                                       std::to_string(before.st_dev) + ":" + std::to_string(before.st_ino) + "\n");
    EXPECT_EQ(linux.stat("/var/lib/brimstell")->st_mode & 07777, 0700u);
    EXPECT_EQ(linux.stat("/var/lib/brimstell")->st_uid, linux.me);
}

// Each row trashes one path as the caller ann: where it lands, or that it is refused with nothing
// anywhere changed.
TEST(HelperLinuxFiles, WhereEachItemGoesAndWhatIsRefused) {
    const auto annTrashMade = [](const LinuxRoot& l) {
        for (auto f : {"/.local", "/.local/share", "/.local/share/Trash", "/.local/share/Trash/files",
                       "/.local/share/Trash/info"}) {
            l.folder("/home/ann"s + f, l.me, 0700);
        }
    };
    const std::vector<std::tuple<std::string, std::string, std::function<void(const LinuxRoot&)>>> rows = {
        {"/tmp/x", "/home/ann/.local/share/Trash/files/x", {}},
        {"/var/log/syslog.2.gz", "/home/ann/.local/share/Trash/files/syslog.2.gz", {}},
        {"/home/ann/Downloads/x", "/home/ann/.local/share/Trash/files/x", {}},
        {"/home/bob/.cache/x", "/home/bob/.local/share/Trash/files/x", {}},
        // The name is taken by an item, or only by a .trashinfo left without its item.
        {"/tmp/x", "/home/ann/.local/share/Trash/files/x 2",
         [&](const LinuxRoot& l) { annTrashMade(l); l.file(annTrash + "/files/x"s, "older", l.me); }},
        {"/tmp/x", "/home/ann/.local/share/Trash/files/x 2",
         [&](const LinuxRoot& l) { annTrashMade(l); l.file(annTrash + "/info/x.trashinfo"s, "older", l.me); }},
        {"/home/bob/Documents/x", "", {}},
        {"/root/x", "", {}},
        {"/etc/x", "", {}},
        {"/var/log/syslog", "", {}},
        {"/home/bob/.cache/x", "", [](const LinuxRoot& l) {  // bob's .local is a link out of his home
             ::symlink(l.at("/etc").c_str(), l.at("/home/bob/.local").c_str());
         }},
        {"/home/bob/.cache/x", "", [](const LinuxRoot& l) {  // bob's Trash is a file
             l.folder("/home/bob/.local", l.bob, 0700);
             l.folder("/home/bob/.local/share", l.bob, 0700);
             l.file("/home/bob/.local/share/Trash", "", l.bob);
         }},
        // No room for "<name>.trashinfo" in one file name.
        {"/tmp/" + std::string(250, 'n'), "", annTrashMade},
    };
    for (const auto& [path, newPath, arrange] : rows) {
        LinuxRoot linux;
        quorv::HostScope scope(linux.host);
        linux.file(path, "junk", path.starts_with("/home/bob/") ? linux.bob : linux.me);
        if (arrange) arrange(linux);
        const auto before = testing_support::snapshotTree(linux.at("/"));
        const std::string reply = linux.files().trash({path}, "/home/ann");
        if (newPath.empty()) {
            EXPECT_EQ(reply, "FAIL\t" + path + "\n");
            auto after = testing_support::snapshotTree(linux.at("/"));
            std::erase_if(after, [](const auto& node) { return node.path.starts_with("var/lib/brimstell"); });
            EXPECT_EQ(after, before) << path;
            continue;
        }
        EXPECT_EQ(reply, "OK\t" + path + "\t" + newPath + "\n");
        EXPECT_EQ(linux.text(newPath), "junk") << path;
        const std::string info = fs::path(newPath).parent_path().parent_path().string() + "/info/" +
                                 fs::path(newPath).filename().string() + ".trashinfo";
        EXPECT_EQ(linux.text(info), "[Trash Info]\nPath=" + path + "\nDeletionDate=2026-11-24T21:55:43\n") << path;
    }
}

TEST(HelperLinuxFiles, RestoreThroughTheMovedLogAndEmptyOnlyTheCallersTrash) {
    LinuxRoot linux;
    quorv::HostScope scope(linux.host);
    linux.file("/home/bob/.cache/x", "cached", linux.bob);
    linux.file("/tmp/a", "a");
    linux.file("/tmp/b", "b");
    const HelperFiles files = linux.files();
    const std::string bobFiles = bobTrash + "/files"s, annFiles = annTrash + "/files"s;
    EXPECT_EQ(files.trash({"/home/bob/.cache/x", "/tmp/a", "/tmp/b"}, "/home/ann"),
              "OK\t/home/bob/.cache/x\t" + bobFiles + "/x\nOK\t/tmp/a\t" + annFiles + "/a\nOK\t/tmp/b\t" + annFiles + "/b\n");

    EXPECT_EQ(files.restore({bobFiles + "/x\t/home/bob/.cache/x", bobFiles + "/x\t/home/bob/.cache/x",
                             annFiles + "/a\t/etc/a"},
                            "/home/ann"),
              "OK\t" + bobFiles + "/x\t/home/bob/.cache/x\nFAIL\t" + bobFiles + "/x\nFAIL\t" + annFiles + "/a\n");
    EXPECT_EQ(linux.text("/home/bob/.cache/x"), "cached");
    EXPECT_FALSE(linux.exists(bobTrash + "/info/x.trashinfo"s));
    EXPECT_EQ(testing_support::linesOf(linux.at(logPath)).size(), 2u);

    // Back onto an occupied path: refused, and the item stays in the Trash with its .trashinfo.
    linux.file("/tmp/a", "newer");
    EXPECT_EQ(files.restore({annFiles + "/a\t/tmp/a"}, "/home/ann"), "FAIL\t" + annFiles + "/a\n");
    EXPECT_EQ(linux.text(annFiles + "/a"), "a");
    EXPECT_TRUE(linux.exists(annTrash + "/info/a.trashinfo"s));
    EXPECT_EQ(linux.names("/var/lib/brimstell/restore"), Lines{});

    // Emptying: only items directly in the caller's own Trash, each with its .trashinfo.
    linux.file("/home/bob/.cache/y", "y", linux.bob);
    EXPECT_EQ(files.trash({"/home/bob/.cache/y"}, "/home/ann"), "OK\t/home/bob/.cache/y\t" + bobFiles + "/y\n");
    EXPECT_EQ(files.emptyTrash({annFiles + "/a", bobFiles + "/y", annTrash + "/info/b.trashinfo"s, annFiles, annFiles + "/b"},
                               "/home/ann"),
              "OK\t" + annFiles + "/a\nFAIL\t" + bobFiles + "/y\nFAIL\t" + annTrash + "/info/b.trashinfo\nFAIL\t" +
                  annFiles + "\nOK\t" + annFiles + "/b\n");
    EXPECT_EQ(linux.names(annTrash), (Lines{"files", "info"}));
    EXPECT_EQ(linux.names(bobTrash), (Lines{"files", "files/y", "info", "info/y.trashinfo"}));
}

// A restore stopped between its two moves leaves the item in the stash; the next start puts it
// back where the moved log says it came from, and a stranger with no line goes to "unclaimed".
TEST(HelperLinuxFiles, TheStashIsSweptBackIntoTheTrashAtStart) {
    struct Rules {
        HelperRules rules;
        std::string trash, log, cache, home;
    };
    for (const auto& r : {Rules{HelperRules::linux, bobTrash + "/files"s, "/var/lib/brimstell", "/home/bob/.cache", "/home/bob"},
                          Rules{HelperRules::mac, "/Users/bob/.Trash", "/Library/Application Support/Brimstell",
                                "/Users/bob/Library/Caches", "/Users/bob"}}) {
        LinuxRoot machine;
        quorv::HostScope scope(machine.host);
        for (const char* f : {"/Users", "/Library", "/Library/Application Support"}) machine.folder(f);
        machine.folder("/Users/ann", machine.me);
        for (const char* f : {"/Users/bob", "/Users/bob/Library", "/Users/bob/Library/Caches"}) machine.folder(f, machine.bob);
        machine.file(r.cache + "/x", "cached", machine.bob);
        machine.file(r.cache + "/taken", "first", machine.bob);
        const std::string caller = r.rules == HelperRules::mac ? "/Users/ann" : "/home/ann";
        {
            const HelperFiles files = machine.files(r.rules);
            EXPECT_EQ(files.trash({r.cache + "/x", r.cache + "/taken"}, caller),
                      "OK\t" + r.cache + "/x\t" + r.trash + "/x\nOK\t" + r.cache + "/taken\t" + r.trash + "/taken\n");
        }
        // As a helper killed half-way through restores leaves them: x and taken in the stash (and
        // something else since at taken's name in the Trash), plus an item no line claims.
        const std::string stash = r.log + "/restore";
        machine.folder(stash, machine.me, 0700);
        ASSERT_EQ(::rename(machine.at(r.trash + "/x").c_str(), machine.at(stash + "/x").c_str()), 0);
        ASSERT_EQ(::rename(machine.at(r.trash + "/taken").c_str(), machine.at(stash + "/taken").c_str()), 0);
        machine.file(r.trash + "/taken", "since", machine.bob);
        machine.file(stash + "/stranger", "?");

        const HelperFiles files = machine.files(r.rules);
        // A stash others could have written to is not trusted: nothing moves.
        machine.folder(stash, machine.me, 0750);
        EXPECT_EQ(files.sweepStash(), 0u);
        EXPECT_EQ(machine.names(stash), (Lines{"stranger", "taken", "x"}));
        machine.folder(stash, machine.me, 0700);
        EXPECT_EQ(files.sweepStash(), 3u);
        EXPECT_EQ(machine.names(stash), Lines{});
        EXPECT_EQ(machine.text(r.trash + "/x"), "cached");
        EXPECT_EQ(machine.text(r.trash + "/taken 2"), "first");
        EXPECT_EQ(machine.text(r.log + "/unclaimed/stranger"), "?");
        EXPECT_EQ(machine.stat(r.log + "/unclaimed")->st_mode & 07777, 0700u);
        EXPECT_EQ(files.sweepStash(), 0u);
        // Both can be restored through the log as if nothing had happened.
        EXPECT_EQ(files.restore({r.trash + "/x\t" + r.cache + "/x", r.trash + "/taken 2\t" + r.cache + "/taken"}, caller),
                  "OK\t" + r.trash + "/x\t" + r.cache + "/x\nOK\t" + r.trash + "/taken 2\t" + r.cache + "/taken\n");
        EXPECT_EQ(machine.text(r.cache + "/taken"), "first");
        EXPECT_FALSE(machine.exists(bobTrash + "/info/taken 2.trashinfo"s));
    }
}

}  // namespace
