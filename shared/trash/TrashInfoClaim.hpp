#pragma once
// A .trashinfo file put in place whole or not at all. Its text is first written under a temporary
// name in info/ that trash-cli, gio and the file managers ignore (it doesn't end in ".trashinfo"),
// then linked to its real name, which never replaces a file already there. A mover killed at any
// moment leaves either nothing under the real name or the whole text, never an empty or half file
// that would block the name and read as broken.

#include <sys/types.h>

#include <optional>
#include <string>

namespace brimstell {

class TrashInfoClaim {
public:
    struct Owner {
        uid_t uid;
        gid_t gid;
    };

    // Writes text under a temporary name in the info folder infoFd. With an owner the file is given
    // to it (the root helper writes into other accounts' Trash folders); with sync it is on disk
    // before it can be claimed. nullopt when it can't be written.
    static std::optional<TrashInfoClaim> prepare(int infoFd, std::string text, std::optional<Owner> owner = std::nullopt,
                                                 bool sync = false);

    TrashInfoClaim(TrashInfoClaim&& other) noexcept;
    TrashInfoClaim& operator=(TrashInfoClaim&&) = delete;
    TrashInfoClaim(const TrashInfoClaim&) = delete;
    TrashInfoClaim& operator=(const TrashInfoClaim&) = delete;
    // Removes the temporary name (a claimed text stays under its real name).
    ~TrashInfoClaim();

    // Puts the text in place as `info` ("<name>.trashinfo"): a hard link where the file system has
    // them, else an exclusive rename after which a new temporary text is written for the next try.
    // 0, or the errno value (EEXIST when the name is taken).
    int claim(const std::string& info);

    // Removes temporary texts that a mover killed mid-move left in the info folder, once they are
    // a day older than now: a live mover keeps one for a moment only.
    static void sweep(int infoFd, double now);

private:
    TrashInfoClaim(int infoFd, std::string text, std::optional<Owner> owner, bool sync);
    bool write();

    int infoFd_;
    std::string text_;
    std::optional<Owner> owner_;
    bool sync_;
    std::string temp_;  // empty while there is none
};

}  // namespace brimstell
