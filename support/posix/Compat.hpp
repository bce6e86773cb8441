#pragma once
// Where Linux and macOS differ below POSIX, in one place: file times, birth times, the rename that
// never replaces, the path of an open descriptor or of the running program, the peer of a local
// socket, close-on-exec pipes, a descriptor that waits for a child, a thread's priority.
//
// Everything else in the portable code calls these and names no Linux- or Darwin-only call of its
// own; scripts/check-portable.sh keeps it that way.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace quorv::compat {

// A descriptor that only names a place (no reading through it), where the system has one.
#ifdef O_PATH
inline constexpr bool hasPathOnly = true;
inline constexpr int pathOnly = O_PATH;
#else
inline constexpr bool hasPathOnly = false;
inline constexpr int pathOnly = O_RDONLY;  // no O_PATH on macOS: a base folder opens read-only
#endif

#ifdef O_NOATIME
inline constexpr int noAccessTime = O_NOATIME;  // only the owner (or root) may ask for it
#else
inline constexpr int noAccessTime = 0;
#endif

// The times of a stat, as seconds since 1970 with their fraction.
double modifiedSeconds(const struct stat& st);
double changedSeconds(const struct stat& st);
double accessedSeconds(const struct stat& st);

// Renames from (in fromDir) to to (in toDir) only when to doesn't exist: 0, or -1 with errno
// (EEXIST when it does; EINVAL/ENOSYS/ENOTSUP where the file system can't do it exclusively).
int renameNoReplace(int fromDir, const char* from, int toDir, const char* to);

// Where an open descriptor is now, as a full path; nullopt when the system can't name it (removed,
// another mount namespace).
std::optional<std::string> descriptorPath(int fd);

// The file that lists the mounts in the kernel's mountinfo form (as a system path, for
// Host::path), or "" where the system has none (macOS).
std::string mountTableFile();

// The running program's own file, as a full path.
std::optional<std::string> executablePath();

// What tells one file from another over time: device, inode and, where the file system keeps one,
// the birth time (0 where it doesn't), so that a new file reusing a freed inode isn't taken for
// the old one. A final link is not followed.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    long long bornSeconds = 0;
    long bornNanoseconds = 0;
};
std::optional<FileIdentity> identityAt(int dirFd, const char* name);

// The bytes an entry takes on disk (its blocks), or its length where the file system reports no
// blocks at all; a final link is not followed. nullopt when it can't be looked at.
std::optional<std::int64_t> allocatedBytesAt(int dirFd, const char* name);

// What a walk that measures needs of one entry: the entry name in dirFd (AT_FDCWD: a path), a
// final link not followed, no automount set off, and nothing asked of a network server that it
// would have to fetch. hasMount tells whether mount identifies the mount it lies on.
struct EntryFacts {
    dev_t device = 0;
    ino_t inode = 0;
    mode_t mode = 0;
    nlink_t links = 0;
    std::int64_t bytes = 0;   // allocated; the logical length where no blocks are reported
    std::uint64_t mount = 0;
    bool hasMount = false;
};
bool entryFactsAt(int dirFd, const char* name, EntryFacts& out);

// Lists the folder open at fd a batch at a time through buffer (a few tens of KB), calling
// each(name) for every entry but "." and "..". The descriptor stays usable for *at calls. False
// when the listing failed part-way for another reason than the folder being removed.
bool listNames(int fd, std::vector<char>& buffer, void (*each)(const char* name, void* context), void* context);

// The same with any callable.
template <class Each>
bool listNames(int fd, std::vector<char>& buffer, Each&& each) {
    return listNames(fd, buffer, [](const char* name, void* c) { (*static_cast<std::remove_reference_t<Each>*>(c))(name); },
                     &each);
}

// The process, user and group at the other end of a connected local socket.
struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
};
std::optional<Peer> peerOf(int socketFd);

// A pipe whose two ends close on exec: 0, or -1 with errno. Where it can't be made atomically
// the flags are set right after.
int closeOnExecPipe(int ends[2]);

// A descriptor that becomes readable when the child exits, or -1 where the system offers none
// (the caller then looks periodically).
int childExitDescriptor(pid_t pid);

// Lowers the calling thread's (not the whole process's) priority to niceness where the system
// allows it per thread; elsewhere nothing.
void lowerThreadPriority(int niceness);

}  // namespace quorv::compat
