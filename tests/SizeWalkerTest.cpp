// The folder-size walker and FS::size / FS::fileSize, checked against du on the same trees.
// du is the reference: `du -sx -B1` gives allocated bytes on one file system, each inode once.

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kit/files/FS.hpp"
#include "kit/files/SizeWalker.hpp"
#include "support/FileTree.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using brimstell::FS;
using brimstell::SizeResult;
using brimstell::SizeWalker;
using testing_support::makeFolders;

using testing_support::TempDir;  // gives back the permissions a test took away

void writeFile(const std::string& path, std::size_t bytes) { testing_support::writeBytes(path, std::string(bytes, 'x')); }

void makeLink(const std::string& target, const std::string& name, bool symbolic) {
    ASSERT_EQ(symbolic ? ::symlink(target.c_str(), name.c_str()) : ::link(target.c_str(), name.c_str()), 0) << name;
}

// A walk's bytes, files, folders and unreadable folders, to compare in one go.
using Counts = std::array<std::int64_t, 4>;
Counts counts(const SizeResult& r) { return {r.bytes, r.files, r.folders, r.unreadable}; }

// A file of logical length `length` with only `written` bytes of data at `offset`.
void writeSparse(const std::string& path, off_t length, off_t offset, std::size_t written) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    const std::string data(written, 'y');
    ASSERT_EQ(::pwrite(fd, data.data(), data.size(), offset), static_cast<ssize_t>(data.size()));
    ASSERT_EQ(::ftruncate(fd, length), 0);
    ::close(fd);
}

std::int64_t blocksOf(const std::string& path) {
    struct stat st{};
    return ::lstat(path.c_str(), &st) != 0 ? -1 : static_cast<std::int64_t>(st.st_blocks) * 512;
}

// du's byte totals for the paths given together, in order; a path du leaves out (one it has seen
// already) is 0. du prints the paths in the order given, so each line belongs to the next path of
// that name. Paths must be plain: they go through the shell.
std::vector<std::int64_t> du(const std::vector<std::string>& paths, const char* flags = "-sx -B1") {
    std::string cmd = std::string("du ") + flags;
    for (const auto& p : paths) cmd += " '" + p + "'";
    std::vector<std::int64_t> out(paths.size(), 0);
    std::size_t next = 0;
    if (FILE* f = ::popen((cmd + " 2>/dev/null").c_str(), "r")) {
        char line[8192];
        while (std::fgets(line, sizeof line, f)) {
            const char* tab = std::strchr(line, '\t');
            if (!tab) continue;
            std::string p(tab + 1);
            if (!p.empty() && p.back() == '\n') p.pop_back();
            while (next < paths.size() && paths[next] != p) ++next;
            if (next < paths.size()) out[next++] = std::strtoll(line, nullptr, 10);
        }
        ::pclose(f);
    }
    return out;
}

std::int64_t du1(const std::string& path) { return du({path}).front(); }

// Trees with what makes sizes go wrong, built under t/"top", with the files and folders each holds.
struct Shape {
    const char* name;
    std::function<void(const TempDir&)> build;
    std::int64_t files, folders;
};

const std::vector<Shape> shapes = {
    {"plain sizes",
     [](const TempDir& t) {
         makeFolders(t / "top/a/b");
         makeFolders(t / "top/empty");
         writeFile(t / "top/zero", 0);
         writeFile(t / "top/one", 1);
         writeFile(t / "top/a/block-and-a-byte", 4097);
         writeFile(t / "top/a/b/mega", 1 << 20);
     },
     4, 4},
    {"hard links inside the tree count once",
     [](const TempDir& t) {
         makeFolders(t / "top/x");
         makeFolders(t / "top/y");
         writeFile(t / "top/x/big", 2 << 20);
         makeLink(t / "top/x/big", t / "top/y/big-again", false);
         makeLink(t / "top/x/big", t / "top/x/big-third", false);
     },
     1, 3},
    {"sparse files count their allocated blocks",
     [](const TempDir& t) {
         makeFolders(t / "top");
         writeSparse(t / "top/hole-gig", off_t{1} << 30, off_t{512} << 20, 8192);
         writeSparse(t / "top/tail-only", off_t{64} << 20, (off_t{64} << 20) - 100, 100);
     },
     2, 1},
    {"links to a big file and to a folder are not followed",
     [](const TempDir& t) {
         makeFolders(t / "outside");
         writeFile(t / "outside/huge", 4 << 20);
         makeFolders(t / "top");
         writeFile(t / "top/small", 10);
         makeLink(t / "outside/huge", t / "top/to-file", true);
         makeLink(t / "outside", t / "top/to-folder", true);
         makeLink("../top", t / "top/to-itself", true);
         makeLink("nowhere/at/all", t / "top/dangling", true);
     },
     5, 1},
    {"hostile names",
     [](const TempDir& t) {
         const std::string longName(255, 'n');
         makeFolders(t / "top/" + longName);
         writeFile(t / "top/" + longName + "/" + std::string(254, 'f') + "z", 5000);
         writeFile(t / "top/line\nfeed", 3000);
         writeFile(t / "top/tab\there", 3000);
         makeFolders(t / "top/bad\xff\xfe utf8");
         writeFile(t / "top/bad\xff\xfe utf8/\xc3\x28", 9000);
         writeFile(t / "top/-rf", 1);
         writeFile(t / "top/...", 1);
         makeFolders(t / "top/.hidden\n");
         writeFile(t / "top/.hidden\n/x", 20000);
     },
     7, 4},
};

TEST(SizeWalker, AgreesWithDuOnTreesWithLinksHolesAndHostileNames) {
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape.name);
        TempDir t;
        shape.build(t);
        if (::testing::Test::HasFatalFailure()) return;
        const SizeResult r = SizeWalker::walk(t / "top");
        EXPECT_EQ(counts(r), (Counts{du1(t / "top"), shape.files, shape.folders, 0}));
        // A folder's size is what lies beneath it: du's figure less the folder's own blocks.
        EXPECT_EQ(r.topFolderBytes, blocksOf(t / "top"));
        EXPECT_EQ(FS::size(t / "top"), r.bytes - blocksOf(t / "top"));
    }
}

TEST(SizeWalker, MissingPathsFilesAndLinksAtTheTop) {
    TempDir t;
    writeFile(t / "file", 10000);
    writeFile(t / "big", 3 << 20);
    makeLink(t / "big", t / "link", true);
    makeFolders(t / "folder");
    writeFile(t / "folder/inner", 50000);
    makeLink(t / "folder", t / "folder-link", true);
    const struct {
        std::string path;
        std::int64_t size, fileSize, files, folders;  // the walk's bytes, FS::fileSize, the walk's counts
    } cases[] = {
        {t / "nothing-here", 0, 0, 0, 0},
        {t / "nothing/deeper", 0, 0, 0, 0},
        {"", 0, 0, 0, 0},
        {t / "file", blocksOf(t / "file"), blocksOf(t / "file"), 1, 0},
        // A link at the top counts itself, not the 3 MiB or the folder it points at.
        {t / "link", blocksOf(t / "link"), blocksOf(t / "link"), 1, 0},
        {t / "folder-link", blocksOf(t / "folder-link"), blocksOf(t / "folder-link"), 1, 0},
        // fileSize of a folder is its own entry; the walk counts all of it, FS::size what is beneath.
        {t / "folder", blocksOf(t / "folder") + blocksOf(t / "folder/inner"), blocksOf(t / "folder"), 1, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        const SizeResult r = SizeWalker::walk(c.path);
        EXPECT_EQ(counts(r), (Counts{c.size, c.files, c.folders, 0}));
        EXPECT_EQ(FS::size(c.path), c.folders > 0 ? c.size - c.fileSize : c.size);
        EXPECT_EQ(FS::fileSize(c.path), c.fileSize);
    }
}

TEST(SizeWalker, SeveralPathsShareTheInodeSetLikeDu) {
    TempDir t;
    makeFolders(t / "a/inner");
    makeFolders(t / "b");
    writeFile(t / "a/own", 40000);
    writeFile(t / "a/inner/deep", 70000);
    writeFile(t / "a/shared", 1 << 20);
    makeLink(t / "a/shared", t / "b/shared-too", false);
    writeFile(t / "b/own", 12000);
    writeFile(t / "lone", 30000);
    makeLink(t / "a/shared", t / "loose-link", false);

    const std::vector<std::vector<std::string>> lists = {
        {t / "a", t / "b"},                    // the shared file counts for a
        {t / "b", t / "a"},                    // ... and for b when b comes first
        {t / "a", t / "a/inner"},              // a path inside an earlier one gives 0
        {t / "a/inner", t / "a"},              // an earlier inner path is left out of the outer
        {t / "a", t / "a"},                    // the same path twice counts once
        {t / "a/own", t / "a"},                // a file named before its folder
        {t / "a", t / "a/own", t / "lone"},    // ... and after it
        {t / "loose-link", t / "a", t / "b"},  // a hard link named at the top comes first
        {t / "b", t / "loose-link", t / "a"},
        {t / "missing", t / "a", t.path()},
    };
    for (const auto& paths : lists) {
        std::string label;
        for (const auto& p : paths) label += p.substr(t.path().size()) + " ";
        SCOPED_TRACE(label);
        const auto got = SizeWalker::walkMany(paths);
        ASSERT_EQ(got.size(), paths.size());
        const auto want = du(paths);
        for (std::size_t i = 0; i < paths.size(); ++i) EXPECT_EQ(got[i].bytes, want[i]) << paths[i];
    }
    EXPECT_TRUE(SizeWalker::walkMany({}).empty());
}

TEST(SizeWalker, AgreesWithDuWhateverTheThreadsAndHeldFolders) {
    // A comb: a spine 300 folders deep with a side folder at every level, so a depth-first walk
    // holds a folder open at each level while its side is pending, and over the limit it must
    // reopen folders from an ancestor.
    TempDir t;
    std::string spine = t / "top";
    for (int i = 0; i < 300; ++i) {
        makeFolders(spine + "/side");
        writeFile(spine + "/side/f", static_cast<std::size_t>(i % 7) * 3000);
        makeLink("..", spine + "/side/up", true);
        spine += "/s";
    }
    makeFolders(spine);
    const std::int64_t want = du1(t / "top");
    const struct {
        unsigned threads, held;
    } cases[] = {{1, 0}, {2, 0}, {8, 0}, {1, 1}, {2, 1}, {4, 3}, {8, 16}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.threads << " threads, " << c.held << " held");
        EXPECT_EQ(counts(SizeWalker::walkMany({t / "top"}, {c.threads, c.held}).front()), (Counts{want, 600, 601, 0}));
    }

    // With few descriptors to spare the walk still reads everything: it bounds what it holds.
    struct rlimit old{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
    struct rlimit tight = old;
    tight.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    const auto r = SizeWalker::walk(t / "top");
    ::setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(counts(r), (Counts{want, 600, 601, 0}));
}

TEST(SizeWalker, TenThousandLevelsDeep) {
    // In memory where there is a tmpfs: on a busy disk 10,000 mkdir and rmdir can take half a
    // minute of journal waits, and the depth is what this is about.
    TempDir t;
    std::string top = t / "top", shm = "/dev/shm/brimstell-walker.XXXXXX";
    if (::access("/dev/shm", W_OK) == 0 && ::mkdtemp(shm.data())) top = shm;
    makeFolders(top);
    ASSERT_TRUE(testing_support::makeChain(top, "d", 10000));
    EXPECT_EQ(counts(SizeWalker::walk(top)), (Counts{du1(top), 1, 10001, 0}));
    testing_support::removeTree(top);
}

// Measuring a folder doesn't make it look used: Auto Clean's Downloads rule goes by access times.
TEST(SizeWalker, LeavesFoldersAccessTimesAlone) {
    TempDir t;
    makeFolders(t / "top/inner");
    writeFile(t / "top/inner/f", 5000);
    const timespec old[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};  // 2001, long before the change time
    auto age = [&] {
        for (const char* rel : {"top", "top/inner"}) ::utimensat(AT_FDCWD, (t / rel).c_str(), old, AT_SYMLINK_NOFOLLOW);
    };
    auto accessed = [&](const char* rel) {
        struct stat st{};
        ::stat((t / rel).c_str(), &st);
        return st.st_atim.tv_sec;
    };
    // Does this file system record reading a folder at all?
    age();
    if (DIR* d = ::opendir((t / "top/inner").c_str())) {
        while (::readdir(d)) continue;
        ::closedir(d);
    }
    if (accessed("top/inner") == old[0].tv_sec) GTEST_SKIP() << "this file system does not record folder reads (noatime)";

    age();
    EXPECT_GT(SizeWalker::walk(t / "top").bytes, 0);
    EXPECT_EQ(accessed("top"), old[0].tv_sec);
    EXPECT_EQ(accessed("top/inner"), old[0].tv_sec);
}

TEST(SizeWalker, UnreadableFolderCountsItsOwnBlocksOnly) {
    TempDir t;
    makeFolders(t / "top/locked");
    makeFolders(t / "top/open");
    writeFile(t / "top/locked/secret", 1 << 20);
    writeFile(t / "top/open/visible", 30000);
    const std::int64_t all = du1(t / "top"), hidden = blocksOf(t / "top/locked/secret");
    ASSERT_EQ(::chmod((t / "top/locked").c_str(), 0), 0);
    // Root reads a mode-000 folder anyway: the walk runs where that power is given up (and so
    // have the walker's threads that it starts).
    SizeResult r;
    if (!testing_support::withoutFileOverrides([&] { r = SizeWalker::walk(t / "top"); })) {
        GTEST_SKIP() << "cannot give up root's read override here";
    }
    // du would print "cannot read directory" and count the same: the folder's own blocks.
    EXPECT_EQ(counts(r), (Counts{all - hidden, 1, 3, 1}));
}

TEST(SizeWalker, SubtreeDeletedWhileWalking) {
    TempDir t;
    for (int d = 0; d < 60; ++d) {
        const std::string dir = t / "top/d" + std::to_string(d);
        makeFolders(dir + "/sub");
        for (int f = 0; f < 40; ++f) writeFile(dir + "/sub/f" + std::to_string(f), 100);
        writeFile(dir + "/g", 100);
    }
    const std::int64_t before = du1(t / "top");
    for (int round = 0; round < 3; ++round) {
        std::atomic<bool> go{false};
        std::thread remover([&] {
            while (!go.load()) std::this_thread::yield();
            for (int d = round * 20; d < round * 20 + 20; ++d) {
                std::system(("rm -rf '" + t.path() + "/top/d" + std::to_string(d) + "'").c_str());
            }
        });
        go = true;
        const SizeResult r = SizeWalker::walk(t / "top");
        remover.join();
        EXPECT_LE(r.bytes, before);
        EXPECT_GE(r.bytes, du1(t / "top"));
        EXPECT_EQ(r.unreadable, 0);  // a folder that vanished is not one that couldn't be read
    }
    EXPECT_EQ(SizeWalker::walk(t / "top").bytes, du1(t / "top"));
}

TEST(SizeWalker, StaysOnOneFileSystem) {
    TempDir t;
    makeFolders(t / "top/mnt");
    makeFolders(t / "top/loop");
    writeFile(t / "top/here", 5000);
    const std::int64_t alone = du1(t / "top"), mntBlocks = blocksOf(t / "top/mnt"), loopBlocks = blocksOf(t / "top/loop");
    if (::mount("brimstell-test", (t / "top/mnt").c_str(), "tmpfs", 0, "size=8m") != 0) {
        GTEST_SKIP() << "cannot mount here";
    }
    writeFile(t / "top/mnt/there", 2 << 20);
    // The top mounted again inside itself: same device, so du -x would go in (and find a cycle).
    const bool bound = ::mount((t / "top").c_str(), (t / "top/loop").c_str(), nullptr, MS_BIND, nullptr) == 0;
    const SizeResult r = SizeWalker::walk(t / "top");
    const SizeResult inside = SizeWalker::walk(t / "top/mnt");
    if (bound) ::umount2((t / "top/loop").c_str(), MNT_DETACH);
    const std::int64_t crossing = du({t / "top"}, "-s -B1").front();
    const std::int64_t oneFileSystem = du1(t / "top");
    ::umount2((t / "top/mnt").c_str(), MNT_DETACH);
    // Like du -x a mount point is left out altogether, the folder under it too; du without -x
    // counts what is mounted there. du -x ran with the bind mount gone, so it counts "loop".
    EXPECT_EQ(counts(r), (Counts{alone - mntBlocks - (bound ? loopBlocks : 0), 1, bound ? 1 : 2, 0}));
    EXPECT_EQ(r.bytes, oneFileSystem - (bound ? loopBlocks : 0));
    EXPECT_GT(crossing, oneFileSystem);
    // Walked from inside, the mounted file system is the one being measured.
    EXPECT_GE(inside.bytes, 2 << 20);
    EXPECT_EQ(inside.files, 1);
}

}  // namespace
