// The clean lock between processes: held by a real second process, released when it dies, never
// taken through a link.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/cleaning/ProcessLock.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using brimstell::ProcessLock;

// A child process that holds an exclusive flock on path until it is killed. Between fork and
// _exit it makes only async-signal-safe calls.
class LockHolder {
public:
    explicit LockHolder(const std::string& path) {
        int ready[2];
        if (::pipe2(ready, O_CLOEXEC) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            const char answer = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0 ? 'y' : 'n';
            if (::write(ready[1], &answer, 1) != 1) ::_exit(2);
            for (;;) ::pause();
        }
        ::close(ready[1]);
        char answer = 0;
        holding_ = pid_ > 0 && ::read(ready[0], &answer, 1) == 1 && answer == 'y';
        ::close(ready[0]);
    }
    ~LockHolder() { kill(); }
    bool holding() const { return holding_; }
    // Kills the child and waits for it, so its descriptors are closed when this returns.
    void kill() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
    bool holding_ = false;
};

// Whether another process could take the lock now.
bool freeForAnotherProcess(const std::string& path) { return LockHolder(path).holding(); }

mode_t modeOf(const std::string& path) {
    struct stat st{};
    return ::lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST(ProcessLock, ASecondProcessHoldingItKeepsUsOutUntilItDies) {
    testing_support::TempDir dir;
    const std::string path = dir / "clean.lock";
    LockHolder holder(path);
    ASSERT_TRUE(holder.holding());
    EXPECT_FALSE(ProcessLock::take(path).has_value());
    holder.kill();
    auto lock = ProcessLock::take(path);
    ASSERT_TRUE(lock.has_value());
    EXPECT_FALSE(freeForAnotherProcess(path));
    lock.reset();
    EXPECT_TRUE(freeForAnotherProcess(path));
}

TEST(ProcessLock, HeldOnceWithinAProcessAndAcrossAMove) {
    testing_support::TempDir dir;
    const std::string path = dir / "clean.lock";
    auto first = ProcessLock::take(path);
    ASSERT_TRUE(first.has_value());
    EXPECT_FALSE(ProcessLock::take(path).has_value()) << "a second take in the same process";

    std::optional<ProcessLock> moved(std::move(*first));
    first.reset();  // the moved-from lock owns nothing and unlocks nothing
    EXPECT_FALSE(freeForAnotherProcess(path));
    moved.reset();
    EXPECT_TRUE(freeForAnotherProcess(path));
    EXPECT_TRUE(ProcessLock::take(path).has_value());
}

TEST(ProcessLock, MakesAPrivateFolderAndFile) {
    testing_support::TempDir dir;
    const std::string home = dir / "home";
    testing_support::makeFolders(home + "/Library/Application Support");
    const std::string path = home + "/Library/Application Support/Brimstell/clean.lock";
    const mode_t old = ::umask(0);
    auto lock = ProcessLock::take(path);
    ::umask(old);
    ASSERT_TRUE(lock.has_value());
    EXPECT_EQ(modeOf(home + "/Library/Application Support/Brimstell"), 0700u);
    EXPECT_EQ(modeOf(path), 0600u);
}

TEST(ProcessLock, RefusesWhatIsNotAPlainFileOfItsOwn) {
    testing_support::TempDir dir;
    testing_support::writeBytes(dir / "target", "keep");
    ASSERT_EQ(::symlink((dir / "target").c_str(), (dir / "to-file").c_str()), 0);
    ASSERT_EQ(::symlink((dir / "nothing").c_str(), (dir / "dangling").c_str()), 0);
    testing_support::makeFolders(dir / "folder");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const std::string& path : {dir / "to-file", dir / "dangling", dir / "folder", dir / "fifo", std::string()}) {
        EXPECT_FALSE(ProcessLock::take(path).has_value()) << path;
    }
    EXPECT_EQ(testing_support::readText(dir / "target"), "keep");
    EXPECT_FALSE(testing_support::exists(dir / "nothing")) << "the link's target was created";
    EXPECT_TRUE(freeForAnotherProcess(dir / "target"));
}

// The clean lock is taken again within a process, from any thread, and goes with its last holder;
// another process keeps it out.
TEST(CleanLock, TakenAgainWithinTheProcessAndFreedWithTheLastHolder) {
    testing_support::TempDir dir;
    const std::string path = dir / "clean.lock";
    std::optional<brimstell::CleanLock> outer = brimstell::CleanLock::take(path);
    ASSERT_TRUE(outer.has_value());
    std::optional<brimstell::CleanLock> inner = brimstell::CleanLock::take(path);
    ASSERT_TRUE(inner.has_value()) << "a nested take";
    bool fromAnotherThread = false;
    std::thread([&] { fromAnotherThread = brimstell::CleanLock::take(path).has_value(); }).join();
    EXPECT_TRUE(fromAnotherThread);
    EXPECT_FALSE(freeForAnotherProcess(path));

    outer.reset();
    EXPECT_FALSE(freeForAnotherProcess(path)) << "the inner holder still has it";
    std::optional<brimstell::CleanLock> moved(std::move(*inner));
    inner.reset();
    EXPECT_FALSE(freeForAnotherProcess(path)) << "moved, not let go";
    moved = brimstell::CleanLock::take(path);  // assigned over: the old holder goes, the new one holds
    EXPECT_FALSE(freeForAnotherProcess(path));
    moved.reset();
    EXPECT_TRUE(freeForAnotherProcess(path));

    LockHolder other(path);
    ASSERT_TRUE(other.holding());
    EXPECT_FALSE(brimstell::CleanLock::take(path).has_value());
    other.kill();
    EXPECT_TRUE(brimstell::CleanLock::take(path).has_value());
    EXPECT_FALSE(brimstell::CleanLock::take("").has_value());
}

}  // namespace
