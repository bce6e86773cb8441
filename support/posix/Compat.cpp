#include "support/posix/Compat.hpp"

#include <dirent.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vector>

#ifdef __APPLE__
#include <mach-o/dyld.h>
#include <pthread/qos.h>
#include <sys/ucred.h>
#else
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#endif

namespace quorv::compat {

namespace {

double seconds(const struct timespec& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9; }

#ifndef __APPLE__
// A link's target as a full path, growing the buffer as needed; nullopt for anything else.
std::optional<std::string> fullPathOfLink(const char* link) {
    std::vector<char> buf(4096);
    for (;;) {
        const ssize_t n = ::readlink(link, buf.data(), buf.size());
        if (n < 0) return std::nullopt;
        if (static_cast<std::size_t>(n) < buf.size()) {
            std::string path(buf.data(), static_cast<std::size_t>(n));
            // Not a path the kernel can name (a folder that was removed, another namespace).
            if (path.empty() || path[0] != '/') return std::nullopt;
            return path;
        }
        if (buf.size() >= (1u << 20)) return std::nullopt;
        buf.resize(buf.size() * 2);
    }
}
#endif

}  // namespace

#ifdef __APPLE__
double modifiedSeconds(const struct stat& st) { return seconds(st.st_mtimespec); }
double changedSeconds(const struct stat& st) { return seconds(st.st_ctimespec); }
double accessedSeconds(const struct stat& st) { return seconds(st.st_atimespec); }
#else
double modifiedSeconds(const struct stat& st) { return seconds(st.st_mtim); }
double changedSeconds(const struct stat& st) { return seconds(st.st_ctim); }
double accessedSeconds(const struct stat& st) { return seconds(st.st_atim); }
#endif

int renameNoReplace(int fromDir, const char* from, int toDir, const char* to) {
#ifdef __APPLE__
    return ::renameatx_np(fromDir, from, toDir, to, RENAME_EXCL);
#else
    return ::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE);
#endif
}

std::optional<std::string> descriptorPath(int fd) {
    // A removed file or folder has no name left (Linux would name it "<old path> (deleted)").
    struct stat st{};
    if (::fstat(fd, &st) != 0 || st.st_nlink == 0) return std::nullopt;
#ifdef __APPLE__
    char buf[PATH_MAX];
    if (::fcntl(fd, F_GETPATH, buf) != 0) return std::nullopt;
    return std::string(buf);
#else
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return fullPathOfLink(link);
#endif
}

std::string mountTableFile() {
#ifdef __linux__
    return "/proc/self/mountinfo";
#else
    return {};
#endif
}

std::optional<std::string> executablePath() {
#ifdef __APPLE__
    char buf[PATH_MAX];
    uint32_t size = sizeof buf;
    if (_NSGetExecutablePath(buf, &size) != 0) return std::nullopt;
    char resolved[PATH_MAX];
    if (!::realpath(buf, resolved)) return std::nullopt;
    return std::string(resolved);
#else
    return fullPathOfLink("/proc/self/exe");
#endif
}

std::optional<FileIdentity> identityAt(int dirFd, const char* name) {
    FileIdentity id;
#ifdef __APPLE__
    struct stat st{};
    if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    id.device = static_cast<std::uint64_t>(st.st_dev);
    id.inode = static_cast<std::uint64_t>(st.st_ino);
    id.bornSeconds = st.st_birthtimespec.tv_sec;
    id.bornNanoseconds = st.st_birthtimespec.tv_nsec;
#else
    struct statx sx{};
    if (::statx(dirFd, name, AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME, &sx) != 0) return std::nullopt;
    id.device = (static_cast<std::uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
    id.inode = sx.stx_ino;
    if (sx.stx_mask & STATX_BTIME) {
        id.bornSeconds = sx.stx_btime.tv_sec;
        id.bornNanoseconds = sx.stx_btime.tv_nsec;
    }
#endif
    return id;
}

std::optional<std::int64_t> allocatedBytesAt(int dirFd, const char* name) {
#ifdef __linux__
    // statx says whether the file system reported blocks at all; stat can't tell that from a
    // file that is all holes.
    struct statx sx{};
    if (::statx(dirFd, name, AT_SYMLINK_NOFOLLOW, STATX_BLOCKS | STATX_SIZE, &sx) == 0) {
        if (sx.stx_mask & STATX_BLOCKS) return static_cast<std::int64_t>(sx.stx_blocks) * 512;
        if (sx.stx_mask & STATX_SIZE) return static_cast<std::int64_t>(sx.stx_size);
        return 0;
    }
    if (errno != ENOSYS) return std::nullopt;
#endif
    struct stat st{};
    if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return static_cast<std::int64_t>(st.st_blocks) * 512;
}

#ifdef __linux__
namespace {
std::atomic<bool> noStatx{false};
}
#endif

bool entryFactsAt(int dirFd, const char* name, EntryFacts& out) {
#ifndef AT_NO_AUTOMOUNT
    constexpr int flags = AT_SYMLINK_NOFOLLOW;
#else
    constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
#endif
#ifdef __linux__
    if (!noStatx.load(std::memory_order_relaxed)) {
        struct statx sx{};
        const unsigned mask = STATX_TYPE | STATX_NLINK | STATX_INO | STATX_BLOCKS | STATX_SIZE | STATX_MNT_ID;
        if (::statx(dirFd, name, flags | AT_STATX_DONT_SYNC, mask, &sx) == 0) {
            out.device = makedev(sx.stx_dev_major, sx.stx_dev_minor);
            out.inode = static_cast<ino_t>(sx.stx_ino);
            out.mode = sx.stx_mode;
            out.links = sx.stx_nlink;
            out.bytes = (sx.stx_mask & STATX_BLOCKS) ? static_cast<std::int64_t>(sx.stx_blocks) * 512
                                                      : static_cast<std::int64_t>(sx.stx_size);
            out.hasMount = (sx.stx_mask & STATX_MNT_ID) != 0;
            out.mount = sx.stx_mnt_id;
            return true;
        }
        if (errno != ENOSYS) return false;
        noStatx.store(true, std::memory_order_relaxed);  // an old kernel, or a filter that forbids it
    }
#endif
    struct stat st{};
    if (::fstatat(dirFd, name, &st, flags) != 0) return false;
    out.device = st.st_dev;
    out.inode = st.st_ino;
    out.mode = st.st_mode;
    out.links = st.st_nlink;
    out.bytes = static_cast<std::int64_t>(st.st_blocks) * 512;
    out.hasMount = false;
    return true;
}

namespace {
bool isDotOrDotDot(const char* name) { return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)); }
}  // namespace

bool listNames(int fd, std::vector<char>& buffer, void (*each)(const char* name, void* context), void* context) {
#ifdef __linux__
    // The kernel's own records, read straight into buffer: no DIR stream, no second descriptor.
    for (;;) {
        const long n = ::syscall(SYS_getdents64, fd, buffer.data(), buffer.size());
        if (n == 0) return true;
        if (n < 0) return errno == ENOENT;  // ENOENT: removed while being read
        // struct linux_dirent64: u64 ino, s64 off, u16 reclen, u8 type, char name[].
        for (long at = 0; at < n;) {
            const char* rec = buffer.data() + at;
            unsigned short reclen = 0;
            std::memcpy(&reclen, rec + 16, sizeof reclen);
            if (reclen == 0) break;
            at += reclen;
            const char* name = rec + 19;
            if (!isDotOrDotDot(name)) each(name, context);
        }
    }
#else
    (void)buffer;
    // The portable listing, on a descriptor of its own so the caller's stays usable.
    DIR* dir = ::fdopendir(::dup(fd));
    if (!dir) return false;
    errno = 0;
    while (const dirent* e = ::readdir(dir)) {
        if (!isDotOrDotDot(e->d_name)) each(e->d_name, context);
        errno = 0;
    }
    const bool whole = errno == 0 || errno == ENOENT;
    ::closedir(dir);
    return whole;
#endif
}

std::optional<Peer> peerOf(int socketFd) {
    Peer peer;
#ifdef __APPLE__
    struct xucred cred{};
    socklen_t length = sizeof cred;
    if (::getsockopt(socketFd, SOL_LOCAL, LOCAL_PEERCRED, &cred, &length) != 0 || cred.cr_version != XUCRED_VERSION) {
        return std::nullopt;
    }
    pid_t pid = 0;
    length = sizeof pid;
    if (::getsockopt(socketFd, SOL_LOCAL, LOCAL_PEERPID, &pid, &length) != 0) return std::nullopt;
    peer.pid = pid;
    peer.uid = cred.cr_uid;
    peer.gid = cred.cr_ngroups > 0 ? cred.cr_groups[0] : 0;
#else
    ucred cred{};
    socklen_t length = sizeof cred;
    if (::getsockopt(socketFd, SOL_SOCKET, SO_PEERCRED, &cred, &length) != 0 || length != sizeof cred) {
        return std::nullopt;
    }
    peer.pid = cred.pid;
    peer.uid = cred.uid;
    peer.gid = cred.gid;
#endif
    return peer;
}

int closeOnExecPipe(int ends[2]) {
#ifdef __linux__
    return ::pipe2(ends, O_CLOEXEC);
#else
    // No pipe2 here; the spawn closes every descriptor it isn't told to keep (CLOEXEC_DEFAULT),
    // so the window before FD_CLOEXEC matters only to other code that forks.
    if (::pipe(ends) != 0) return -1;
    ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    return 0;
#endif
}

int childExitDescriptor(pid_t pid) {
#if defined(__linux__) && defined(SYS_pidfd_open)
    // Always close-on-exec; absent before Linux 5.3, when the caller falls back to looking.
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
}

void lowerThreadPriority(int niceness) {
#ifdef __linux__
    // On Linux a nice value belongs to the thread that sets it by its own id.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), niceness);
#elif defined(__APPLE__)
    (void)niceness;
    ::pthread_set_qos_class_self_np(QOS_CLASS_UTILITY, 0);
#else
    (void)niceness;
#endif
}

}  // namespace quorv::compat
