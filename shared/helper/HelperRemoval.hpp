#pragma once
// Deleting a folder tree for good, by descriptors, depth-first, without recursion.

#include <sys/stat.h>

#include <string>

namespace brimstell::helperremoval {

// Removes the folder `name` in parentFd and everything beneath it. The folder must still be the
// file `expected` describes (device and inode); links are removed, never followed; a folder on
// another device than `device` stops the removal. Holds a few descriptors whatever the depth.
// False when anything could not be removed (what was removed stays removed).
bool removeTree(int parentFd, const std::string& name, const struct stat& expected, dev_t device);

}  // namespace brimstell::helperremoval
