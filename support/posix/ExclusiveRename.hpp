#pragma once
// Renames that never replace what is already at the target.

namespace quorv {

// Moves the entry `from` (relative to the folder descriptor fromDir, or AT_FDCWD) to `to`
// (relative to toDir) only when nothing exists at `to`; a final symbolic link is moved as the
// link. Returns 0, or the errno value: EEXIST when the target is taken.
// Linux: renameat2 with RENAME_NOREPLACE; macOS: renameatx_np with RENAME_EXCL. On a Linux file
// system without that flag, a non-folder is linked and unlinked (atomic as well); a folder, or a
// file where hard links are not supported, is renamed after checking that the target is free.
int renameExclusive(int fromDir, const char* from, int toDir, const char* to);

}  // namespace quorv
