#pragma once
// File-system utilities every engine uses.

#include <cstdint>
#include <string>

#include "kit/files/VolumeStats.hpp"

namespace brimstell {

struct FS {
    // The current user's home folder.
    static std::string home();
    // The figures of the volume that holds location (the start-up volume: host().path("/")).
    static VolumeStats volumeStats(const std::string& location);

    // Allocated bytes at path, a final symbolic link not followed: 0 when nothing is there, a
    // file's own allocated size, a folder's whole contents by SizeWalker (one file system, each
    // inode once, the folder's own blocks included).
    static std::int64_t size(const std::string& path);
    // The allocated size of the one item at path (a folder's own entry, not its contents), or its
    // logical length where the file system reports no blocks; 0 when nothing is there.
    static std::int64_t fileSize(const std::string& path);
};

}  // namespace brimstell
