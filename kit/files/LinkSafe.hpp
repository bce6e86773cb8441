#pragma once
// The descriptor-based file calls the Trash backends share: an exclusive rename, a folder's real
// path, and deleting a tree without following links or leaving the device.

#include <sys/types.h>

#include <optional>
#include <string>

#include "support/posix/UniqueFd.hpp"

namespace brimstell {

struct LinkSafe {
    // A folder opened for use as the base of *at calls only (O_PATH where there is one). A final
    // symbolic link is followed only when followLink is set.
    static quorv::UniqueFd openFolder(const std::string& path, bool followLink);
    static quorv::UniqueFd openFolderAt(int dirFd, const std::string& name);

    // Renames fromDir/from to toDir/to unless something is there already (EEXIST then).
    // 0 on success, else the errno value. Where the file system can't rename exclusively the
    // target is checked first and a plain rename follows.
    static int renameNoReplace(int fromDir, const std::string& from, int toDir, const std::string& to);

    // The real path of an open folder, as the kernel has it; nullopt when it can't say.
    static std::optional<std::string> pathOf(int fd);

    // Deletes name inside dirFd for good: a file or link is unlinked, a folder emptied depth first
    // and removed. Never follows a symbolic link, never enters a folder on another device than
    // `device`, gives owner permissions back to folders that lack them so they can be emptied.
    // True when nothing is left at name afterwards.
    static bool removeTree(int dirFd, const std::string& name, dev_t device);

    // True when path equals folder or lies beneath it (plain text comparison).
    static bool isInside(const std::string& path, const std::string& folder);
};

}  // namespace brimstell
