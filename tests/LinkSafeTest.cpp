// The link-safe file layer: checked opens, folders made one level at a time, and the tree remover
// on hostile trees (very deep, odd names, links, things vanishing or swapped mid-walk, mounts).

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "support/FileTree.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/posix/LinkSafe.hpp"

namespace {

using quorv::LinkSafe;
using quorv::UniqueFd;
using namespace testing_support;

std::string realOf(const std::string& path) { return quorv::LinkSafe::resolve(path).value_or(""); }

dev_t deviceOf(const std::string& path) {
    struct stat st{};
    EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
    return st.st_dev;
}

TEST(LinkSafeOpen, ExactOpensOnlyThePlainRealPathWithoutLinks) {
    TempDir dir;
    const std::string base = realOf(dir.path());
    makeFolders(base + "/real/inner");
    makeFolders(base + "/elsewhere/inner");
    ASSERT_EQ(::symlink((base + "/elsewhere").c_str(), (base + "/link").c_str()), 0);
    ASSERT_EQ(::symlink((base + "/elsewhere/inner").c_str(), (base + "/real/last").c_str()), 0);
    writeBytes(base + "/real/file", "x");
    const struct {
        std::string path;
        int error;  // 0: opens
    } cases[] = {
        {base + "/real/inner", 0},
        {"/", 0},
        {base + "/link/inner", ELOOP},  // a link on the way
        {base + "/real/last", ELOOP},   // a link at the end
        {base + "/real//inner", EINVAL},
        {base + "/real/inner/", EINVAL},
        {base + "/real/./inner", EINVAL},
        {base + "/real/../real/inner", EINVAL},
        {base + "/real/inner/..", EINVAL},
        {"real/inner", EINVAL},
        {"", EINVAL},
        {base + "/real/missing", ENOENT},
        {base + "/real/file", ENOTDIR},
    };
    for (const auto& c : cases) {
        errno = 0;
        UniqueFd fd = LinkSafe::openExact(c.path);
        EXPECT_EQ(fd.valid(), c.error == 0) << c.path;
        const int error = errno;
        EXPECT_EQ(c.error == 0 ? 0 : error, c.error) << c.path;
        EXPECT_EQ(fd ? LinkSafe::pathOf(fd.get()) : std::optional<std::string>(c.path), c.path);
    }
    EXPECT_EQ(LinkSafe::resolve(base + "/link/inner"), base + "/elsewhere/inner");
}

TEST(LinkSafeOpen, MakeExactMakesMissingLevelsButNothingThroughALink) {
    TempDir dir;
    const std::string base = realOf(dir.path());
    makeFolders(base + "/mine");
    makeFolders(base + "/theirs");
    ASSERT_EQ(::symlink((base + "/theirs").c_str(), (base + "/mine/swapped").c_str()), 0);

    UniqueFd made = LinkSafe::makeExact(base + "/mine/a/b/c", 0700);
    ASSERT_TRUE(made);
    EXPECT_EQ(LinkSafe::pathOf(made.get()), base + "/mine/a/b/c");

    errno = 0;
    EXPECT_FALSE(LinkSafe::makeExact(base + "/mine/swapped/x/y", 0700));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_TRUE(snapshotTree(base + "/theirs").size() == 1) << "a folder was made through the link";
    EXPECT_FALSE(LinkSafe::makeExact(base + "/mine/a/../b", 0700));
    EXPECT_FALSE(exists(base + "/mine/b"));
}

// ---- removing trees

struct Hostile {
    const char* what;
    // Builds the tree at top (outside is a folder beside it that must survive), returns whether
    // the removal is expected to leave nothing behind.
    std::function<bool(const std::string& top, const std::string& outside)> build;
};

TEST(LinkSafeRemove, HostileTreesGoWithoutTouchingAnythingOutside) {
    const Hostile cases[] = {
        {"2,000 folders deep", [](const std::string& top, const std::string&) {
             makeFolders(top);
             return makeChain(top, "d", 2000);
         }},
        {"names with line feeds, tabs and bytes that aren't UTF-8", [](const std::string& top, const std::string&) {
             for (const char* name : {"a\nb", "\t", "\xff\xfe", "-rf", " ", "x\r"}) {
                 makeFolders(top + "/" + name + "/" + name);
                 writeBytes(top + "/" + name + "/" + name + "/" + name, "x");
             }
             return true;
         }},
        {"links to the outside, to a file there and dangling", [](const std::string& top, const std::string& outside) {
             makeFolders(top + "/in");
             return ::symlink(outside.c_str(), (top + "/in/folder").c_str()) == 0 &&
                    ::symlink((outside + "/keep").c_str(), (top + "/file").c_str()) == 0 &&
                    ::symlink("/nowhere/at/all", (top + "/dangling").c_str()) == 0;
         }},
        {"read-only and unsearchable folders of our own", [](const std::string& top, const std::string&) {
             makeFolders(top + "/ro/deeper");
             writeBytes(top + "/ro/deeper/f", "x");
             return ::chmod((top + "/ro/deeper").c_str(), 0) == 0 && ::chmod((top + "/ro").c_str(), 0555) == 0 &&
                    ::chmod(top.c_str(), 0444) == 0;
         }},
        {"a file, not a folder", [](const std::string& top, const std::string&) {
             writeBytes(top, "x");
             return true;
         }},
        {"nothing there", [](const std::string&, const std::string&) { return true; }},
    };
    for (const auto& c : cases) {
        TempDir dir;
        const std::string top = dir / "top";
        const std::string outside = dir / "outside";
        makeFolders(outside + "/sub");
        writeBytes(outside + "/keep", "keep");
        const auto before = snapshotTree(outside);
        ASSERT_TRUE(c.build(top, outside)) << c.what;
        UniqueFd parent = LinkSafe::openFolder(dir.path(), false);
        EXPECT_TRUE(LinkSafe::removeTree(parent.get(), "top", deviceOf(dir.path()))) << c.what;
        EXPECT_FALSE(exists(top)) << c.what;
        EXPECT_EQ(snapshotTree(outside), before) << c.what;
    }
}

// Another thread keeps swapping a folder of the tree for a link to the outside (and back) or
// deleting what the remover is about to read: the outside never loses anything.
TEST(LinkSafeRemove, SwapsAndVanishingFilesMidRemovalNeverReachOutside) {
    for (int round = 0; round < 60; ++round) {
        TempDir dir;
        const std::string top = dir / "top";
        const std::string outside = dir / "outside";
        makeFolders(outside);
        for (int i = 0; i < 20; ++i) writeBytes(outside + "/keep" + std::to_string(i), "keep");
        for (int i = 0; i < 8; ++i) {
            makeFolders(top + "/s" + std::to_string(i) + "/inner");
            for (int k = 0; k < 20; ++k) writeBytes(top + "/s" + std::to_string(i) + "/inner/f" + std::to_string(k), "x");
        }
        const auto before = snapshotTree(outside);
        std::atomic<bool> stop{false};
        std::thread swapper([&] {
            const std::string victim = top + "/s" + std::to_string(round % 8);
            for (int k = 0; !stop; ++k) {
                if (::rename(victim.c_str(), (dir / "parked").c_str()) == 0) {
                    (void)::symlink(outside.c_str(), victim.c_str());
                    std::this_thread::yield();
                    (void)::unlink(victim.c_str());
                    (void)::rename((dir / "parked").c_str(), victim.c_str());
                }
                (void)::unlink((top + "/s" + std::to_string((round + 1) % 8) + "/inner/f" + std::to_string(k % 20)).c_str());
            }
        });
        UniqueFd parent = LinkSafe::openFolder(dir.path(), false);
        (void)LinkSafe::removeTree(parent.get(), "top", deviceOf(dir.path()));
        stop = true;
        swapper.join();
        EXPECT_EQ(snapshotTree(outside), before) << "round " << round;
    }
}

TEST(LinkSafeRemove, NeverEntersAnotherDevice) {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a file system for the test needs root";
    TempDir dir;
    const std::string top = dir / "top";
    makeFolders(top + "/before");
    TmpfsMount mount(top + "/mounted");
    if (!mount.mounted()) GTEST_SKIP() << "this machine doesn't allow mounting a tmpfs";
    writeBytes(top + "/mounted/kept", "on the other device");
    UniqueFd parent = LinkSafe::openFolder(dir.path(), false);
    EXPECT_FALSE(LinkSafe::removeTree(parent.get(), "top", deviceOf(dir.path())));
    EXPECT_EQ(readText(top + "/mounted/kept"), "on the other device");
}

}  // namespace
