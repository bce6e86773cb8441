// The root helper's file jobs against sandbox Macs: who may be touched, where things go, what
// comes back, and what a hostile tree can't make the helper do.

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "shared/helper/HelperFiles.hpp"
#include "support/FileTree.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using namespace std::string_literals;
using brimstell::HelperFiles;
using testing_support::readText;
using testing_support::writeBytes;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// The sandbox's owners. As root, the Mac's first two accounts own their homes and root owns the
// system folders, as on a Mac. As anyone else every folder is the runner's, since only root can give
// files away; the cases that need another owner are left out then, and the test says so.
const bool asRoot = ::geteuid() == 0;
const uid_t ann = asRoot ? 501 : ::geteuid();
const uid_t bob = asRoot ? 502 : ::geteuid();
const uid_t systemOwner = asRoot ? 0 : ::geteuid();
const gid_t systemGroup = asRoot ? 0 : ::getegid();
const gid_t staff = asRoot ? 20 : ::getegid();
const char* const otherOwnersNeeded = "rows whose items need owners other than this user were left out: run as root for them";
const std::string logPath = "/Library/Application Support/Brimstell/helper-moved.log";

TEST(HelperProtectedPaths, Table) {
    const std::vector<const char*> refused = {
        // Not a plain absolute path.
        "", "relative/path", "Users/ann/Library/Caches/x", "~/Library/Caches/x", "/Users//ann/x", "//Users/ann/x",
        "/Users/ann/x//", "/Users/ann/../bob/x", "/Users/ann/./x", "/Users/ann/x/.", "/Users/ann/x/..",
        "/usr/local/../bin/tool", "/usr/localx/y",
        // The twelve system prefixes, in any letter case.
        "/System/Library/x", "/system/x/y", "/bin/ls/x", "/sbin/launchd/x", "/usr/bin/tool", "/USR/BIN/tool",
        "/private/var/db/x", "/private/var/vm/swapfile0", "/var/folders/x", "/etc/ssh/x", "/private/etc/hosts",
        "/Volumes/Disk/x", "/VOLUMES/Disk/x", "/Library/Apple/x/y", "/Library/Caches/com.apple.Safari",
        "/library/caches/COM.APPLE.x",
        // The twelve cloud folders.
        "/Users/ann/Library/CloudStorage", "/Users/ann/Library/CloudStorage/Dropbox/x", "/Users/ann/Library/CloudStorageX",
        "/Users/ann/Library/Mobile Documents/com~apple~CloudDocs/x", "/Users/ann/Dropbox", "/Users/ann/Dropbox (Work)/x",
        "/Users/ann/Documents/Dropbox/x", "/Users/ann/OneDrive - Acme/x", "/Users/ann/MEGA", "/Users/ann/megastuff/x",
        "/Users/ann/Google Drive/x", "/Users/ann/pCloud Drive/x", "/Users/ann/Box", "/Users/ann/Box/x", "/Users/ann/a/Box",
        "/Users/ann/Box Sync/x", "/Users/ann/Sync", "/Users/ann/Sync/x", "/users/ANN/dropbox/x",
        // Inside or beside a cloud client's own cache; a cache name outside a cloud folder.
        "/Users/ann/Dropbox/.dropbox.cache/x", "/Users/ann/Dropbox/.debrisx", "/System/x/.debris",
        // Not an application bundle directly in /Applications; fewer than three components.
        "/Applications/.app", "/Applications/Tools", "/Applications", "/", "/x", "/system", "/Users/ann", "/Users/Shared",
        "/Library/Caches"};
    const std::vector<const char*> allowed = {
        "/Users/ann/Library/..hidden", "/Users/ann/Library/.x", "/usr/local/bin/tool", "/USR/LOCAL/bin/tool", "/usr/local/x",
        "/private/var/folders/x", "/private/var/log/x", "/Library/Caches/com.applex", "/Library/AppleX/y", "/Systemx/a/b",
        "/Users/ann/boxes", "/Users/ann/Boxed/x", "/Users/ann/syncthing/x", "/Users/ann/Sync Folder",
        "/Users/ann/Library/Caches/x", "/Users/ann/Dropbox/.dropbox.cache", "/Users/ann/Library/CloudStorage/Dropbox/.dropbox.cache",
        "/Users/ann/Library/Mobile Documents/.debris", "/Users/ann/Dropbox/.DROPBOX.CACHE", "/Applications/Tool.app",
        "/applications/TOOL.APP", "/Applications/Tools/Tool.app", "/Applications/Tool.app/Contents", "/Users/ann/Library",
        "/Library/Caches/x",
        "/Users/ann/",  // passes the rules; the file jobs refuse the empty name
        "/Users/ann/\xff\xfe/x", "/Users/ann/Library/Caches/a\nb"};
    for (const char* path : refused) EXPECT_TRUE(HelperFiles::isProtected(path)) << "path: " << path;
    for (const char* path : allowed) EXPECT_FALSE(HelperFiles::isProtected(path)) << "path: " << path;
}

// A tree as (path relative to the top → inode, owner, mode, size of files, link target).
using Tree = std::map<std::string, std::string>;

Tree snapshot(const std::string& top) {
    Tree tree;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(top, ec); !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        struct stat st {};
        const std::string path = it->path().string();
        if (::lstat(path.c_str(), &st) != 0) continue;
        std::string& description = tree[path.substr(top.size() + 1)];
        description = std::to_string(st.st_ino) + " " + std::to_string(st.st_uid) + " " + std::to_string(st.st_mode);
        if (S_ISREG(st.st_mode)) description += " " + std::to_string(st.st_size);
        if (S_ISLNK(st.st_mode)) description += " -> " + fs::read_symlink(path, ec).string();
    }
    return tree;
}

// What changed between two snapshots, the helper's own folder left out: "-" gone, "+" new, "~" changed.
Lines changes(const Tree& before, const Tree& after) {
    const std::string own = "mac/Library/Application Support/Brimstell";
    Lines out;
    for (const auto& [path, what] : before) {
        const auto found = after.find(path);
        if (path.starts_with(own)) continue;
        if (found == after.end()) out.push_back("-" + path);
        else if (found->second != what) out.push_back("~" + path);
    }
    for (const auto& [path, what] : after) {
        if (!path.starts_with(own) && !before.contains(path)) out.push_back("+" + path);
    }
    return out;
}

// Runs body in a forked child and returns what it wrote, or nullopt when the child exited 125
// (it couldn't set itself up).
std::optional<std::string> inChild(const std::function<std::string()>& body) {
    int channel[2];
    if (::pipe(channel) != 0) return std::nullopt;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        const std::string out = body();
        (void)!::write(channel[1], out.data(), out.size());
        ::_exit(0);
    }
    ::close(channel[1]);
    std::string out;
    char buffer[256];
    for (ssize_t n; (n = ::read(channel[0], buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<size_t>(n));
    ::close(channel[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 125) return std::nullopt;
    return out;
}

// A Mac in <temp>/mac: Users/ann (501), Users/bob (502), Users/Shared, /Library with Caches,
// Logs and Application Support, all root's; a folder <temp>/outside beside it.
class Sandbox {
public:
    Sandbox() : root_(dir_ / "mac"), outside_(dir_ / "outside") {
        ::mkdir(outside_.c_str(), 0755);
        writeBytes(outside_ + "/secret", "outside");
        for (const char* path : {"/", "/Users", "/Library", "/Library/Caches", "/Library/Logs", "/Library/Application Support"}) folder(path);
        folder("/Users/Shared", systemOwner, systemGroup, 01777);
        for (auto [name, uid] : {std::pair{"ann", ann}, std::pair{"bob", bob}}) {
            const std::string home = "/Users/"s + name;
            folder(home, uid, staff, 0755);
            folder(home + "/Library", uid, staff, 0700);
            folder(home + "/Library/Caches", uid, staff, 0700);
        }
    }

    std::string at(const std::string& macPath) const { return macPath == "/" ? root_ : root_ + macPath; }
    const std::string& top() const { return dir_.path(); }
    const std::string& outside() const { return outside_; }

    void folder(const std::string& macPath, uid_t uid = systemOwner, gid_t gid = systemGroup, mode_t mode = 0755) const {
        const std::string path = at(macPath);
        ::mkdir(path.c_str(), mode);
        ::chmod(path.c_str(), mode);
        EXPECT_EQ(::lchown(path.c_str(), uid, gid), 0) << path;
    }
    void file(const std::string& macPath, const std::string& content = "x", uid_t uid = systemOwner) const {
        writeBytes(at(macPath), content);
        EXPECT_EQ(::lchown(at(macPath).c_str(), uid, staff), 0);
    }
    void link(const std::string& macPath, const std::string& target) const {
        ASSERT_EQ(::symlink(target.c_str(), at(macPath).c_str()), 0) << macPath;
    }
    void replaceWithLink(const std::string& macPath, const std::string& target) const {
        fs::remove_all(at(macPath));
        link(macPath, target);
    }
    void makeLog() const { folder("/Library/Application Support/Brimstell", systemOwner, systemGroup, 0755); }
    std::optional<struct stat> stat(const std::string& macPath) const {
        struct stat st {};
        if (::lstat(at(macPath).c_str(), &st) != 0) return std::nullopt;
        return st;
    }
    bool exists(const std::string& macPath) const { return stat(macPath).has_value(); }
    ino_t inode(const std::string& macPath) const { return exists(macPath) ? stat(macPath)->st_ino : 0; }
    std::string log() const { return readText(at(logPath)); }
    Tree tree() const { return snapshot(top()); }

    HelperFiles files() const {
        auto opened = HelperFiles::open(root_);
        EXPECT_TRUE(opened.has_value());
        return std::move(*opened);
    }

private:
    testing_support::TempDir dir_;
    std::string root_, outside_;
};

using HelperFilesSandbox = ::testing::Test;

TEST_F(HelperFilesSandbox, OpenFolderReachesOnlyTheExactFolder) {
    Sandbox mac;
    mac.folder("/Users/ann/Library/Real", ann, staff);
    mac.link("/Users/ann/Library/Linked", "Real");
    mac.link("/Users/ann/Library/Away", mac.outside());
    const HelperFiles files = mac.files();
    EXPECT_TRUE(files.openFolder("/").valid());
    EXPECT_TRUE(files.openFolder("/Users/ann/Library/Real").valid());
    for (const auto& path : {"/Users/ann/Library/Linked"s, "/Users/ann/Library/Away"s, "/Users/ann/Library/Real/"s,
                                   "/Users//ann/Library/Real"s, "/users/ann/Library/Real"s, "/Users/ann/Library/./Real"s,
                                   "/Users/ann/Library/../Library/Real"s, "/../outside"s, "/.."s, "Users/ann"s, ""s,
                                   "/Users/ann/Library/Missing"s, "/Users\0/ann"s}) {
        EXPECT_FALSE(files.openFolder(path).valid()) << path;
    }
}

TEST_F(HelperFilesSandbox, TrashGoesToTheAccountThatHoldsTheItem) {
    for (const auto& [path, newPath] : std::vector<std::pair<std::string, std::string>>{
             {"/Library/Caches/x", "/Users/ann/.Trash/x"},
             {"/Users/Shared/x", "/Users/ann/.Trash/x"},
             {"/Users/ann/Library/Caches/x", "/Users/ann/.Trash/x"},
             {"/Users/bob/Library/Caches/x", "/Users/bob/.Trash/x"}}) {
        Sandbox mac;
        mac.file(path, "junk");
        const auto st = *mac.stat(path);
        const std::string identity = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
        const Tree before = mac.tree();
        EXPECT_EQ(mac.files().trash({path}, "/Users/ann"), "OK\t" + path + "\t" + newPath + "\n");

        const std::string trash = fs::path(newPath).parent_path().string();
        EXPECT_EQ(changes(before, mac.tree()), (Lines{"-mac" + path, "+mac" + trash, "+mac" + newPath})) << path;
        const auto trashStat = mac.stat(trash);
        ASSERT_TRUE(trashStat);
        EXPECT_EQ(trashStat->st_uid, trash == "/Users/bob/.Trash" ? bob : ann) << path;
        EXPECT_EQ(trashStat->st_gid, staff);
        EXPECT_EQ(trashStat->st_mode & 07777, 0700u);
        EXPECT_EQ(mac.log(), newPath + "\t" + path + "\t" + identity + "\n");
    }
}

TEST_F(HelperFilesSandbox, TrashAndRestoreReplyOneLinePerEntryInOrder) {
    Sandbox mac;
    mac.file("/Library/Caches/a");
    mac.folder("/Library/Caches/b");
    mac.file("/Library/Caches/b/inner");
    mac.link("/Library/Caches/c", "/Users/bob/Library/Caches");
    mac.file("/Library/Caches/line\nfeed");
    mac.file("/Library/Caches/tab\tbed");
    const HelperFiles files = mac.files();
    EXPECT_EQ(files.trash({"/Library/Caches/a", "/Library/Caches/missing", "/Library/Caches/b", "/System/Library/x",
                           "/Library/Caches/c", "/Library/Caches/line\nfeed", "/Library/Caches/tab\tbed",
                           "/Library/Caches/fake\nOK\t/Library/Caches/a\t/Users/ann/.Trash/a", "/Library/Caches/a"},
                          "/Users/ann"),
              "OK\t/Library/Caches/a\t/Users/ann/.Trash/a\n" "FAIL\t/Library/Caches/missing\n"
              "OK\t/Library/Caches/b\t/Users/ann/.Trash/b\n" "FAIL\t/System/Library/x\n"
              "OK\t/Library/Caches/c\t/Users/ann/.Trash/c\n" "FAIL\t/Library/Caches/line?feed\n" "FAIL\t/Library/Caches/tab\tbed\n"
              "FAIL\t/Library/Caches/fake?OK\t/Library/Caches/a\t/Users/ann/.Trash/a\n"
              "FAIL\t/Library/Caches/a\n");
    // The link was moved as a link; its target stays where it was.
    EXPECT_EQ(fs::read_symlink(mac.at("/Users/ann/.Trash/c")).string(), "/Users/bob/Library/Caches");
    for (const char* kept : {"/Users/bob/Library/Caches", "/Users/ann/.Trash/b/inner", "/Library/Caches/line\nfeed",
                             "/Library/Caches/tab\tbed"}) {
        EXPECT_TRUE(mac.exists(kept)) << kept;
    }
    // Three items moved, three lines noted; nothing in the log came from the hostile names.
    const auto lines = files.readLog(logPath);
    ASSERT_TRUE(lines.has_value());
    ASSERT_EQ(lines->size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        const std::string name(1, static_cast<char>('a' + i));
        EXPECT_TRUE((*lines)[i].starts_with("/Users/ann/.Trash/" + name + "\t/Library/Caches/" + name + "\t")) << (*lines)[i];
    }

    EXPECT_EQ(files.restore({"/Users/ann/.Trash/b\t/Library/Caches/b", "garbage\nOK\tline", "/Users/ann/.Trash/a\t/Library/Caches/a"},
                            "/Users/ann"),
              "OK\t/Users/ann/.Trash/b\t/Library/Caches/b\n"
              "FAIL\tgarbage?OK\n"
              "OK\t/Users/ann/.Trash/a\t/Library/Caches/a\n");
    EXPECT_EQ(files.restore({}, "/Users/ann"), "");
}

// Each row lays out a hostile tree; the one entry must be refused and nothing anywhere, inside
// the sandbox or beside it, may change.
TEST_F(HelperFilesSandbox, TrashRefusesHostileTrees) {
    using Arrange = std::function<void(const Sandbox&)>;
    const Arrange cacheX = [](const Sandbox& mac) { mac.file("/Library/Caches/x"); };
    const Arrange nothing = [](const Sandbox&) {};
    const std::string longName(255, 'n');
    const std::vector<std::tuple<const char*, std::string, Arrange>> rows = {
        {"folder swapped for a link to /Library", "/Users/ann/Library/Caches/x",
         [](const Sandbox& mac) { mac.file("/Library/x"); mac.replaceWithLink("/Users/ann/Library/Caches", "/Library"); }},
        {"folder swapped for a link out of the sandbox", "/Users/ann/Library/Caches/secret",
         [](const Sandbox& mac) { mac.replaceWithLink("/Users/ann/Library/Caches", mac.outside()); }},
        {"home swapped for a link", "/Users/bob/Library/Caches/x",
         [](const Sandbox& mac) { mac.file("/Users/ann/Library/Caches/x"); mac.replaceWithLink("/Users/bob", "ann"); }},
        {"dot-dot out of a home", "/Users/ann/Library/../../../outside/secret", nothing},
        {"wrong letter case", "/library/Caches/x", cacheX},
        {"trailing slash", "/Library/Caches/x/", [](const Sandbox& mac) { mac.folder("/Library/Caches/x"); }},
        {"empty name", "/Users/ann/", nothing},
        {"protected", "/Library/Caches/com.apple.x", [](const Sandbox& mac) { mac.file("/Library/Caches/com.apple.x"); }},
        {"Trash is a link out of the sandbox", "/Library/Caches/x",
         [&](const Sandbox& mac) { cacheX(mac); mac.link("/Users/ann/.Trash", mac.outside()); }},
        {"Trash belongs to someone else", "/Library/Caches/x",
         [&](const Sandbox& mac) { cacheX(mac); mac.folder("/Users/ann/.Trash", bob, staff, 0700); }},
        {"Trash belongs to root", "/Users/bob/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Users/bob/Library/Caches/x", "x", bob);
             mac.folder("/Users/bob/.Trash", systemOwner, systemGroup, 0700);
         }},
        {"Trash is a file", "/Library/Caches/x",
         [&](const Sandbox& mac) { cacheX(mac); mac.file("/Users/ann/.Trash", "not a folder", ann); }},
        {"255-byte name already in the Trash", "/Library/Caches/" + longName,
         [&](const Sandbox& mac) {
             mac.file("/Library/Caches/" + longName);
             mac.folder("/Users/ann/.Trash", ann, staff, 0700);
             mac.file("/Users/ann/.Trash/" + longName, "older", ann);
         }},
        {"NUL in the entry", "/Library/Caches/x\0y"s, cacheX},
    };
    const std::set<std::string> otherOwners = {"Trash belongs to someone else", "Trash belongs to root"};
    for (const auto& [what, entry, arrange] : rows) {
        if (!asRoot && otherOwners.contains(what)) continue;
        Sandbox mac;
        arrange(mac);
        const Tree before = mac.tree();
        std::string echoed = entry;
        for (char& c : echoed) c = c == '\n' || c == '\0' ? '?' : c;
        EXPECT_EQ(mac.files().trash({entry}, "/Users/ann"), "FAIL\t" + echoed + "\n") << what;
        EXPECT_EQ(changes(before, mac.tree()), Lines{}) << what;
        EXPECT_FALSE(mac.exists(logPath)) << what;
    }
    if (!asRoot) GTEST_SKIP() << otherOwnersNeeded;
}

TEST_F(HelperFilesSandbox, NameClashesCountUpToTenThousand) {
    Sandbox mac;
    mac.folder("/Users/ann/.Trash", ann, staff, 0700);
    mac.file("/Users/ann/.Trash/x", "older", ann);
    mac.file("/Library/Caches/x", "first");
    const HelperFiles files = mac.files();
    EXPECT_EQ(files.trash({"/Library/Caches/x"}, "/Users/ann"), "OK\t/Library/Caches/x\t/Users/ann/.Trash/x 2\n");

    for (int i = 3; i <= 10000; ++i) mac.file("/Users/ann/.Trash/x " + std::to_string(i), "", ann);
    mac.file("/Library/Caches/x", "clash 10000");
    const Tree before = mac.tree();
    EXPECT_EQ(files.trash({"/Library/Caches/x"}, "/Users/ann"), "FAIL\t/Library/Caches/x\n");
    EXPECT_EQ(changes(before, mac.tree()), Lines{});

    ASSERT_EQ(::unlink(mac.at("/Users/ann/.Trash/x 10000").c_str()), 0);
    EXPECT_EQ(files.trash({"/Library/Caches/x"}, "/Users/ann"), "OK\t/Library/Caches/x\t/Users/ann/.Trash/x 10000\n");
    EXPECT_EQ(readText(mac.at("/Users/ann/.Trash/x 10000")), "clash 10000");
}

TEST_F(HelperFilesSandbox, RestorePutsBackWhatItMoved) {
    for (const std::string& name : Lines{"x", "\xff\xfe not UTF-8", std::string(255, 'n'), "a folder"}) {
        Sandbox mac;
        const std::string original = "/Users/bob/Library/Caches/" + name;
        const std::string inTrash = "/Users/bob/.Trash/" + name;
        const bool isFolder = name == "a folder";
        if (isFolder) mac.folder(original, bob, staff);
        mac.file(isFolder ? original + "/inner" : original, "content", bob);
        const ino_t inode = mac.inode(original);
        const HelperFiles files = mac.files();
        ASSERT_EQ(files.trash({original}, "/Users/ann"), "OK\t" + original + "\t" + inTrash + "\n");
        const Tree moved = mac.tree();

        EXPECT_EQ(files.restore({inTrash + "\t" + original}, "/Users/ann"), "OK\t" + inTrash + "\t" + original + "\n");
        EXPECT_EQ(mac.inode(original), inode);
        EXPECT_FALSE(mac.exists(inTrash));
        const Lines expected = isFolder ? Lines{"-mac" + inTrash, "-mac" + inTrash + "/inner", "+mac" + original, "+mac" + original + "/inner"}
                                        : Lines{"-mac" + inTrash, "+mac" + original};
        EXPECT_EQ(changes(moved, mac.tree()), expected) << name;
        EXPECT_EQ(mac.log(), "");
        // Once put back it is no longer in the log: a second restore is refused.
        EXPECT_EQ(files.restore({inTrash + "\t" + original}, "/Users/ann"), "FAIL\t" + inTrash + "\n");
    }
}

TEST_F(HelperFilesSandbox, RestoreRefusesWhatItDidNotMoveAsItWas) {
    const std::string stash = "/Library/Application Support/Brimstell/restore";
    const std::string entry = "/Users/ann/.Trash/x\t/Library/Caches/x";
    const auto nothing = [](const Sandbox&) {};
    struct Row {
        const char* what;
        std::function<void(const Sandbox&)> meddle;
        std::string entry = "/Users/ann/.Trash/x\t/Library/Caches/x";  // the item trashed in every row
        std::string reply = "FAIL\t/Users/ann/.Trash/x\n";
    };
    const std::vector<Row> rows = {
        {"log line missing", [](const Sandbox& mac) { writeBytes(mac.at(logPath), ""); }},
        {"log missing", [](const Sandbox& mac) { ::unlink(mac.at(logPath).c_str()); }},
        // Made before the original goes, so that it can't get the same inode number back.
        {"item replaced by another file",
         [](const Sandbox& mac) {
             mac.file("/Users/ann/.Trash/impostor", "impostor", ann);
             fs::rename(mac.at("/Users/ann/.Trash/impostor"), mac.at("/Users/ann/.Trash/x"));
         }},
        {"item replaced by a link",
         [](const Sandbox& mac) {
             mac.link("/Users/ann/.Trash/impostor", mac.outside() + "/secret");
             fs::rename(mac.at("/Users/ann/.Trash/impostor"), mac.at("/Users/ann/.Trash/x"));
         }},
        {"stash open to the group", [&](const Sandbox& mac) { mac.folder(stash, systemOwner, systemGroup, 0770); }},
        {"stash belongs to someone else", [&](const Sandbox& mac) { mac.folder(stash, ann, staff, 0700); }},
        {"stash is a link", [&](const Sandbox& mac) { ::rmdir(mac.at(stash).c_str()); mac.link(stash, mac.outside()); }},
        {"original folder swapped for a link out of the sandbox",
         [](const Sandbox& mac) { mac.replaceWithLink("/Library/Caches", mac.outside()); }},
        {"Trash swapped for a link",
         [](const Sandbox& mac) {
             fs::rename(mac.at("/Users/ann/.Trash"), mac.at("/Users/ann/Trash2"));
             mac.link("/Users/ann/.Trash", "Trash2");
         }},
        {"Trash given to someone else", [](const Sandbox& mac) { mac.folder("/Users/ann/.Trash", bob, staff, 0700); }},
        {"no tab", nothing, "/Users/ann/.Trash/x"},
        {"three fields", nothing, entry + "\t1:2"},
        {"other original", nothing, "/Users/ann/.Trash/x\t/Library/Logs/x"},
        {"original out of the sandbox", nothing, "/Users/ann/.Trash/x\t/../../outside/x"},
        {"protected original", nothing, "/Users/ann/.Trash/x\t/usr/bin/x"},
        {"line feed in the original", nothing, entry + "\n"},
        {"not directly in a Trash", nothing, "/Users/ann/.Trash/sub/x\t/Library/Caches/x", "FAIL\t/Users/ann/.Trash/sub/x\n"},
        {"not a Trash", nothing, "/Users/ann/Library/x\t/Library/Caches/x", "FAIL\t/Users/ann/Library/x\n"},
        {"Trash at the top", nothing, "/.Trash/x\t/Library/Caches/x", "FAIL\t/.Trash/x\n"},
    };
    const std::set<std::string> otherOwners = {"stash belongs to someone else", "Trash given to someone else"};
    for (const auto& row : rows) {
        if (!asRoot && otherOwners.contains(row.what)) continue;
        Sandbox mac;
        mac.file("/Library/Caches/x", "content");
        ASSERT_EQ(mac.files().trash({"/Library/Caches/x"}, "/Users/ann"), "OK\t/Library/Caches/x\t/Users/ann/.Trash/x\n");
        mac.folder(stash, systemOwner, systemGroup, 0700);
        row.meddle(mac);
        const Tree before = mac.tree();
        const Tree outsideBefore = snapshot(mac.outside());
        EXPECT_EQ(mac.files().restore({row.entry}, "/Users/ann"), row.reply) << row.what;
        EXPECT_EQ(changes(before, mac.tree()), Lines{}) << row.what;
        EXPECT_EQ(changes(outsideBefore, snapshot(mac.outside())), Lines{}) << row.what;
    }
    if (!asRoot) GTEST_SKIP() << otherOwnersNeeded;
}

TEST_F(HelperFilesSandbox, RestoreOntoAnOccupiedPlaceLeavesTheItemInTheTrash) {
    Sandbox mac;
    mac.file("/Library/Caches/x", "original");
    const HelperFiles files = mac.files();
    ASSERT_EQ(files.trash({"/Library/Caches/x"}, "/Users/ann"), "OK\t/Library/Caches/x\t/Users/ann/.Trash/x\n");
    const ino_t inode = mac.inode("/Users/ann/.Trash/x");
    const std::string log = mac.log();
    mac.file("/Library/Caches/x", "newcomer");

    EXPECT_EQ(files.restore({"/Users/ann/.Trash/x\t/Library/Caches/x"}, "/Users/ann"), "FAIL\t/Users/ann/.Trash/x\n");
    EXPECT_EQ(mac.inode("/Users/ann/.Trash/x"), inode);
    EXPECT_EQ(readText(mac.at("/Library/Caches/x")), "newcomer");
    EXPECT_EQ(mac.log(), log);
    EXPECT_TRUE(fs::is_empty(mac.at("/Library/Application Support/Brimstell/restore")));

    // Once the place is free again, it comes back.
    ASSERT_EQ(::unlink(mac.at("/Library/Caches/x").c_str()), 0);
    EXPECT_EQ(files.restore({"/Users/ann/.Trash/x\t/Library/Caches/x"}, "/Users/ann"), "OK\t/Users/ann/.Trash/x\t/Library/Caches/x\n");
    EXPECT_EQ(readText(mac.at("/Library/Caches/x")), "original");
}

TEST_F(HelperFilesSandbox, EmptyTrashRemovesOnlyWhatIsInTheCallersTrash) {
    Sandbox mac;
    mac.folder("/Users/ann/.Trash", ann, staff, 0700);
    mac.file("/Users/ann/.Trash/file");
    for (const char* folder : {"/Users/ann/.Trash/tree", "/Users/ann/.Trash/tree/a", "/Users/ann/.Trash/tree/b"}) mac.folder(folder);
    mac.file("/Users/ann/.Trash/tree/a/f");
    mac.link("/Users/ann/.Trash/tree/a/away", mac.outside());
    mac.link("/Users/ann/.Trash/tree/secret", mac.outside() + "/secret");
    mac.file("/Users/ann/.Trash/tree/b/\xff\n\t");
    mac.link("/Users/ann/.Trash/link", "/Users/bob");
    mac.folder("/Users/bob/.Trash", bob, staff, 0700);
    mac.file("/Users/bob/.Trash/file");
    mac.file("/Library/Caches/x");
    const Tree outside = snapshot(mac.outside());

    EXPECT_EQ(mac.files().emptyTrash({"/Users/ann/.Trash/file", "/Users/ann/.Trash/tree", "/Users/ann/.Trash/link",
                                      "/Users/bob/.Trash/file", "/Users/ann/.Trash/missing", "/Users/ann/.Trash/../Library",
                                      "/Users/ann/.Trash", "/Users/ann/.Trash/", "/Users/ann//.Trash/x", "/Library/Caches/x",
                                      "Users/ann/.Trash/file", "/Users/ann/.Trash/a\nb"},
                                     "/Users/ann"),
              "OK\t/Users/ann/.Trash/file\n" "OK\t/Users/ann/.Trash/tree\n" "OK\t/Users/ann/.Trash/link\n"
              "FAIL\t/Users/bob/.Trash/file\n" "FAIL\t/Users/ann/.Trash/missing\n" "FAIL\t/Users/ann/.Trash/../Library\n"
              "FAIL\t/Users/ann/.Trash\n" "FAIL\t/Users/ann/.Trash/\n" "FAIL\t/Users/ann//.Trash/x\n" "FAIL\t/Library/Caches/x\n"
              "FAIL\tUsers/ann/.Trash/file\n" "FAIL\t/Users/ann/.Trash/a?b\n");
    EXPECT_TRUE(fs::is_empty(mac.at("/Users/ann/.Trash")));
    for (const char* kept : {"/Users/bob/.Trash/file", "/Users/bob/Library/Caches", "/Library/Caches/x"}) EXPECT_TRUE(mac.exists(kept)) << kept;
    EXPECT_EQ(changes(outside, snapshot(mac.outside())), Lines{});
}

TEST_F(HelperFilesSandbox, EmptyTrashRefusesATrashThatIsNotTheHomeOwners) {
    for (const std::string what : {"link", "other owner", "missing"}) {
        if (!asRoot && what == "other owner") continue;
        Sandbox mac;
        mac.folder("/Users/bob/.Trash", bob, staff, 0700);
        mac.file("/Users/bob/.Trash/x");
        if (what == "link") mac.link("/Users/ann/.Trash", "/Users/bob/.Trash");
        if (what == "other owner") {
            mac.folder("/Users/ann/.Trash", bob, staff, 0700);
            mac.file("/Users/ann/.Trash/x");
        }
        const Tree before = mac.tree();
        EXPECT_EQ(mac.files().emptyTrash({"/Users/ann/.Trash/x"}, "/Users/ann"), "FAIL\t/Users/ann/.Trash/x\n") << what;
        EXPECT_EQ(changes(before, mac.tree()), Lines{}) << what;
    }
    if (!asRoot) GTEST_SKIP() << otherOwnersNeeded;
}

// Ten thousand levels with few descriptors: far fewer than the depth.
TEST_F(HelperFilesSandbox, EmptyTrashHandlesTenThousandLevels) {
    Sandbox mac;
    mac.folder("/Users/ann/.Trash", ann, staff, 0700);
    mac.folder("/Users/ann/.Trash/deep");
    ASSERT_TRUE(testing_support::makeChain(mac.at("/Users/ann/.Trash/deep"), "d", 10000));
    struct rlimit saved {};
    ::getrlimit(RLIMIT_NOFILE, &saved);
    struct rlimit tight = saved;
    tight.rlim_cur = 64;
    ::setrlimit(RLIMIT_NOFILE, &tight);
    const std::string reply = mac.files().emptyTrash({"/Users/ann/.Trash/deep"}, "/Users/ann");
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(reply, "OK\t/Users/ann/.Trash/deep\n");
    EXPECT_FALSE(mac.exists("/Users/ann/.Trash/deep"));
}

// A file system mounted inside a Trash item is not entered: the removal stops there.
TEST_F(HelperFilesSandbox, EmptyTrashNeverCrossesOntoAnotherDevice) {
    Sandbox mac;
    mac.folder("/Users/ann/.Trash", ann, staff, 0700);
    mac.folder("/Users/ann/.Trash/tree");
    mac.folder("/Users/ann/.Trash/tree/mnt");
    const auto out = inChild([&] {
        const std::string mountPoint = mac.at("/Users/ann/.Trash/tree/mnt");
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=1m") != 0) {
            ::_exit(125);
        }
        writeBytes(mountPoint + "/kept", "on another device");
        // Opened here, so that the walk sees this namespace's mounts.
        struct stat st {};
        const std::string reply = mac.files().emptyTrash({"/Users/ann/.Trash/tree"}, "/Users/ann");
        return reply + (::lstat((mountPoint + "/kept").c_str(), &st) == 0 ? "kept" : "lost");
    });
    if (!out) GTEST_SKIP() << "no mount namespace for a tmpfs here";
    EXPECT_EQ(*out, "FAIL\t/Users/ann/.Trash/tree\nkept");
}

TEST_F(HelperFilesSandbox, MovedLogKeepsTheNewestTwentyThousandLinesAndIsNeverFollowed) {
    Sandbox mac;
    mac.makeLog();
    const HelperFiles files = mac.files();
    Lines lines;
    for (int i = 1; i <= 20000; ++i) lines.push_back("/Users/ann/.Trash/" + std::to_string(i) + "\t/Library/Caches/x\t1:" + std::to_string(i));
    ASSERT_TRUE(files.rewrite(logPath, lines));
    ASSERT_TRUE(files.note("new\tline\t1:0", logPath));
    const auto kept = files.readLog(logPath);
    ASSERT_TRUE(kept.has_value());
    ASSERT_EQ(kept->size(), 20000u);
    EXPECT_EQ(kept->front(), "/Users/ann/.Trash/2\t/Library/Caches/x\t1:2");
    EXPECT_EQ(kept->back(), "new\tline\t1:0");

    EXPECT_TRUE(files.noted("new\tline\t1:0", logPath));
    EXPECT_FALSE(files.noted("/Users/ann/.Trash/1\t/Library/Caches/x\t1:1", logPath));
    EXPECT_FALSE(files.noted("new\tline", logPath));
    EXPECT_TRUE(files.forget("new\tline\t1:0", logPath));
    EXPECT_FALSE(files.noted("new\tline\t1:0", logPath));
    EXPECT_EQ(files.readLog(logPath)->size(), 19999u);

    // A line that would split in two is never written.
    EXPECT_FALSE(files.note("a\tb\t1:2\nforged\tline\t3:4", logPath));
    EXPECT_FALSE(files.noted("forged\tline\t3:4", logPath));
    EXPECT_EQ(mac.stat(logPath)->st_mode & 07777, 0600u);
    EXPECT_FALSE(mac.exists(logPath + ".tmp"));

    // A link at the log's place: not read, not written through.
    mac.replaceWithLink(logPath, mac.outside() + "/secret");
    EXPECT_FALSE(files.note("a\tb\t1:2", logPath));
    EXPECT_FALSE(files.readLog(logPath).has_value());
    EXPECT_EQ(readText(mac.outside() + "/secret"), "outside");
    // A FIFO doesn't stall the helper.
    ::unlink(mac.at(logPath).c_str());
    ASSERT_EQ(::mkfifo(mac.at(logPath).c_str(), 0600), 0);
    EXPECT_FALSE(files.noted("a\tb\t1:2", logPath));
    ::unlink(mac.at(logPath).c_str());
    // A stale temporary file, even a link, is cleared away rather than written through.
    mac.link(logPath + ".tmp", mac.outside() + "/secret");
    EXPECT_TRUE(files.note("a\tb\t1:2", logPath));
    EXPECT_EQ(mac.log(), "a\tb\t1:2\n");
    EXPECT_EQ(readText(mac.outside() + "/secret"), "outside");
    EXPECT_FALSE(mac.exists(logPath + ".tmp"));
}

// A helper killed while it rewrites the log leaves the old log or the new one, never a part.
TEST_F(HelperFilesSandbox, KillDuringRewriteLeavesAWholeLog) {
    Sandbox mac;
    mac.makeLog();
    const HelperFiles files = mac.files();
    std::vector<Lines> versions(2);
    std::vector<std::string> texts(2);
    for (int v = 0; v < 2; ++v) {
        for (int i = 0; i < 20000; ++i) {
            versions[v].push_back("/Users/ann/.Trash/version " + std::to_string(v) + " item " + std::to_string(i) +
                                  "\t/Library/Caches/item " + std::to_string(i) + "\t16777232:" + std::to_string(i));
            texts[v] += versions[v].back() + "\n";
        }
    }
    // The kills are spread over about two rewrites, measured here: a loaded or instrumented build
    // rewrites many times slower than a plain one.
    const auto before = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(files.rewrite(logPath, versions[0]));
    const auto period = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - before) / 3;
    std::mt19937 random(20240917);
    int killedMidWrite = 0;
    for (int round = 0; round < 200 && (round < 40 || killedMidWrite < 3); ++round) {
        // The wait runs from the child's first whole rewrite, however long a loaded machine takes
        // to start it.
        int started[2];
        ASSERT_EQ(::pipe(started), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(started[0]);
            for (int i = 1;; ++i) {
                files.rewrite(logPath, versions[i % 2]);
                if (i == 1) (void)!::write(started[1], "s", 1);
            }
        }
        ::close(started[1]);
        char byte = 0;
        (void)!::read(started[0], &byte, 1);
        ::close(started[0]);
        const auto spread = static_cast<int>(std::max<std::int64_t>(2 * period.count(), 1000));
        std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, spread)(random)));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        if (mac.exists(logPath + ".tmp")) ++killedMidWrite;
        const std::string text = readText(mac.at(logPath));
        ASSERT_TRUE(text == texts[0] || text == texts[1]) << "round " << round << ": " << text.size() << " bytes";
    }
    // The log stays usable after a death mid-write.
    ASSERT_TRUE(files.note("after\tthe\t1:1", logPath));
    EXPECT_EQ(files.readLog(logPath)->back(), "after\tthe\t1:1");
    EXPECT_FALSE(mac.exists(logPath + ".tmp"));
    // The kills must really have landed in the middle of writes for the test to mean anything.
    EXPECT_GT(killedMidWrite, 0);
}

// A helper that isn't root can't give a new Trash away; that alone is not a failure.
TEST_F(HelperFilesSandbox, WithoutRootANewTrashStaysItsMakers) {
    if (!asRoot) GTEST_SKIP() << "a home owned by another user, and becoming that user, need root";
    Sandbox mac;
    ::chmod(mac.top().c_str(), 0755);
    const uid_t carl = bob + 1;  // an account of its own, neither of the others
    for (const char* folder : {"/Users/carl", "/Users/carl/Library", "/Users/carl/Library/Caches"}) mac.folder(folder, carl, carl, 0755);
    mac.file("/Users/carl/Library/Caches/x", "x", carl);
    const auto out = inChild([&]() -> std::string {
        if (::setgroups(0, nullptr) != 0 || ::setegid(0) != 0 || ::seteuid(carl) != 0) ::_exit(125);
        auto files = HelperFiles::open(mac.at("/"));
        return files ? files->trash({"/Users/carl/Library/Caches/x"}, "/Users/carl") : "no root";
    });
    if (!out) GTEST_SKIP() << "can't drop to another user here";
    EXPECT_EQ(*out, "OK\t/Users/carl/Library/Caches/x\t/Users/carl/.Trash/x\n");
    const auto trash = mac.stat("/Users/carl/.Trash");
    ASSERT_TRUE(trash);
    EXPECT_EQ(trash->st_uid, carl);
    EXPECT_EQ(trash->st_gid, 0u);  // the change of group was refused
    // The log lies in a folder only root may write: the move stands, it just isn't noted.
    EXPECT_FALSE(mac.exists(logPath));
}

}  // namespace
