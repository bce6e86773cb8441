#pragma once
// The two file calls that differ between macOS and Linux in the helper's link-safe file work:
// a rename that never replaces what is there, and the path of an open descriptor.

#include <optional>
#include <string>

namespace brimstell::linksafe {

// Renames fromName in fromDir to toName in toDir unless toName exists. 0, or the errno
// (EEXIST when the name is taken). macOS: renameatx_np(RENAME_EXCL); Linux: renameat2(RENAME_NOREPLACE).
int renameExclusive(int fromDir, const std::string& fromName, int toDir, const std::string& toName);

// The path the system reports for an open descriptor: fcntl(F_GETPATH) on macOS,
// /proc/self/fd/<n> on Linux. nullopt when it can't tell or the path doesn't fit.
std::optional<std::string> descriptorPath(int fd);

}  // namespace brimstell::linksafe
