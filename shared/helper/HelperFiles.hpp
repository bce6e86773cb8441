#pragma once
// The root helper's file jobs: moving items the user can't move into the right Trash, deleting
// them from it for good, and putting them back; the protected-path rules; the moved log.
//
// Every path that comes in, goes out or sits in the moved log is a path as the machine sees it
// ("/Users/ann/Library/Caches/x" on a Mac, "/home/ann/.cache/x" on Linux). The helper resolves
// those paths under a root folder: "/" on the machine, a sandbox folder in tests. Folders are
// opened one component at a time from the root's descriptor, never following a link, and the
// folder reached must report exactly the path asked for, so a request can never reach outside
// the root or through a link.
//
// A HelperFiles does no locking of its own: the helper serves one request at a time, and two
// concurrent writers of the moved log would lose a line.
//
// Names that hold a line feed, carriage return, tab or NUL are refused (a "FAIL" line): the reply
// and the moved log are tab-separated lines and such a name would be confused with another entry.
// In a "FAIL" line those bytes of the echoed entry are written as "?", so every reply still has
// exactly one line per entry, in input order, each ending in a line feed. Other bytes, including
// ones that are not UTF-8, pass through unchanged; the moved log is kept as bytes.
//
// Two sets of rules: a Mac's (its protected paths, ".Trash" folders, the moved log in
// /Library/Application Support/Brimstell) and Linux's (a table of its own, freedesktop.org Trash
// folders with a .trashinfo file for every item, the moved log in /var/lib/brimstell).
// Every move is a rename, so nothing crosses a file system: an item on another file system than
// the Trash it belongs in, or a restore through a stash on another file system than that Trash,
// is refused and stays where it was.

#include <sys/types.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/posix/UniqueFd.hpp"

namespace brimstell {

enum class HelperRules { mac, linux };

class HelperFiles {
public:
    // The moved log, one line per item the helper moved: path in the Trash, tab, former path,
    // tab, device ":" inode. The stash folder "restore" lies beside it.
    static constexpr std::string_view movedLog = "/Library/Application Support/Brimstell/helper-moved.log";
    // The same on Linux, in a folder only root can read (made with its parents when missing).
    static constexpr std::string_view linuxMovedLog = "/var/lib/brimstell/helper-moved.log";
    // On Linux, the folder of an account's Trash that holds the moved items, inside its home.
    static constexpr std::string_view freedesktopFiles = "/.local/share/Trash/files";
    static constexpr std::size_t maxLogLines = 20000;
    // "name", then "name 2" … "name 10000" when the name is taken in the Trash.
    static constexpr int maxNameTries = 10000;

    // Opens the root folder that absolute paths resolve under ("/" on a Mac). The root's own
    // path as the system reports it for its descriptor is what paths are checked against.
    // effectiveUser is the owner a stash must have and decides whether a failed change of a new
    // Trash's owner is fatal (only for root). nullopt when the root can't be opened.
    static std::optional<HelperFiles> open(const std::string& rootPath, HelperRules rules = HelperRules::mac,
                                           uid_t effectiveUser = ::geteuid());

    // True when the helper must not touch the path (case-insensitive rules on the Mac path).
    static bool isProtected(std::string_view path);
    // The same under the given rules. On Linux callerHome is the caller's own home, inside which
    // more is allowed than in another account's.
    static bool isProtected(std::string_view path, HelperRules rules, std::string_view callerHome = {});
    // True for a system path inside (or equal to) a folder a cloud client syncs: an account's
    // Library/CloudStorage or Mobile Documents, or a home folder such as Dropbox, OneDrive, MEGA,
    // Google Drive, pCloud Drive, Box or Sync. Any case.
    static bool isInSyncedFolder(std::string_view systemPath);

    // The file jobs. Each returns the reply: one line per entry, in input order.
    //   trash:      "OK\t<path>\t<new path in the Trash>\n" or "FAIL\t<path>\n"
    //   emptyTrash: "OK\t<path>\n" or "FAIL\t<path>\n"; entries must lie directly in home's Trash
    //   restore:    entries "<path in Trash>\t<original path>";
    //               "OK\t<path in Trash>\t<original path>\n" or "FAIL\t<path in Trash>\n"
    // home is the caller's home folder, known to the helper from the connection. An empty log
    // means this helper's own moved log (movedLog or linuxMovedLog).
    // On Linux the Trash is freedesktop.org's: "<path in the Trash>" lies in
    // "<home>/.local/share/Trash/files", and trash writes "info/<name>.trashinfo" beside it
    // (emptyTrash and restore remove it).
    std::string trash(const std::vector<std::string>& paths, const std::string& home,
                      std::string_view log = {}) const;
    std::string emptyTrash(const std::vector<std::string>& paths, const std::string& home) const;
    std::string restore(const std::vector<std::string>& pairs, const std::string& home,
                        std::string_view log = {}) const;

    // What a restore left in the stash when the helper was stopped half-way goes back to the
    // Trash its moved-log line names, under its name there (else the next free one, the line
    // following it). An item that no line claims goes to "unclaimed" beside the stash, a folder
    // only the helper's user can open, so that nothing is deleted and the stash stays free for the
    // names of later restores. Returns how many items were moved out of the stash.
    std::size_t sweepStash(std::string_view log = {}) const;

    // Runs the file job named op ("trash", "emptytrash", "restore") with this helper's moved log;
    // nullopt when op is not a file job.
    std::optional<std::string> run(std::string_view op, const std::vector<std::string>& list,
                                   const std::string& home) const;

    // The folder at an absolute path, opened component by component without following links;
    // invalid unless the folder reached is exactly the path asked for.
    quorv::UniqueFd openFolder(std::string_view path) const;
    // The ".Trash" folder directly in home, owned by home's owner; made (0700, home's owner and
    // group) when missing and create is set.
    quorv::UniqueFd openTrash(const std::string& home, bool create) const;
    // An account's Trash under these rules: on a Mac its ".Trash"; on Linux the "files" and
    // "info" folders of "<home>/.local/share/Trash", each level made when missing and create is
    // set (0700, home's owner and group), each owned by home's owner and never a link.
    struct Trash {
        quorv::UniqueFd files;
        quorv::UniqueFd info;  // Linux only
        std::string path;      // the folder that holds the items
    };
    std::optional<Trash> openTrashOf(const std::string& home, bool create) const;
    // A regular file at path, opened with flags plus no-follow and close-on-exec (0600 when made).
    quorv::UniqueFd openRecord(std::string_view path, int flags) const;
    // The folder at path, making its last component (0700) when missing; never more than one level.
    quorv::UniqueFd ensureFolder(std::string_view path) const;
    // The folder at path, making every missing component: 0755, the last one 0700.
    quorv::UniqueFd ensureFolders(std::string_view path) const;
    // The stash "restore" beside the log: made 0700 when missing; owned by the effective user
    // with no group or other permission.
    quorv::UniqueFd openStash(std::string_view log) const;

    // The moved log. note appends a line (keeping the newest maxLogLines), noted tells whether
    // the log holds exactly that line, forget removes it, rewrite replaces the whole log through
    // "<log>.tmp" and a rename, so a reader sees the old log or the new one, never a part.
    bool note(const std::string& line, std::string_view log) const;
    bool noted(const std::string& line, std::string_view log) const;
    bool forget(const std::string& line, std::string_view log) const;
    bool rewrite(std::string_view log, const std::vector<std::string>& lines) const;
    // The log's lines; nullopt when it can't be opened or read.
    std::optional<std::vector<std::string>> readLog(std::string_view log) const;

    const std::string& rootPath() const { return rootPath_; }
    uid_t effectiveUser() const { return euid_; }
    HelperRules rules() const { return rules_; }
    // This helper's moved log: movedLog or linuxMovedLog.
    std::string_view log() const { return rules_ == HelperRules::mac ? movedLog : linuxMovedLog; }

private:
    HelperFiles(quorv::UniqueFd root, std::string rootPath, HelperRules rules, uid_t euid);

    static bool isProtectedOnLinux(std::string_view path, std::string_view callerHome);
    // The home whose Trash folder (as Trash::path names it) is `folder`; nullopt for any other folder.
    std::optional<std::string> homeOfTrash(std::string_view folder) const;
    // The folder of the moved log, made when missing (one level on a Mac, with its parents on Linux).
    quorv::UniqueFd logFolder(std::string_view folder) const;
    // Moves fromName into the Trash as `name`, else "name 2" … "name 10000"; on Linux with its
    // .trashinfo for `original` made first. The name used, or nullopt.
    std::optional<std::string> moveIntoTrash(int fromDir, const std::string& fromName, const Trash& trash,
                                             const std::string& name, const std::string& original) const;
    // Puts an item from the stash back into its Trash: under `name` when free (its .trashinfo is
    // still there), else as moveIntoTrash does.
    std::optional<std::string> putBack(int stash, const std::string& name, const Trash& trash,
                                       const std::string& original) const;
    bool sweepOne(int logFolder, int stash, const std::string& name, const std::vector<std::string>& logLines,
                  std::string_view log) const;

    // The path the system reports for a descriptor of the Mac path `path`.
    std::string systemPath(std::string_view path) const;
    bool trashOne(const std::string& path, const std::string& home, std::string_view log, std::string& reply) const;
    bool emptyOne(const Trash& trash, dev_t trashDevice, const std::string& path) const;
    bool restoreOne(const std::string& pair, const std::string& home, std::string_view log, std::string& reply) const;

    quorv::UniqueFd root_;
    std::string rootPath_;
    HelperRules rules_;
    uid_t euid_;
};

}  // namespace brimstell
