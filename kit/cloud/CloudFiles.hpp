#pragma once
// The regular files of a cloud folder, found the link-safe way: every folder is opened from its
// parent without following a link, so a link inside a cloud folder is neither measured nor
// released, and nothing outside the folder is ever reached.

#include <cstdint>
#include <functional>
#include <string>

namespace brimstell {

// One regular file below a cloud folder.
struct CloudFile {
    std::string root;       // the cloud folder, as a location
    std::string relative;   // below it, "a/b/file"
    std::int64_t allocated = 0;  // bytes allocated on disk (st_blocks × 512), not its length

    std::string location() const { return root + "/" + relative; }
};

struct CloudFiles {
    // Folders deeper than this below a cloud folder are left out: no provider nests that far, and
    // a hostile tree can't make a walk run on without end.
    static constexpr int maxDepth = 256;

    // Calls take for every regular file below root, except ".DS_Store" (Finder's own, never
    // synced) and what lies in the caches that sync clients keep inside their folders without
    // syncing them (".dropbox.cache"): neither is downloaded cloud content. Links are not
    // followed, the walk stays on root's file system, and a file with several hard links is
    // reported once. A root that is missing, or is itself a link, gives nothing.
    static void each(const std::string& root, const std::function<void(CloudFile&&)>& take);

    // The allocated bytes of those files: what is downloaded. A file that exists only in the
    // cloud allocates nothing and adds 0.
    static std::int64_t allocated(const std::string& root);
};

}  // namespace brimstell
