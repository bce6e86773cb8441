#pragma once
// The folder-size walker: the hot path of every scan.
//
// It adds up allocated bytes (st_blocks × 512), not logical lengths, of everything beneath a
// location, the location itself included, the way `du -sx` does:
// - the top folder's own blocks count, and it counts as one folder;
// - each inode (device, inode number) counts once per call, so hard links count once;
// - it stays on the top's file system: a mount point inside the walk is left out altogether,
//   neither its own blocks nor its contents count (du -x does the same for another device; a
//   bind mount of the same device, which du -x enters, is left out too);
// - symbolic links are never followed: a link counts its own blocks (usually 0), whether it
//   points at a big file or at a folder, and the top itself is not followed either;
// - where a file system reports no blocks, an entry counts its logical length;
// - a folder that vanishes, or that cannot be opened or read, counts its own blocks and whatever
//   could be read of it; nothing throws.

#include <cstdint>
#include <string>
#include <vector>

namespace brimstell {

struct SizeResult {
    std::int64_t bytes = 0;       // allocated bytes
    std::int64_t files = 0;       // everything counted that is not a folder (files, links, devices…)
    std::int64_t folders = 0;     // folders counted, the top included
    std::int64_t unreadable = 0;  // folders whose entries could not be listed (in full)
    std::int64_t topFolderBytes = 0;  // the top folder's own blocks (0 when the top is not a folder)

    // What lies beneath a folder, the folder's own blocks left out: the size a folder is shown
    // with (an empty folder is 0). For a file, its own size.
    std::int64_t beneath() const { return bytes - topFolderBytes; }
};

struct SizeWalker {
    // Everything beneath path. A missing path gives all zeros; a file gives its own blocks.
    static SizeResult walk(const std::string& path);

    // Several locations in one walk that share the inode set, one result per path in order.
    // As with `du -s a b`, an inode reachable from several paths counts for the first of them:
    // a path inside (or equal to) an earlier one gives zeros, an earlier path inside a later one
    // is left out of the later one's total, and a file hard-linked under several paths counts for
    // the first. So the results add up to the size of the union.
    static std::vector<SizeResult> walkMany(const std::vector<std::string>& paths);

    struct Options {
        unsigned threads = 0;        // 0: four per hardware thread, 4 to 16 (more on bigger machines)
        unsigned heldFolders = 0;    // folders kept open for their pending subfolders; 0: from the
                                     // descriptor limit (a quarter of it, 16 to 1024)
    };
    static std::vector<SizeResult> walkMany(const std::vector<std::string>& paths, const Options& options);
};

}  // namespace brimstell
