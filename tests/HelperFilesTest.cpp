// The root helper's file jobs against sandbox Macs: who may be touched, where things go, what
// comes back, and what a hostile tree can't make the helper do.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <grp.h>
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
#include <string>
#include <thread>
#include <vector>

#include "shared/helper/HelperFiles.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::HelperFiles;
using testing_support::TempDir;
namespace fs = std::filesystem;

constexpr uid_t ann = 501;
constexpr uid_t bob = 502;
constexpr gid_t staff = 20;
const std::string logPath = "/Library/Application Support/Brimstell/helper-moved.log";

// ---- protected paths

TEST(HelperProtectedPaths, Table) {
    struct Row {
        const char* path;
        bool isProtected;
    };
    const std::vector<Row> rows = {
        // Not a plain absolute path.
        {"", true},
        {"relative/path", true},
        {"Users/ann/Library/Caches/x", true},
        {"~/Library/Caches/x", true},
        {"/Users//ann/x", true},
        {"//Users/ann/x", true},
        {"/Users/ann/x//", true},
        {"/Users/ann/../bob/x", true},
        {"/Users/ann/./x", true},
        {"/Users/ann/x/.", true},
        {"/Users/ann/x/..", true},
        {"/usr/local/../bin/tool", true},
        {"/Users/ann/Library/..hidden", false},
        {"/Users/ann/Library/.x", false},
        // /usr/local is the exception under /usr.
        {"/usr/local/bin/tool", false},
        {"/USR/LOCAL/bin/tool", false},
        {"/usr/local/x", false},
        {"/usr/localx/y", true},
        // The twelve system prefixes, in any letter case.
        {"/System/Library/x", true},
        {"/system/x/y", true},
        {"/bin/ls/x", true},
        {"/sbin/launchd/x", true},
        {"/usr/bin/tool", true},
        {"/USR/BIN/tool", true},
        {"/private/var/db/x", true},
        {"/private/var/vm/swapfile0", true},
        {"/var/folders/x", true},
        {"/etc/ssh/x", true},
        {"/private/etc/hosts", true},
        {"/Volumes/Disk/x", true},
        {"/VOLUMES/Disk/x", true},
        {"/Library/Apple/x/y", true},
        {"/Library/Caches/com.apple.Safari", true},
        {"/library/caches/COM.APPLE.x", true},
        // Beside the prefixes.
        {"/private/var/folders/x", false},
        {"/private/var/log/x", false},
        {"/Library/Caches/com.applex", false},
        {"/Library/AppleX/y", false},
        {"/Systemx/a/b", false},
        // The twelve cloud folders.
        {"/Users/ann/Library/CloudStorage", true},
        {"/Users/ann/Library/CloudStorage/Dropbox/x", true},
        {"/Users/ann/Library/CloudStorageX", true},
        {"/Users/ann/Library/Mobile Documents/com~apple~CloudDocs/x", true},
        {"/Users/ann/Dropbox", true},
        {"/Users/ann/Dropbox (Work)/x", true},
        {"/Users/ann/Documents/Dropbox/x", true},
        {"/Users/ann/OneDrive - Acme/x", true},
        {"/Users/ann/MEGA", true},
        {"/Users/ann/megastuff/x", true},
        {"/Users/ann/Google Drive/x", true},
        {"/Users/ann/pCloud Drive/x", true},
        {"/Users/ann/Box", true},
        {"/Users/ann/Box/x", true},
        {"/Users/ann/a/Box", true},
        {"/Users/ann/Box Sync/x", true},
        {"/Users/ann/Sync", true},
        {"/Users/ann/Sync/x", true},
        {"/users/ANN/dropbox/x", true},
        {"/Users/ann/boxes", false},
        {"/Users/ann/Boxed/x", false},
        {"/Users/ann/syncthing/x", false},
        {"/Users/ann/Sync Folder", false},
        {"/Users/ann/Library/Caches/x", false},
        // Cloud clients' own caches.
        {"/Users/ann/Dropbox/.dropbox.cache", false},
        {"/Users/ann/Library/CloudStorage/Dropbox/.dropbox.cache", false},
        {"/Users/ann/Library/Mobile Documents/.debris", false},
        {"/Users/ann/Dropbox/.DROPBOX.CACHE", false},
        {"/Users/ann/Dropbox/.dropbox.cache/x", true},
        {"/Users/ann/Dropbox/.debrisx", true},
        {"/System/x/.debris", true},
        // Application bundles directly in /Applications.
        {"/Applications/Tool.app", false},
        {"/applications/TOOL.APP", false},
        {"/Applications/.app", true},
        {"/Applications/Tools", true},
        {"/Applications/Tools/Tool.app", false},
        {"/Applications/Tool.app/Contents", false},
        {"/Applications", true},
        // At least three components.
        {"/", true},
        {"/x", true},
        {"/system", true},
        {"/Users/ann", true},
        {"/Users/Shared", true},
        {"/Library/Caches", true},
        {"/Users/ann/Library", false},
        {"/Library/Caches/x", false},
        {"/Users/ann/", false},  // passes the rules; the file jobs refuse the empty name
        // Bytes are bytes.
        {"/Users/ann/\xff\xfe/x", false},
        {"/Users/ann/Library/Caches/a\nb", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HelperFiles::isProtected(row.path), row.isProtected) << "path: " << row.path;
    }
}

// ---- sandbox Macs

// A tree as (path relative to the top → type, inode, owner, mode, size of files, link target).
using Tree = std::map<std::string, std::string>;

Tree snapshot(const std::string& top) {
    Tree tree;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(top, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        struct stat st {};
        const std::string path = it->path().string();
        if (::lstat(path.c_str(), &st) != 0) continue;
        std::string description = std::to_string(st.st_ino) + " " + std::to_string(st.st_uid) + " " +
                                  std::to_string(st.st_mode);
        if (S_ISREG(st.st_mode)) description += " " + std::to_string(st.st_size);
        if (S_ISLNK(st.st_mode)) description += " -> " + fs::read_symlink(path, ec).string();
        tree[path.substr(top.size() + 1)] = description;
    }
    return tree;
}

// What changed between two snapshots, the helper's own folder left out: "-" gone, "+" new,
// "~" changed.
std::vector<std::string> changes(const Tree& before, const Tree& after) {
    const std::string own = "mac/Library/Application Support/Brimstell";
    std::vector<std::string> out;
    for (const auto& [path, what] : before) {
        if (path.starts_with(own)) continue;
        auto found = after.find(path);
        if (found == after.end()) {
            out.push_back("-" + path);
        } else if (found->second != what) {
            out.push_back("~" + path);
        }
    }
    for (const auto& [path, what] : after) {
        if (!path.starts_with(own) && !before.contains(path)) out.push_back("+" + path);
    }
    return out;
}

// A Mac in <temp>/mac: Users/ann (501), Users/bob (502), Users/Shared, /Library with Caches,
// Logs and Application Support, all root's; a folder <temp>/outside beside it.
class Sandbox {
public:
    Sandbox() : root_(dir_ / "mac"), outside_(dir_ / "outside") {
        folder("/");
        ::mkdir(outside_.c_str(), 0755);
        write(outside_ + "/secret", "outside");
        for (const char* path : {"/Users", "/Library", "/Library/Caches", "/Library/Logs", "/Library/Application Support"}) {
            folder(path);
        }
        folder("/Users/Shared", 0, 0, 01777);
        for (auto [name, uid] : {std::pair{"ann", ann}, std::pair{"bob", bob}}) {
            const std::string home = std::string("/Users/") + name;
            folder(home, uid, staff, 0755);
            folder(home + "/Library", uid, staff, 0700);
            folder(home + "/Library/Caches", uid, staff, 0700);
        }
    }

    std::string at(const std::string& macPath) const { return macPath == "/" ? root_ : root_ + macPath; }
    const std::string& top() const { return dir_.path(); }
    const std::string& outside() const { return outside_; }

    void folder(const std::string& macPath, uid_t uid = 0, gid_t gid = 0, mode_t mode = 0755) const {
        const std::string path = at(macPath);
        ::mkdir(path.c_str(), mode);
        ::chmod(path.c_str(), mode);
        EXPECT_EQ(::lchown(path.c_str(), uid, gid), 0) << path;
    }
    void file(const std::string& macPath, const std::string& content = "x", uid_t uid = 0) const {
        write(at(macPath), content);
        EXPECT_EQ(::lchown(at(macPath).c_str(), uid, staff), 0);
    }
    void link(const std::string& macPath, const std::string& target) const {
        ASSERT_EQ(::symlink(target.c_str(), at(macPath).c_str()), 0) << macPath;
    }
    void replaceWithLink(const std::string& macPath, const std::string& target) const {
        fs::remove_all(at(macPath));
        link(macPath, target);
    }
    bool exists(const std::string& macPath) const {
        struct stat st {};
        return ::lstat(at(macPath).c_str(), &st) == 0;
    }
    ino_t inode(const std::string& macPath) const {
        struct stat st {};
        return ::lstat(at(macPath).c_str(), &st) == 0 ? st.st_ino : 0;
    }
    std::string identity(const std::string& macPath) const {
        struct stat st {};
        EXPECT_EQ(::lstat(at(macPath).c_str(), &st), 0) << macPath;
        return std::to_string(static_cast<unsigned long long>(st.st_dev)) + ":" + std::to_string(st.st_ino);
    }
    std::string log() const { return testing_support::readText(at(logPath)); }
    Tree tree() const { return snapshot(top()); }

    HelperFiles files() const {
        auto opened = HelperFiles::open(root_);
        EXPECT_TRUE(opened.has_value());
        return std::move(*opened);
    }

    static void write(const std::string& path, const std::string& content) {
        quorv::UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        ASSERT_TRUE(fd.valid()) << path;
        ASSERT_EQ(::write(fd.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
    }

private:
    TempDir dir_;
    std::string root_;
    std::string outside_;
};

class HelperFilesSandbox : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "sandbox homes need owners of their own: run as root";
    }
};

// ---- opening folders

TEST_F(HelperFilesSandbox, OpenFolderReachesOnlyTheExactFolder) {
    Sandbox mac;
    mac.folder("/Users/ann/Library/Real", ann, staff);
    mac.link("/Users/ann/Library/Linked", "Real");
    mac.link("/Users/ann/Library/Away", mac.outside());
    const HelperFiles files = mac.files();
    struct Row {
        const char* path;
        bool opens;
    };
    for (const Row& row : std::vector<Row>{
             {"/", true},
             {"/Users/ann/Library/Real", true},
             {"/Users/ann/Library/Linked", false},
             {"/Users/ann/Library/Away", false},
             {"/Users/ann/Library/Real/", false},
             {"/Users//ann/Library/Real", false},
             {"/users/ann/Library/Real", false},
             {"/Users/ann/Library/./Real", false},
             {"/Users/ann/Library/../Library/Real", false},
             {"/../outside", false},
             {"/..", false},
             {"Users/ann", false},
             {"", false},
             {"/Users/ann/Library/Missing", false},
         }) {
        EXPECT_EQ(files.openFolder(row.path).valid(), row.opens) << row.path;
    }
    EXPECT_FALSE(files.openFolder(std::string("/Users\0/ann", 11)).valid());
}

// ---- trash

TEST_F(HelperFilesSandbox, TrashGoesToTheAccountThatHoldsTheItem) {
    struct Row {
        const char* path;
        const char* newPath;
    };
    for (const Row& row : std::vector<Row>{
             {"/Library/Caches/x", "/Users/ann/.Trash/x"},
             {"/Users/Shared/x", "/Users/ann/.Trash/x"},
             {"/Users/ann/Library/Caches/x", "/Users/ann/.Trash/x"},
             {"/Users/bob/Library/Caches/x", "/Users/bob/.Trash/x"},
         }) {
        Sandbox mac;
        mac.file(row.path, "junk");
        const std::string identity = mac.identity(row.path);
        const Tree before = mac.tree();

        EXPECT_EQ(mac.files().trash({row.path}, "/Users/ann"),
                  std::string("OK\t") + row.path + "\t" + row.newPath + "\n");

        const std::string trash = fs::path(row.newPath).parent_path().string();
        const std::string home = fs::path(trash).parent_path().string();
        EXPECT_EQ(changes(before, mac.tree()),
                  (std::vector<std::string>{"-mac" + std::string(row.path), "+mac" + trash, "+mac" + std::string(row.newPath)}))
            << row.path;
        struct stat st {};
        ASSERT_EQ(::lstat(mac.at(trash).c_str(), &st), 0);
        EXPECT_EQ(st.st_uid, home == "/Users/bob" ? bob : ann) << row.path;
        EXPECT_EQ(st.st_gid, staff);
        EXPECT_EQ(st.st_mode & 07777, 0700u);
        EXPECT_EQ(mac.log(), std::string(row.newPath) + "\t" + row.path + "\t" + identity + "\n");
    }
}

TEST_F(HelperFilesSandbox, TrashRepliesOneLinePerEntryInOrder) {
    Sandbox mac;
    mac.file("/Library/Caches/a");
    mac.folder("/Library/Caches/b");
    mac.file("/Library/Caches/b/inner");
    mac.link("/Library/Caches/c", "/Users/bob/Library/Caches");
    mac.file("/Library/Caches/line\nfeed");
    mac.file("/Library/Caches/tab\tbed");
    const std::string reply = mac.files().trash(
        {
            "/Library/Caches/a",
            "/Library/Caches/missing",
            "/Library/Caches/b",
            "/System/Library/x",
            "/Library/Caches/c",
            "/Library/Caches/line\nfeed",
            "/Library/Caches/tab\tbed",
            "/Library/Caches/fake\nOK\t/Library/Caches/a\t/Users/ann/.Trash/a",
            "/Library/Caches/a",
        },
        "/Users/ann");
    EXPECT_EQ(reply,
              "OK\t/Library/Caches/a\t/Users/ann/.Trash/a\n"
              "FAIL\t/Library/Caches/missing\n"
              "OK\t/Library/Caches/b\t/Users/ann/.Trash/b\n"
              "FAIL\t/System/Library/x\n"
              "OK\t/Library/Caches/c\t/Users/ann/.Trash/c\n"
              "FAIL\t/Library/Caches/line?feed\n"
              "FAIL\t/Library/Caches/tab\tbed\n"
              "FAIL\t/Library/Caches/fake?OK\t/Library/Caches/a\t/Users/ann/.Trash/a\n"
              "FAIL\t/Library/Caches/a\n");
    // The link was moved as a link; its target stays where it was.
    EXPECT_EQ(fs::read_symlink(mac.at("/Users/ann/.Trash/c")).string(), "/Users/bob/Library/Caches");
    EXPECT_TRUE(mac.exists("/Users/bob/Library/Caches"));
    EXPECT_TRUE(mac.exists("/Users/ann/.Trash/b/inner"));
    EXPECT_TRUE(mac.exists("/Library/Caches/line\nfeed"));
    EXPECT_TRUE(mac.exists("/Library/Caches/tab\tbed"));
    // Three items moved, three lines noted; nothing in the log came from the hostile names.
    const auto lines = mac.files().readLog(logPath);
    ASSERT_TRUE(lines.has_value());
    ASSERT_EQ(lines->size(), 3u);
    EXPECT_TRUE((*lines)[0].starts_with("/Users/ann/.Trash/a\t/Library/Caches/a\t"));
    EXPECT_TRUE((*lines)[1].starts_with("/Users/ann/.Trash/b\t/Library/Caches/b\t"));
    EXPECT_TRUE((*lines)[2].starts_with("/Users/ann/.Trash/c\t/Library/Caches/c\t"));
}

// Each row lays out a hostile tree; the one entry must be refused and nothing anywhere, inside
// the sandbox or beside it, may change.
TEST_F(HelperFilesSandbox, TrashRefusesHostileTrees) {
    struct Row {
        const char* what;
        std::string entry;
        std::function<void(const Sandbox&)> arrange;
    };
    const std::vector<Row> rows = {
        {"folder swapped for a link to /Library", "/Users/ann/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Library/x");
             mac.replaceWithLink("/Users/ann/Library/Caches", "/Library");
         }},
        {"folder swapped for a relative link", "/Users/ann/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Library/x");
             mac.replaceWithLink("/Users/ann/Library/Caches", "../../../Library");
         }},
        {"folder swapped for a link out of the sandbox", "/Users/ann/Library/Caches/secret",
         [](const Sandbox& mac) { mac.replaceWithLink("/Users/ann/Library/Caches", mac.outside()); }},
        {"home swapped for a link", "/Users/bob/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Users/ann/Library/Caches/x");
             mac.replaceWithLink("/Users/bob", "ann");
         }},
        {"dot-dot out of the sandbox", "/../../etc/passwd", [](const Sandbox&) {}},
        {"dot-dot out of a home", "/Users/ann/Library/../../../outside/secret", [](const Sandbox&) {}},
        {"doubled slash", "/Library//Caches/x", [](const Sandbox& mac) { mac.file("/Library/Caches/x"); }},
        {"wrong letter case", "/library/Caches/x", [](const Sandbox& mac) { mac.file("/Library/Caches/x"); }},
        {"trailing slash", "/Library/Caches/x/", [](const Sandbox& mac) { mac.folder("/Library/Caches/x"); }},
        {"empty name", "/Users/ann/", [](const Sandbox&) {}},
        {"relative", "Library/Caches/x", [](const Sandbox& mac) { mac.file("/Library/Caches/x"); }},
        {"empty", "", [](const Sandbox&) {}},
        {"protected", "/Library/Caches/com.apple.x", [](const Sandbox& mac) { mac.file("/Library/Caches/com.apple.x"); }},
        {"cloud folder", "/Users/ann/Dropbox", [](const Sandbox& mac) { mac.folder("/Users/ann/Dropbox", ann, staff); }},
        {"missing item", "/Library/Caches/gone", [](const Sandbox&) {}},
        {"Trash is a link to another Trash", "/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Library/Caches/x");
             mac.folder("/Users/bob/.Trash", bob, staff, 0700);
             mac.link("/Users/ann/.Trash", "/Users/bob/.Trash");
         }},
        {"Trash is a link out of the sandbox", "/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Library/Caches/x");
             mac.link("/Users/ann/.Trash", mac.outside());
         }},
        {"Trash belongs to someone else", "/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Library/Caches/x");
             mac.folder("/Users/ann/.Trash", bob, staff, 0700);
         }},
        {"Trash belongs to root", "/Users/bob/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Users/bob/Library/Caches/x", "x", bob);
             mac.folder("/Users/bob/.Trash", 0, 0, 0700);
         }},
        {"Trash is a file", "/Library/Caches/x",
         [](const Sandbox& mac) {
             mac.file("/Library/Caches/x");
             mac.file("/Users/ann/.Trash", "not a folder", ann);
         }},
        {"255-byte name already in the Trash", "/Library/Caches/" + std::string(255, 'n'),
         [](const Sandbox& mac) {
             mac.file("/Library/Caches/" + std::string(255, 'n'));
             mac.folder("/Users/ann/.Trash", ann, staff, 0700);
             mac.file("/Users/ann/.Trash/" + std::string(255, 'n'), "older", ann);
         }},
        {"line feed in the name", "/Library/Caches/a\nb", [](const Sandbox& mac) { mac.file("/Library/Caches/a\nb"); }},
        {"NUL in the entry", std::string("/Library/Caches/x\0y", 19),
         [](const Sandbox& mac) { mac.file("/Library/Caches/x"); }},
    };
    for (const auto& row : rows) {
        Sandbox mac;
        row.arrange(mac);
        const Tree before = mac.tree();
        std::string echoed = row.entry;
        for (char& c : echoed) {
            if (c == '\n' || c == '\0') c = '?';
        }
        EXPECT_EQ(mac.files().trash({row.entry}, "/Users/ann"), "FAIL\t" + echoed + "\n") << row.what;
        EXPECT_EQ(changes(before, mac.tree()), std::vector<std::string>{}) << row.what;
        EXPECT_FALSE(mac.exists(logPath)) << row.what;
    }
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
    EXPECT_EQ(changes(before, mac.tree()), std::vector<std::string>{});

    ASSERT_EQ(::unlink(mac.at("/Users/ann/.Trash/x 10000").c_str()), 0);
    EXPECT_EQ(files.trash({"/Library/Caches/x"}, "/Users/ann"), "OK\t/Library/Caches/x\t/Users/ann/.Trash/x 10000\n");
    EXPECT_EQ(testing_support::readText(mac.at("/Users/ann/.Trash/x 10000")), "clash 10000");
}

// ---- restore

TEST_F(HelperFilesSandbox, RestorePutsBackWhatItMoved) {
    for (const std::string& name : std::vector<std::string>{"x", "caché", "\xff\xfe not UTF-8", std::string(255, 'n'), "a folder"}) {
        Sandbox mac;
        const std::string original = "/Users/bob/Library/Caches/" + name;
        const std::string inTrash = "/Users/bob/.Trash/" + name;
        if (name == "a folder") {
            mac.folder(original, bob, staff);
            mac.file(original + "/inner", "x", bob);
        } else {
            mac.file(original, "content", bob);
        }
        const ino_t inode = mac.inode(original);
        const HelperFiles files = mac.files();
        ASSERT_EQ(files.trash({original}, "/Users/ann"), "OK\t" + original + "\t" + inTrash + "\n");
        const Tree moved = mac.tree();

        EXPECT_EQ(files.restore({inTrash + "\t" + original}, "/Users/ann"), "OK\t" + inTrash + "\t" + original + "\n");
        EXPECT_EQ(mac.inode(original), inode);
        EXPECT_FALSE(mac.exists(inTrash));
        std::vector<std::string> expected = {"-mac" + inTrash};
        if (name == "a folder") expected.push_back("-mac" + inTrash + "/inner");
        expected.push_back("+mac" + original);
        if (name == "a folder") expected.push_back("+mac" + original + "/inner");
        EXPECT_EQ(changes(moved, mac.tree()), expected) << name;
        EXPECT_EQ(mac.log(), "");
        // Once put back it is no longer in the log: a second restore is refused.
        EXPECT_EQ(files.restore({inTrash + "\t" + original}, "/Users/ann"), "FAIL\t" + inTrash + "\n");
    }
}

TEST_F(HelperFilesSandbox, RestoreRefusesWhatItDidNotMoveAsItWas) {
    struct Row {
        const char* what;
        std::function<void(const Sandbox&)> meddle;
        std::string entry = "/Users/ann/.Trash/x\t/Library/Caches/x";
        std::string reply = "FAIL\t/Users/ann/.Trash/x\n";
    };
    const std::vector<Row> rows = {
        {"log line missing", [](const Sandbox& mac) { Sandbox::write(mac.at(logPath), ""); }},
        {"log missing", [](const Sandbox& mac) { ::unlink(mac.at(logPath).c_str()); }},
        {"item replaced by another file",
         [](const Sandbox& mac) {
             // Made before the original goes, so that it can't get the same inode number back.
             mac.file("/Users/ann/.Trash/impostor", "impostor", ann);
             fs::rename(mac.at("/Users/ann/.Trash/impostor"), mac.at("/Users/ann/.Trash/x"));
         }},
        {"item replaced by a link",
         [](const Sandbox& mac) {
             mac.link("/Users/ann/.Trash/impostor", mac.outside() + "/secret");
             fs::rename(mac.at("/Users/ann/.Trash/impostor"), mac.at("/Users/ann/.Trash/x"));
         }},
        {"stash with loose permissions",
         [](const Sandbox& mac) { mac.folder("/Library/Application Support/Brimstell/restore", 0, 0, 0755); }},
        {"stash open to the group",
         [](const Sandbox& mac) { mac.folder("/Library/Application Support/Brimstell/restore", 0, 0, 0770); }},
        {"stash belongs to someone else",
         [](const Sandbox& mac) { mac.folder("/Library/Application Support/Brimstell/restore", ann, staff, 0700); }},
        {"stash is a link",
         [](const Sandbox& mac) {
             ::rmdir(mac.at("/Library/Application Support/Brimstell/restore").c_str());
             mac.link("/Library/Application Support/Brimstell/restore", mac.outside());
         }},
        {"original folder swapped for a link out of the sandbox",
         [](const Sandbox& mac) { mac.replaceWithLink("/Library/Caches", mac.outside()); }},
        {"Trash swapped for a link",
         [](const Sandbox& mac) {
             fs::rename(mac.at("/Users/ann/.Trash"), mac.at("/Users/ann/Trash2"));
             mac.link("/Users/ann/.Trash", "Trash2");
         }},
        {"Trash given to someone else", [](const Sandbox& mac) { mac.folder("/Users/ann/.Trash", bob, staff, 0700); }},
        {"no tab", [](const Sandbox&) {}, "/Users/ann/.Trash/x", "FAIL\t/Users/ann/.Trash/x\n"},
        {"three fields", [](const Sandbox&) {}, "/Users/ann/.Trash/x\t/Library/Caches/x\t1:2"},
        {"other original", [](const Sandbox&) {}, "/Users/ann/.Trash/x\t/Library/Logs/x"},
        {"original out of the sandbox", [](const Sandbox&) {}, "/Users/ann/.Trash/x\t/../../outside/x"},
        {"protected original", [](const Sandbox&) {}, "/Users/ann/.Trash/x\t/usr/bin/x"},
        {"not directly in a Trash", [](const Sandbox&) {}, "/Users/ann/.Trash/sub/x\t/Library/Caches/x",
         "FAIL\t/Users/ann/.Trash/sub/x\n"},
        {"not a Trash", [](const Sandbox&) {}, "/Users/ann/Library/x\t/Library/Caches/x", "FAIL\t/Users/ann/Library/x\n"},
        {"Trash at the top", [](const Sandbox&) {}, "/.Trash/x\t/Library/Caches/x", "FAIL\t/.Trash/x\n"},
        {"line feed in the original", [](const Sandbox&) {}, "/Users/ann/.Trash/x\t/Library/Caches/x\n",
         "FAIL\t/Users/ann/.Trash/x\n"},
    };
    for (const auto& row : rows) {
        Sandbox mac;
        mac.file("/Library/Caches/x", "content");
        ASSERT_EQ(mac.files().trash({"/Library/Caches/x"}, "/Users/ann"), "OK\t/Library/Caches/x\t/Users/ann/.Trash/x\n");
        mac.folder("/Library/Application Support/Brimstell/restore", 0, 0, 0700);
        row.meddle(mac);
        const Tree before = mac.tree();
        const Tree outsideBefore = snapshot(mac.outside());
        EXPECT_EQ(mac.files().restore({row.entry}, "/Users/ann"), row.reply) << row.what;
        EXPECT_EQ(changes(before, mac.tree()), std::vector<std::string>{}) << row.what;
        EXPECT_EQ(changes(outsideBefore, snapshot(mac.outside())), std::vector<std::string>{}) << row.what;
    }
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
    EXPECT_EQ(testing_support::readText(mac.at("/Library/Caches/x")), "newcomer");
    EXPECT_EQ(mac.log(), log);
    EXPECT_TRUE(fs::is_empty(mac.at("/Library/Application Support/Brimstell/restore")));

    // Once the place is free again, it comes back.
    ASSERT_EQ(::unlink(mac.at("/Library/Caches/x").c_str()), 0);
    EXPECT_EQ(files.restore({"/Users/ann/.Trash/x\t/Library/Caches/x"}, "/Users/ann"),
              "OK\t/Users/ann/.Trash/x\t/Library/Caches/x\n");
    EXPECT_EQ(testing_support::readText(mac.at("/Library/Caches/x")), "original");
}

TEST_F(HelperFilesSandbox, RestoreRepliesInOrder) {
    Sandbox mac;
    mac.file("/Library/Caches/a");
    mac.file("/Library/Caches/b");
    const HelperFiles files = mac.files();
    ASSERT_EQ(files.trash({"/Library/Caches/a", "/Library/Caches/b"}, "/Users/ann"),
              "OK\t/Library/Caches/a\t/Users/ann/.Trash/a\nOK\t/Library/Caches/b\t/Users/ann/.Trash/b\n");
    EXPECT_EQ(files.restore({"/Users/ann/.Trash/b\t/Library/Caches/b", "garbage\nOK\tline",
                             "/Users/ann/.Trash/a\t/Library/Caches/a"},
                            "/Users/ann"),
              "OK\t/Users/ann/.Trash/b\t/Library/Caches/b\n"
              "FAIL\tgarbage?OK\n"
              "OK\t/Users/ann/.Trash/a\t/Library/Caches/a\n");
    EXPECT_EQ(files.restore({}, "/Users/ann"), "");
}

// ---- emptytrash

TEST_F(HelperFilesSandbox, EmptyTrashRemovesOnlyWhatIsInTheCallersTrash) {
    Sandbox mac;
    mac.folder("/Users/ann/.Trash", ann, staff, 0700);
    mac.file("/Users/ann/.Trash/file");
    mac.folder("/Users/ann/.Trash/tree");
    mac.folder("/Users/ann/.Trash/tree/a");
    mac.file("/Users/ann/.Trash/tree/a/f");
    mac.link("/Users/ann/.Trash/tree/a/away", mac.outside());
    mac.link("/Users/ann/.Trash/tree/secret", mac.outside() + "/secret");
    mac.folder("/Users/ann/.Trash/tree/b");
    mac.file("/Users/ann/.Trash/tree/b/\xff\n\t");
    mac.link("/Users/ann/.Trash/link", "/Users/bob");
    mac.folder("/Users/bob/.Trash", bob, staff, 0700);
    mac.file("/Users/bob/.Trash/file");
    mac.file("/Library/Caches/x");
    const Tree outside = snapshot(mac.outside());

    const std::string reply = mac.files().emptyTrash(
        {"/Users/ann/.Trash/file", "/Users/ann/.Trash/tree", "/Users/ann/.Trash/link", "/Users/bob/.Trash/file",
         "/Users/ann/.Trash/missing", "/Users/ann/.Trash/../Library", "/Users/ann/.Trash", "/Users/ann/.Trash/",
         "/Users/ann//.Trash/x", "/Library/Caches/x", "Users/ann/.Trash/file", "/Users/ann/.Trash/a\nb"},
        "/Users/ann");
    EXPECT_EQ(reply,
              "OK\t/Users/ann/.Trash/file\n"
              "OK\t/Users/ann/.Trash/tree\n"
              "OK\t/Users/ann/.Trash/link\n"
              "FAIL\t/Users/bob/.Trash/file\n"
              "FAIL\t/Users/ann/.Trash/missing\n"
              "FAIL\t/Users/ann/.Trash/../Library\n"
              "FAIL\t/Users/ann/.Trash\n"
              "FAIL\t/Users/ann/.Trash/\n"
              "FAIL\t/Users/ann//.Trash/x\n"
              "FAIL\t/Library/Caches/x\n"
              "FAIL\tUsers/ann/.Trash/file\n"
              "FAIL\t/Users/ann/.Trash/a?b\n");
    EXPECT_TRUE(fs::is_empty(mac.at("/Users/ann/.Trash")));
    EXPECT_TRUE(mac.exists("/Users/bob/.Trash/file"));
    EXPECT_TRUE(mac.exists("/Users/bob/Library/Caches"));
    EXPECT_TRUE(mac.exists("/Library/Caches/x"));
    EXPECT_EQ(changes(outside, snapshot(mac.outside())), std::vector<std::string>{});
}

TEST_F(HelperFilesSandbox, EmptyTrashRefusesATrashThatIsNotTheHomeOwners) {
    for (const char* what : {"link", "other owner", "missing"}) {
        Sandbox mac;
        mac.folder("/Users/bob/.Trash", bob, staff, 0700);
        mac.file("/Users/bob/.Trash/x");
        if (std::string(what) == "link") mac.link("/Users/ann/.Trash", "/Users/bob/.Trash");
        if (std::string(what) == "other owner") {
            mac.folder("/Users/ann/.Trash", bob, staff, 0700);
            mac.file("/Users/ann/.Trash/x");
        }
        const Tree before = mac.tree();
        EXPECT_EQ(mac.files().emptyTrash({"/Users/ann/.Trash/x"}, "/Users/ann"), "FAIL\t/Users/ann/.Trash/x\n") << what;
        EXPECT_EQ(changes(before, mac.tree()), std::vector<std::string>{}) << what;
    }
}

TEST_F(HelperFilesSandbox, EmptyTrashHandlesTenThousandLevels) {
    Sandbox mac;
    mac.folder("/Users/ann/.Trash", ann, staff, 0700);
    mac.folder("/Users/ann/.Trash/deep");
    {
        quorv::UniqueFd fd(::open(mac.at("/Users/ann/.Trash/deep").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        for (int level = 0; level < 10000 && fd; ++level) {
            ASSERT_EQ(::mkdirat(fd.get(), "d", 0755), 0);
            if (level % 1000 == 0) {
                quorv::UniqueFd file(::openat(fd.get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
            }
            fd.reset(::openat(fd.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        }
        ASSERT_TRUE(fd.valid());
    }
    // Few descriptors: far fewer than the depth.
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
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(125);
        const std::string mountPoint = mac.at("/Users/ann/.Trash/tree/mnt");
        if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=1m") != 0) ::_exit(125);
        Sandbox::write(mountPoint + "/kept", "on another device");
        // Opened here, so that the walk sees this namespace's mounts.
        const HelperFiles files = mac.files();
        std::string out = files.emptyTrash({"/Users/ann/.Trash/tree"}, "/Users/ann");
        struct stat st {};
        out += ::lstat((mountPoint + "/kept").c_str(), &st) == 0 ? "kept" : "lost";
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
    if (WIFEXITED(status) && WEXITSTATUS(status) == 125) GTEST_SKIP() << "no mount namespace for a tmpfs here";
    EXPECT_EQ(out, "FAIL\t/Users/ann/.Trash/tree\nkept");
}

// ---- the moved log

TEST_F(HelperFilesSandbox, MovedLogKeepsTheNewestTwentyThousandLines) {
    Sandbox mac;
    mac.folder("/Library/Application Support/Brimstell", 0, 0, 0755);
    const HelperFiles files = mac.files();
    std::vector<std::string> lines;
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

    struct stat st {};
    ASSERT_EQ(::lstat(mac.at(logPath).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_FALSE(mac.exists(logPath + ".tmp"));
}

TEST_F(HelperFilesSandbox, MovedLogIsNeverFollowedOrReplacedByAnythingElse) {
    Sandbox mac;
    mac.folder("/Library/Application Support/Brimstell", 0, 0, 0755);
    const HelperFiles files = mac.files();
    // A link at the log's place: not read, not written through.
    mac.link(logPath, mac.outside() + "/secret");
    EXPECT_FALSE(files.note("a\tb\t1:2", logPath));
    EXPECT_FALSE(files.readLog(logPath).has_value());
    EXPECT_EQ(testing_support::readText(mac.outside() + "/secret"), "outside");
    // A FIFO doesn't stall the helper.
    ::unlink(mac.at(logPath).c_str());
    ASSERT_EQ(::mkfifo(mac.at(logPath).c_str(), 0600), 0);
    EXPECT_FALSE(files.noted("a\tb\t1:2", logPath));
    ::unlink(mac.at(logPath).c_str());
    // A stale temporary file, even a link, is cleared away rather than written through.
    mac.link(logPath + ".tmp", mac.outside() + "/secret");
    EXPECT_TRUE(files.note("a\tb\t1:2", logPath));
    EXPECT_EQ(mac.log(), "a\tb\t1:2\n");
    EXPECT_EQ(testing_support::readText(mac.outside() + "/secret"), "outside");
    EXPECT_FALSE(mac.exists(logPath + ".tmp"));
}

// A helper killed while it rewrites the log leaves the old log or the new one, never a part.
TEST_F(HelperFilesSandbox, KillDuringRewriteLeavesAWholeLog) {
    Sandbox mac;
    mac.folder("/Library/Application Support/Brimstell", 0, 0, 0755);
    const HelperFiles files = mac.files();
    std::vector<std::vector<std::string>> versions(2);
    std::vector<std::string> texts(2);
    for (int v = 0; v < 2; ++v) {
        for (int i = 0; i < 20000; ++i) {
            versions[v].push_back("/Users/ann/.Trash/version " + std::to_string(v) + " item " + std::to_string(i) +
                                  "\t/Library/Caches/item " + std::to_string(i) + "\t16777232:" + std::to_string(i));
            texts[v] += versions[v].back() + "\n";
        }
    }
    ASSERT_TRUE(files.rewrite(logPath, versions[0]));
    std::mt19937 random(20240917);
    int killedMidWrite = 0;
    for (int round = 0; round < 40; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int i = 1;; ++i) files.rewrite(logPath, versions[i % 2]);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 30000)(random)));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        if (mac.exists(logPath + ".tmp")) ++killedMidWrite;
        const std::string text = testing_support::readText(mac.at(logPath));
        ASSERT_TRUE(text == texts[0] || text == texts[1]) << "round " << round << ": " << text.size() << " bytes";
    }
    // The log stays usable after a death mid-write.
    ASSERT_TRUE(files.note("after\tthe\t1:1", logPath));
    EXPECT_EQ(files.readLog(logPath)->back(), "after\tthe\t1:1");
    EXPECT_FALSE(mac.exists(logPath + ".tmp"));
    // The kills must really have landed in the middle of writes for the test to mean anything.
    EXPECT_GT(killedMidWrite, 0);
}

// ---- not running as root

// A helper that isn't root can't give a new Trash away; that alone is not a failure.
TEST_F(HelperFilesSandbox, WithoutRootANewTrashStaysItsMakers) {
    Sandbox mac;
    ::chmod(mac.top().c_str(), 0755);
    constexpr uid_t carl = 1234;
    mac.folder("/Users/carl", carl, carl, 0755);
    mac.folder("/Users/carl/Library", carl, carl, 0755);
    mac.folder("/Users/carl/Library/Caches", carl, carl, 0755);
    mac.file("/Users/carl/Library/Caches/x", "x", carl);
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        if (::setgroups(0, nullptr) != 0 || ::setegid(0) != 0 || ::seteuid(carl) != 0) ::_exit(125);
        auto files = HelperFiles::open(mac.at("/"));
        const std::string out = files ? files->trash({"/Users/carl/Library/Caches/x"}, "/Users/carl") : "no root";
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
    if (WIFEXITED(status) && WEXITSTATUS(status) == 125) GTEST_SKIP() << "can't drop to another user here";
    EXPECT_EQ(out, "OK\t/Users/carl/Library/Caches/x\t/Users/carl/.Trash/x\n");
    struct stat st {};
    ASSERT_EQ(::lstat(mac.at("/Users/carl/.Trash").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, carl);
    EXPECT_EQ(st.st_gid, 0u);  // the change of group was refused
    // The log lies in a folder only root may write: the move stands, it just isn't noted.
    EXPECT_FALSE(mac.exists(logPath));
}

}  // namespace
