#include "shared/helper/HelperLinuxJunk.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace brimstell::HelperLinuxJunk {

namespace {

using quorv::UniqueFd;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// A walk that goes deeper than this is not a cache anyone made on purpose; what lies below counts nothing.
constexpr int kMaxDepth = 64;

constexpr const char* kRotated[] = {"*.[0-9]", "*.old", "*.gz", "*.xz", "*.bz2", "*.zst"};

struct Entry {
    std::string name;
    struct stat st {};
};

// The entries of the open folder in byte order, "." and ".." left out, links not followed.
std::vector<Entry> entries(int folderFd) {
    std::vector<Entry> out;
    const int fd = ::openat(folderFd, ".", kFolderFlags);
    if (fd < 0) return out;
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return out;
    }
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        Entry entry{name, {}};
        if (::fstatat(folderFd, name.c_str(), &entry.st, AT_SYMLINK_NOFOLLOW) == 0) out.push_back(std::move(entry));
    }
    ::closedir(dir);
    std::sort(out.begin(), out.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return out;
}

using Seen = std::set<std::pair<dev_t, ino_t>>;

std::int64_t blocksOf(const struct stat& st, Seen& seen) {
    return seen.emplace(st.st_dev, st.st_ino).second ? static_cast<std::int64_t>(st.st_blocks) * 512 : 0;
}

// Allocated bytes of everything below the open folder on device, links not followed.
std::int64_t beneath(int folderFd, dev_t device, int depth, Seen& seen) {
    std::int64_t sum = 0;
    for (const auto& e : entries(folderFd)) {
        if (e.st.st_dev != device) continue;
        sum += blocksOf(e.st, seen);
        if (!S_ISDIR(e.st.st_mode) || depth >= kMaxDepth) continue;
        const UniqueFd fd(::openat(folderFd, e.name.c_str(), kFolderFlags));
        if (fd) sum += beneath(fd.get(), device, depth + 1, seen);
    }
    return sum;
}

struct Walk {
    const HelperFiles& files;
    const std::string& me;
    std::string out;

    // Emits the entry name of the open folder at path, as du -skx would measure it.
    void emit(const char* kind, int folderFd, const std::string& path, const Entry& e) {
        if (S_ISLNK(e.st.st_mode) || e.name.find_first_of("\n\t") != std::string::npos) return;
        const std::string item = path + "/" + e.name;
        if (HelperFiles::isProtected(item, HelperRules::linux, me)) return;
        Seen seen;
        std::int64_t bytes = blocksOf(e.st, seen);
        if (S_ISDIR(e.st.st_mode)) {
            const UniqueFd fd(::openat(folderFd, e.name.c_str(), kFolderFlags));
            if (fd) bytes += beneath(fd.get(), e.st.st_dev, 1, seen);
        }
        const std::int64_t kb = (bytes + 1023) / 1024;
        if (kb > 0) out += std::string(kind) + "\t" + std::to_string(kb) + "\t" + item + "\n";
    }

    // Every entry of the folder at path whose name matches one of the patterns (all when none).
    void folder(const char* kind, const std::string& path, std::initializer_list<const char*> patterns = {}) {
        const UniqueFd fd = files.openFolder(path);
        if (!fd) return;
        for (const auto& e : entries(fd.get())) {
            const bool wanted = patterns.size() == 0 || std::any_of(patterns.begin(), patterns.end(), [&](const char* p) {
                                    return ::fnmatch(p, e.name.c_str(), 0) == 0;
                                });
            if (wanted) emit(kind, fd.get(), path, e);
        }
    }

    void rotatedLogs(const std::string& path, int depth) {
        const UniqueFd fd = files.openFolder(path);
        if (!fd) return;
        for (const auto& e : entries(fd.get())) {
            if (e.name == "journal" || e.name.ends_with(".journal") || e.name.ends_with(".journal~")) continue;
            if (S_ISDIR(e.st.st_mode)) {
                if (depth == 0) rotatedLogs(path + "/" + e.name, 1);
                continue;
            }
            const bool rotated = std::any_of(std::begin(kRotated), std::end(kRotated),
                                             [&](const char* p) { return ::fnmatch(p, e.name.c_str(), 0) == 0; });
            if (rotated && S_ISREG(e.st.st_mode)) emit("log", fd.get(), path, e);
        }
    }

    void dnfPackages() {
        const UniqueFd fd = files.openFolder("/var/cache/dnf");
        if (!fd) return;
        for (const auto& e : entries(fd.get())) {
            if (S_ISDIR(e.st.st_mode)) folder("package", "/var/cache/dnf/" + e.name + "/packages", {"*.rpm"});
        }
    }

    void otherHomes() {
        const UniqueFd fd = files.openFolder("/home");
        if (!fd) return;
        for (const auto& e : entries(fd.get())) {
            const std::string home = "/home/" + e.name;
            if (!S_ISDIR(e.st.st_mode) || home == me) continue;
            folder("user", home + "/.cache");
        }
    }
};

}  // namespace

std::string reply(const HelperFiles& files, const std::string& me) {
    Walk walk{files, me, {}};
    walk.rotatedLogs("/var/log", 0);
    walk.folder("core", "/var/crash");
    walk.folder("core", "/var/lib/systemd/coredump");
    walk.folder("package", "/var/cache/apt/archives", {"*.deb"});
    walk.dnfPackages();
    walk.folder("package", "/var/cache/pacman/pkg", {"*.pkg.tar*"});
    walk.otherHomes();
    return std::move(walk.out);
}

}  // namespace brimstell::HelperLinuxJunk
