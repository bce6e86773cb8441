#pragma once
// The app's and the agent's side of the root helper: registers the helper with the service manager,
// checks that it speaks our protocol version, and offers one call per helper operation. Every
// engine that needs root goes through here; nothing else talks to the helper.
//
// The channel is the host's `helper` transport and the registration its `helperService`, so a
// sandbox or a test brings its own. Paths in and out are locations (real paths, under the sandbox
// root when there is one); the helper is sent the paths as the Mac sees them.
//
// When the helper can't be used, every operation says so by its result (an empty set, nullopt,
// `unavailable`, false) and the caller shows that the work needs admin access.

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/files/FileItem.hpp"

namespace brimstell {

// One category of junk that only root can see, from the helper's "junk" reply.
struct HelperJunkCategory {
    std::string kind;    // "cache", "log" or "user"; on Linux "log", "core", "package" or "user"
    std::string name;    // "System Caches", "System Logs", "Other Users"
    std::string icon;    // "gearshape", "doc.text.magnifyingglass", "person.2"
    std::string detail;  // "/Library/Caches · Apple's excluded", …
    std::vector<FileItem> items;
};

// What became of one entry sent to the helper.
enum class HelperOutcome {
    done,         // an "OK" line
    refused,      // a "FAIL" line, no line, or an entry that could not be sent
    unavailable,  // the helper could not be started or did not answer
};

struct Admin {
    // The version handshake's wait, and the pause before its one retry.
    static constexpr double handshakeTimeout = 5;
    static constexpr double retryDelay = 0.5;
    // The ones in use: the above unless set otherwise (tests shorten them).
    struct Timing {
        double handshake = handshakeTimeout;
        double retry = retryDelay;
    };
    static Timing timing();
    static void setTiming(Timing t);

    // Resumes a waiting continuation exactly once: the reply, the error and the timeout of one call
    // race to resume it, the first one wins and the others do nothing.
    class Once {
    public:
        using Continuation = std::function<void(std::optional<std::string>)>;
        explicit Once(Continuation continuation);
        // True for the one call that resumed the continuation.
        bool resume(std::optional<std::string> value);

    private:
        std::mutex mutex_;
        std::optional<Continuation> continuation_;
    };

    // Whether the helper's registration is enabled.
    static bool refresh();
    // Whether the helper is usable: registers it when it is not registered or not found, and asks
    // its version (see the .cpp). Concurrent callers share one attempt.
    static bool start();
    // True once a version handshake matched; false again when the connection is lost.
    static bool ready();

    // One request: op "version" asks the version, anything else runs op. With a timeout (seconds)
    // nothing comes back after it has passed. nullopt when no reply came.
    static std::optional<std::string> callHelper(const std::string& op, const std::string& arg,
                                                 const std::vector<std::string>& list,
                                                 std::optional<double> timeout = std::nullopt);

    // Moves what the user can't move into the right Trash. Locations that canTrash refuses are
    // never sent; with none left the helper isn't even started. Returns the locations moved, and
    // records them in the cleaning history as moved by root (under source, when given).
    static std::set<std::string> trash(const std::vector<std::string>& locations,
                                       const std::optional<std::string>& source = std::nullopt);
    // The same, telling where each moved location went (its location in the Trash); nullopt when
    // the helper was needed and could not be used.
    static std::optional<std::map<std::string, std::string>> moveToTrash(
        const std::vector<std::string>& locations, const std::optional<std::string>& source = std::nullopt);
    // Puts back what the helper moved: (location in the Trash, original location) pairs.
    static std::vector<HelperOutcome> restore(const std::vector<std::pair<std::string, std::string>>& pairs);
    // Deletes for good items directly in the user's Trash.
    static std::vector<HelperOutcome> emptyTrash(const std::vector<std::string>& locations);
    // Switches a system background service on or off. A label other than letters, digits, ".",
    // "_" and "-" fails without calling the helper.
    static bool setDaemon(const std::string& label, bool on);
    // "flushdns", "reindex" or "thin"; true when the helper said "OK".
    static bool maintenance(const std::string& op);
    // System caches, system logs and other accounts' junk; nullopt when the helper can't be used.
    static std::optional<std::vector<HelperJunkCategory>> scanJunk();
    // Regular files above minKB kilobytes anywhere on the data volume; nullopt when the helper
    // can't be used.
    static std::optional<std::vector<FileItem>> largeFiles(std::int64_t minKB);

    // Whether the helper would accept the location (the client's mirror of its protected paths:
    // a Mac's, or on Linux the Linux rules with the user's home as the caller's).
    static bool canTrash(const std::string& location);
    // A path as root sees it: on a Mac "/var/", "/etc/" and "/tmp/" get "/private" in front;
    // elsewhere it stays as it is.
    static std::string rootPath(std::string_view path);

    // Unregisters the helper; false with nothing changed when the service manager refused.
    static bool uninstallHelper();
    // Sends the user to where the helper is approved, when the platform has such a place.
    static void requestAccess();

    // Lets the cleaning history put back what the helper moved (History::setRootRestorer).
    // Idempotent; the process host's installer calls it.
    static void connectHistory();

    // The helper's replies read, for the operations above (pure, apart from mapping paths through
    // the host). Lines and records that don't have the expected shape are skipped.
    static std::vector<HelperJunkCategory> junkCategories(std::string_view reply);
    static std::vector<FileItem> largeFileItems(std::string_view reply);
    // (original path, path in the Trash) of every "OK" line whose original path was sent.
    static std::vector<std::pair<std::string, std::string>> movedPairs(std::string_view reply,
                                                                      const std::set<std::string>& sent);
};

}  // namespace brimstell
