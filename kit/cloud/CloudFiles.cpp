#include "kit/cloud/CloudFiles.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <utility>
#include <vector>

#include "kit/cleaning/FolderListing.hpp"
#include "kit/files/FS.hpp"
#include "support/posix/LinkSafe.hpp"

// Why not the folder-size walker: it adds up everything beneath a folder, the folders' own blocks
// and links included, while downloaded content is regular files only; a cloud folder whose files
// were all released would still show the blocks of its folders. This walk reads the same
// descriptors the same link-safe way and counts files alone.
//
// Folders still to read are kept as paths relative to the root and opened again from the root's
// descriptor one component at a time, so a wide or deep tree holds two descriptors at most.

namespace brimstell {

namespace {

struct Pending {
    std::string relative;  // "" for the root itself
    int depth = 0;
};

std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

bool skipped(const FolderEntry& entry) {
    if (entry.isFolder()) return FS::unsyncedCacheNames().count(entry.name) > 0;
    return !S_ISREG(entry.st.st_mode) || entry.name == ".DS_Store";
}

}  // namespace

void CloudFiles::each(const std::string& root, const std::function<void(CloudFile&&)>& take) {
    const quorv::UniqueFd rootFd = quorv::LinkSafe::openFolder(root, false);
    if (!rootFd) return;
    struct stat top {};
    if (::fstat(rootFd.get(), &top) != 0) return;
    std::set<std::pair<dev_t, ino_t>> linked;  // files with several links, reported already
    std::vector<Pending> stack{Pending{}};
    while (!stack.empty()) {
        const Pending folder = std::move(stack.back());
        stack.pop_back();
        const quorv::UniqueFd fd = folder.relative.empty() ? quorv::UniqueFd(::dup(rootFd.get()))
                                                           : quorv::LinkSafe::openBelow(rootFd.get(), folder.relative);
        if (!fd) continue;  // gone, or a link swapped in since it was listed
        for (auto& entry : FolderListing::list(fd.get())) {
            if (entry.st.st_dev != top.st_dev || skipped(entry)) continue;
            if (entry.isFolder()) {
                if (folder.depth < maxDepth) stack.push_back({joined(folder.relative, entry.name), folder.depth + 1});
                continue;
            }
            if (entry.st.st_nlink > 1 && !linked.emplace(entry.st.st_dev, entry.st.st_ino).second) continue;
            take(CloudFile{root, joined(folder.relative, entry.name), static_cast<std::int64_t>(entry.st.st_blocks) * 512});
        }
    }
}

std::int64_t CloudFiles::allocated(const std::string& root) {
    std::int64_t total = 0;
    each(root, [&total](CloudFile&& file) { total += file.allocated; });
    return total;
}

}  // namespace brimstell
