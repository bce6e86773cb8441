#pragma once
// The sentences shown when an item can't be moved to a Trash.

#include <cerrno>

namespace brimstell::trashText {

inline constexpr const char* gone = "It no longer exists.";
inline constexpr const char* alreadyInTrash = "It is already in the Trash.";
inline constexpr const char* holdsTrash = "The Trash is inside it.";
inline constexpr const char* otherDisk = "It is on another disk whose Trash can't be used.";
inline constexpr const char* noPermission = "You don't have permission to move it.";
inline constexpr const char* notMoved = "It couldn't be moved to the Trash.";

// The sentence for the errno value of a failed open, stat or rename.
inline const char* forError(int e) {
    switch (e) {
        case ENOENT:
        case ENOTDIR: return gone;
        case EACCES:
        case EPERM:
        case EROFS: return noPermission;
        case EXDEV: return otherDisk;
        default: return notMoved;
    }
}

}  // namespace brimstell::trashText
