#pragma once
// A platform's Trash: where moved items go, what is in it, and deleting from it for good.
//
// Locations are real paths (under the sandbox root when there is one). One interface serves the
// macOS Trash, the freedesktop.org Trash of Linux desktops and a sandbox Mac's ~/.Trash.

#include <optional>
#include <string>
#include <vector>

namespace quorv {

struct TrashedItem {
    std::string location;                   // the item's path inside the Trash
    std::optional<std::string> originalPath;  // where it was, when the Trash remembers
    std::optional<double> dateAdded;        // when it was put there, seconds since 1970
};

class TrashBackend {
public:
    virtual ~TrashBackend() = default;

    // Moves the item at path (never following a final symbolic link) into the Trash of its volume
    // and returns its location there; nullopt with a short sentence in error when it was not
    // moved. Never copies and deletes behind the user's back.
    virtual std::optional<std::string> moveToTrash(const std::string& path, std::string& error) = 0;
    // The same; original is set to where the item really was when it moved (its folder's real
    // path and its name), which is what the history records. By default the path as given.
    virtual std::optional<std::string> moveNotingPlace(const std::string& path, std::string& error, std::string& original) {
        original = path;
        return moveToTrash(path, error);
    }

    // The top-level items of the user's Trash folders.
    virtual std::vector<TrashedItem> list() = 0;

    // Deletes these items (locations from list()) for good, with whatever bookkeeping the Trash
    // keeps for them. Returns the locations that are gone afterwards.
    virtual std::vector<std::string> erase(const std::vector<std::string>& locations) = 0;

    // Called after an item was moved out of the Trash (a restore): drops its bookkeeping, such as
    // the .trashinfo file of a freedesktop.org Trash.
    virtual void forgetRestored(const std::string& location) = 0;

    // True when location lies directly in one of the Trash folders this backend keeps.
    virtual bool isInTrash(const std::string& location) = 0;
};

}  // namespace quorv
