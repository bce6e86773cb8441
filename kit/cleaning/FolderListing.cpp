#include "kit/cleaning/FolderListing.hpp"
#include "support/posix/LinkSafe.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace brimstell {

namespace {

constexpr int kOpenFolder = quorv::LinkSafe::folderFlags;

std::vector<FolderEntry> listing(int folderFd, bool foldersOnly) {
    std::vector<FolderEntry> entries;
    // fdopendir takes its descriptor over, so it gets a fresh one of the same folder.
    const int fd = ::openat(folderFd, ".", kOpenFolder);
    if (fd < 0) return entries;
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return entries;
    }
    while (const dirent* item = ::readdir(dir)) {
        const std::string_view name = item->d_name;
        if (name == "." || name == "..") continue;
        if (foldersOnly && item->d_type != DT_DIR && item->d_type != DT_UNKNOWN) continue;
        FolderEntry entry;
        entry.name = std::string(name);
        if (::fstatat(folderFd, item->d_name, &entry.st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (foldersOnly && !entry.isFolder()) continue;
        entries.push_back(std::move(entry));
    }
    ::closedir(dir);
    std::sort(entries.begin(), entries.end(),
              [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
    return entries;
}

}  // namespace

quorv::UniqueFd FolderListing::open(const std::string& path) {
    if (path.empty()) return {};
    return quorv::LinkSafe::openFolder(path, true);
}

quorv::UniqueFd FolderListing::openBelow(int folderFd, std::string_view relative) {
    return quorv::LinkSafe::openBelow(folderFd, relative);
}

std::vector<FolderEntry> FolderListing::list(int folderFd) { return listing(folderFd, false); }

std::vector<FolderEntry> FolderListing::listFolders(int folderFd) { return listing(folderFd, true); }

std::optional<struct stat> FolderListing::statAt(int folderFd, const std::string& name) {
    struct stat st {};
    if (name.empty() || ::fstatat(folderFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return st;
}

std::optional<std::string> FolderListing::readAt(int folderFd, const std::string& name, std::size_t maxBytes) {
    // O_NONBLOCK so that a FIFO planted under the name can't hold the scan up.
    quorv::UniqueFd fd(::openat(folderFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!fd) return std::nullopt;
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    if (static_cast<std::size_t>(st.st_size) > maxBytes) return std::nullopt;
    std::string bytes;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (n == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
        if (bytes.size() > maxBytes) return std::nullopt;
    }
    return bytes;
}

}  // namespace brimstell
