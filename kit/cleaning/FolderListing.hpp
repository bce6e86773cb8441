#pragma once
// Reading folders the link-safe way for the scanners: every folder below a given top is opened
// from its parent's descriptor with O_NOFOLLOW, so a symbolic link on the way gives nothing
// rather than leading somewhere else. Names are bytes and stay as they are.

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/posix/UniqueFd.hpp"

namespace brimstell {

struct FolderEntry {
    std::string name;
    struct stat st {};  // the entry itself, a link not followed

    bool isFolder() const { return S_ISDIR(st.st_mode); }
    bool isLink() const { return S_ISLNK(st.st_mode); }
};

struct FolderListing {
    // The folder at path, which is taken as given (it may be reached through a link).
    static quorv::UniqueFd open(const std::string& path);
    // The folder at relative ("a/b/c") below the open folder, each component opened without
    // following a link; invalid when any of them is missing, a link or not a folder. Empty and
    // "." components are skipped; ".." gives nothing.
    static quorv::UniqueFd openBelow(int folderFd, std::string_view relative);
    // The entries of the open folder in byte order of their names, "." and ".." left out; an
    // entry that vanishes between reading and stat is left out too. Empty when unreadable.
    static std::vector<FolderEntry> list(int folderFd);
    // The same, folders only: entries the folder itself reports as something else are never
    // stat'ed, which spares a stat per file on walks that only descend.
    static std::vector<FolderEntry> listFolders(int folderFd);
    // The entry called name in the open folder, a link not followed.
    static std::optional<struct stat> statAt(int folderFd, const std::string& name);
    // The regular file called name in the open folder, when it is one and no bigger than maxBytes.
    static std::optional<std::string> readAt(int folderFd, const std::string& name, std::size_t maxBytes);
};

}  // namespace brimstell
