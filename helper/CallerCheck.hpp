#pragma once
// Who is on the other end of a connection, and whether the helper serves them.
//
// A caller is served when
//  - its user (SO_PEERCRED) is root or a member of one of the groups sudo, wheel or admin (or is
//    named by --trust-uid), has an entry in the user database and an absolute home;
//  - its process (SO_PEERCRED's pid) runs an installed Brimstell program: /proc/<pid>/exe is a
//    regular file named "brimstell" or "brimstell-agent" that only root can change, in folders
//    only root can change (quorv::rootControlled), and still the file at that path (or it lies
//    directly in a --trust-exe-dir folder);
//  - nothing is tracing the process, and every executable mapping of it is such a program or a
//    library only root can change (so an LD_PRELOAD of the user's own library, or code written
//    into anonymous memory, is refused).
//
// The server checks the process again after the request has arrived, and only takes bytes that
// the kernel says that very process wrote (SCM_CREDENTIALS), after it sent its challenge; so a
// program can't write a request and then exec a Brimstell binary to pass the check, nor hand the
// socket to a child.
//
// What this does not stop: code that already runs as an administrator can ptrace a Brimstell
// program it started, or hold a debugger on it, and make it ask for anything. Linux has no code
// signatures to check; the real boundary is the admin group, whose members can become root anyway.
// The helper's own rules (protected paths, the script's checks, the root it was given) decide what
// it touches, whoever asks.
//
// The caller's home (`me`): the user's name from the user database of the system the helper runs
// on; under Mac rules "/Users/<name>" when the helper's root holds that folder (a sandbox Mac laid
// out for that user), else (and always under Linux rules) the home the user database gives.

#include <sys/types.h>

#include <optional>
#include <string>

#include "helper/HelperOptions.hpp"

namespace brimstell::helperd {

struct Caller {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string name;
    std::string home;  // `me`, as the helper's rules see it
    // The running program, to check that it is still the same one later.
    dev_t exeDevice = 0;
    ino_t exeInode = 0;
};

// The caller on connection fd, or nullopt with the reason in why.
std::optional<Caller> identify(int fd, const HelperOptions& options, const std::string& rootPath, std::string& why);

// Whether the caller's process still runs the program it ran when identified, untraced and with
// only trusted code mapped.
bool stillTrusted(const Caller& caller, const HelperOptions& options, std::string& why);

}  // namespace brimstell::helperd
