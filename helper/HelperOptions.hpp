#pragma once
// brimstell-helper's command line: the only place its root and its test-only trust come from.
// Nothing is ever taken from the environment or from a caller.

#include <sys/types.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "shared/helper/HelperFiles.hpp"

namespace brimstell::helperd {

struct HelperOptions {
    std::string socketPath = "/run/brimstell/helper.sock";
    bool socketGiven = false;  // --socket: the folder must exist; nothing is created but the socket
    std::string root = "/";    // where the paths of requests resolve
    // Whose rules the file jobs follow: Linux's on the machine's own root, a Mac's under --root
    // (a sandbox Mac), unless --rules says otherwise. Mac rules on the machine's own root are
    // refused: they would open a Linux system to what a Mac leaves open.
    HelperRules rules = HelperRules::linux;
    // For tests: callers with these uids count as administrators, and programs lying directly in
    // these folders count as Brimstell binaries, whoever owns them and whatever their name.
    std::set<uid_t> trustUids;
    std::vector<std::string> trustExeDirs;
    bool logToStderr = false;
};

// The options, or nullopt with the sentence to print (exitCode 0 for --help and --version).
std::optional<HelperOptions> parseOptions(int argc, char** argv, std::string& message, int& exitCode);

}  // namespace brimstell::helperd
