#pragma once
// The freedesktop.org Trash of Linux desktops, shared with trash-cli, gio and the file managers.
//
// The home Trash is $XDG_DATA_HOME/Trash (an absolute XDG_DATA_HOME, else <home>/.local/share)
// with files/ and info/. Moving an item there first claims the name with info/<name>.trashinfo:
// its text is written under a temporary name that readers ignore (".brimstell-<pid>-<n>.tmp") and
// hard-linked into place, which never replaces, so a .trashinfo is whole or absent even when the
// mover is killed. Then the item is renamed into files/<name> without replacing anything; when
// the rename fails the .trashinfo is removed again. list() removes temporary texts a day old. A taken name is numbered in gio's style
// ("rep.2.tar.gz"), and a name is cut so that "<name>.trashinfo" still fits in 255 bytes.
//
// An item on another file system than the home Trash goes to that file system's own Trash, in
// its top folder: "$top/.Trash/$uid" when "$top/.Trash" is a real folder with the sticky bit, else
// "$top/.Trash-$uid" (made 0700 when missing; it must be ours and not a link), with Path written
// relative to $top. When neither can be used the item is refused; it is never copied and deleted.
//
// list() reads the home Trash and the Trashes in the top folders of the mounts listed in
// host().path("/proc/self/mountinfo") (so a test can hand in its own list; mount points are system
// paths there, mapped through host().path()). The "directorysizes" cache of a Trash is kept
// consistent by dropping the line of a folder that is erased or restored; new lines are never
// written (readers compute what is missing).

#include <optional>
#include <string>
#include <vector>

#include "support/host/TrashBackend.hpp"

namespace brimstell {

class FreedesktopTrash final : public quorv::TrashBackend {
public:
    std::optional<std::string> moveToTrash(const std::string& path, std::string& error) override;
    std::optional<std::string> moveNotingPlace(const std::string& path, std::string& error, std::string& original) override;
    std::vector<quorv::TrashedItem> list() override;
    std::vector<std::string> erase(const std::vector<std::string>& locations) override;
    void forgetRestored(const std::string& location) override;
    bool isInTrash(const std::string& location) override;

    // The current host's home Trash folder.
    static std::string homeTrash();
};

}  // namespace brimstell
