#pragma once
// What the root helper does with one request, once it knows who asked: the daemon calls it for
// every accepted request, and a sandbox runs it in-process in place of the daemon.
//
// - "version" answers HelperInfo::version.
// - An op outside HelperScript::operations is refused before anything runs: the reply is empty.
// - The file jobs ("trash", "emptytrash", "restore") run in-process through HelperFiles, with the
//   caller's home as `home` and the moved log of the dispatcher's rules.
// - Under Linux rules "junk" runs in-process too (HelperLinuxJunk): the script's folders are a Mac's.
// - Every other op runs the script: `bash -c <dispatch> brimstell-helper <me> <op> <arg> <list>`
//   through /usr/bin/env -i, so bash sees exactly PATH and LC_ALL=C and nothing else, whatever the
//   environment of the process that serves the request. The list is handed over as $4 with its
//   entries joined by line feeds (no script operation reads it). Standard error is discarded;
//   standard output is the reply. An arg or list entry holding a NUL byte can't be passed to a
//   program: the request is refused with an empty reply.
//
// PATH is /usr/bin:/bin:/usr/sbin:/sbin. For a sandbox root (anything but "/") the root's own
// usr/bin, bin, usr/sbin and sbin come first, so the sandbox's fake tools (launchctl, tmutil…)
// stand in for the system's; the script's folders (/Library/Caches, /Users…) are still the real
// system's, which on Linux hold none of them. The root is fixed by whoever builds the dispatcher
// (the daemon takes it from its own command line only).

#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "shared/helper/HelperFiles.hpp"

namespace brimstell {

class HelperDispatch {
public:
    static constexpr std::string_view systemPath = "/usr/bin:/bin:/usr/sbin:/sbin";
    // bash's $0 for the script.
    static constexpr std::string_view scriptName = "brimstell-helper";
    // What one script operation may take before it is stopped (btm has its own 20-second watchdog).
    static constexpr double scriptTimeLimit = 600;
    static constexpr std::string_view envProgram = "/usr/bin/env";
    static constexpr std::string_view bashProgram = "/bin/bash";

    // nullopt when the root can't be opened.
    static std::optional<HelperDispatch> open(const std::string& root, HelperRules rules = HelperRules::mac,
                                              uid_t effectiveUser = ::geteuid());

    // The reply to one request from the user whose home is me (a path as the Mac sees it).
    std::string run(std::string_view op, std::string_view arg, const std::vector<std::string>& list,
                    const std::string& me) const;
    static std::string version();

    // The arguments of /usr/bin/env (envProgram) that run the script for a request:
    // -i PATH=… LC_ALL=C /bin/bash -c <dispatch> brimstell-helper <me> <op> <arg> <list>.
    std::vector<std::string> scriptArguments(const std::string& me, std::string_view op, std::string_view arg,
                                             const std::vector<std::string>& list) const;
    std::string scriptPath() const;  // the PATH bash gets

    const HelperFiles& files() const { return files_; }
    const std::string& root() const { return root_; }

private:
    HelperDispatch(HelperFiles files, std::string root);

    HelperFiles files_;
    std::string root_;
};

}  // namespace brimstell
