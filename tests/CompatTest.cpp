// The system differences behind one header: each call answers the same question the same way
// whatever system it is built for.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/posix/UniqueFd.hpp"

namespace {

namespace compat = quorv::compat;
using quorv::UniqueFd;
using namespace testing_support;

std::string realOf(const std::string& path) { return quorv::LinkSafe::resolve(path).value_or(""); }

TEST(Compat, FileTimesReadAsSecondsWithTheirFraction) {
    TempDir dir;
    const std::string file = dir.path() + "/f";
    writeBytes(file, "x");
    const struct timespec times[2] = {{1'000'000'000, 250'000'000}, {1'500'000'000, 750'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    struct stat st{};
    ASSERT_EQ(::lstat(file.c_str(), &st), 0);
    EXPECT_DOUBLE_EQ(compat::accessedSeconds(st), 1'000'000'000.25);
    EXPECT_DOUBLE_EQ(compat::modifiedSeconds(st), 1'500'000'000.75);
    // Setting the times changed the inode just now, long after both.
    EXPECT_GT(compat::changedSeconds(st), 1'600'000'000.0);
}

TEST(Compat, RenameNoReplaceNeverReplaces) {
    TempDir dir;
    writeBytes(dir.path() + "/a", "a");
    writeBytes(dir.path() + "/b", "b");
    UniqueFd fd(::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(fd);
    errno = 0;
    EXPECT_EQ(compat::renameNoReplace(fd.get(), "a", fd.get(), "b"), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(readText(dir.path() + "/b"), "b");
    EXPECT_EQ(compat::renameNoReplace(fd.get(), "a", fd.get(), "c"), 0);
    EXPECT_EQ(readText(dir.path() + "/c"), "a");
}

TEST(Compat, DescriptorPathFollowsAFolderThatMoved) {
    TempDir dir;
    const std::string base = realOf(dir.path());
    makeFolders(base + "/before");
    UniqueFd fd(::open((base + "/before").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(fd);
    ASSERT_EQ(::rename((base + "/before").c_str(), (base + "/after").c_str()), 0);
    EXPECT_EQ(compat::descriptorPath(fd.get()).value_or(""), base + "/after");
    ASSERT_EQ(::rmdir((base + "/after").c_str()), 0);
    EXPECT_FALSE(compat::descriptorPath(fd.get()).has_value()) << "a removed folder has no path";
}

TEST(Compat, ExecutablePathIsThisTestProgram) {
    const auto self = compat::executablePath();
    ASSERT_TRUE(self.has_value());
    struct stat named{};
    ASSERT_EQ(::stat(self->c_str(), &named), 0) << *self;
    EXPECT_EQ(self->front(), '/');
    EXPECT_NE(self->find("brimstell_tests"), std::string::npos) << *self;
}

TEST(Compat, IdentityTellsANewFileUnderTheSameNameApart) {
    TempDir dir;
    UniqueFd fd(::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    writeBytes(dir.path() + "/f", "1");
    const auto first = compat::identityAt(fd.get(), "f");
    ASSERT_TRUE(first.has_value());
    // Kept open, the old file can't hand its inode number to the new one.
    UniqueFd held(::open((dir.path() + "/f").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::unlink((dir.path() + "/f").c_str()), 0);
    writeBytes(dir.path() + "/f", "2");
    const auto second = compat::identityAt(fd.get(), "f");
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(first->device, second->device);
    EXPECT_NE(first->inode, second->inode);
    EXPECT_FALSE(compat::identityAt(fd.get(), "missing").has_value());
}

TEST(Compat, AllocatedBytesAreBlocksNotLength) {
    TempDir dir;
    UniqueFd fd(::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A sparse file: a long length, almost nothing allocated.
    UniqueFd sparse(::open((dir.path() + "/sparse").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::ftruncate(sparse.get(), 64 << 20), 0);
    const auto bytes = compat::allocatedBytesAt(fd.get(), "sparse");
    ASSERT_TRUE(bytes.has_value());
    EXPECT_LT(*bytes, 64 << 20);
    EXPECT_EQ(*bytes % 512, 0);
    ASSERT_EQ(::symlink("sparse", (dir.path() + "/link").c_str()), 0);
    EXPECT_LT(compat::allocatedBytesAt(fd.get(), "link").value_or(1 << 30), 64 << 20) << "a link is not followed";
    EXPECT_FALSE(compat::allocatedBytesAt(fd.get(), "missing").has_value());
}

TEST(Compat, PeerOfALocalSocketIsThisProcess) {
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    UniqueFd a(pair[0]), b(pair[1]);
    const auto peer = compat::peerOf(a.get());
    ASSERT_TRUE(peer.has_value());
    EXPECT_EQ(peer->pid, ::getpid());
    EXPECT_EQ(peer->uid, ::geteuid());
    EXPECT_FALSE(compat::peerOf(-1).has_value());
}

TEST(Compat, PipeEndsCloseOnExecAndTheChildDescriptorWakesAtExit) {
    int ends[2];
    ASSERT_EQ(compat::closeOnExecPipe(ends), 0);
    UniqueFd r(ends[0]), w(ends[1]);
    EXPECT_TRUE(::fcntl(r.get(), F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(::fcntl(w.get(), F_GETFD) & FD_CLOEXEC);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(0);
    UniqueFd exitFd(compat::childExitDescriptor(child));
    int ready = -1;
    if (exitFd) {
        pollfd p{exitFd.get(), POLLIN, 0};
        ready = ::poll(&p, 1, 10'000);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (!exitFd) GTEST_SKIP() << "this system offers no descriptor for a child's exit";
    EXPECT_EQ(ready, 1) << "the descriptor didn't wake when the child exited";
    EXPECT_TRUE(::fcntl(exitFd.get(), F_GETFD) & FD_CLOEXEC);
}

}  // namespace
