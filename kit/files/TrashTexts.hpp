#pragma once
// The sentences shown when an item can't be moved to a Trash.

#include <cerrno>
#include <string>

#include "support/posix/LinkSafe.hpp"

namespace brimstell::trashText {

inline constexpr const char* gone = "It no longer exists.";
inline constexpr const char* alreadyInTrash = "It is already in the Trash.";
inline constexpr const char* holdsTrash = "The Trash is inside it.";
inline constexpr const char* otherDisk = "It is on another disk whose Trash can't be used.";
inline constexpr const char* noPermission = "You don't have permission to move it.";
inline constexpr const char* notMoved = "It couldn't be moved to the Trash.";
inline constexpr const char* folderChanged = "Its folder changed while it was being moved.";

// The sentence for the errno value of a failed open, stat or rename.
inline const char* forError(int e) {
    switch (e) {
        case ENOENT:
        case ENOTDIR: return gone;
        case ELOOP: return folderChanged;
        case EACCES:
        case EPERM:
        case EROFS: return noPermission;
        case EXDEV: return otherDisk;
        default: return notMoved;
    }
}

// Whether path (slashes at its end removed) names something a Trash can take: absolute, not "/",
// and with a last name that is neither "." nor "..".
inline bool movablePath(const std::string& path, const std::string& name) {
    return !path.empty() && path[0] == '/' && path != "/" && !name.empty() && name != "." && name != "..";
}

// Why an item can't go into the Trash at realTrash because of where the two lie (the item, or its
// folder, already inside the Trash; the Trash inside the item); nullptr when nothing stands in the
// way. Paths are real paths, links resolved.
inline const char* nestingProblem(const std::string& itemPath, const std::string& realParent, const std::string& realTrash) {
    if (quorv::LinkSafe::isInside(itemPath, realTrash) || quorv::LinkSafe::isInside(realParent, realTrash)) return alreadyInTrash;
    if (quorv::LinkSafe::isInside(realTrash, itemPath)) return holdsTrash;
    return nullptr;
}

}  // namespace brimstell::trashText
