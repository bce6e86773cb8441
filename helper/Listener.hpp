#pragma once
// The helper's listening socket: the one systemd hands over (socket activation), else one of its
// own at the path of its command line.

#include <optional>
#include <string>

#include "support/posix/UniqueFd.hpp"

namespace brimstell::helperd {

struct Activation {
    std::string listenPid;  // LISTEN_PID and LISTEN_FDS as the process started with them
    std::string listenFds;
};

// The socket systemd passed (descriptor 3) when LISTEN_PID is this process and LISTEN_FDS is 1 and
// it is a listening Unix stream socket; invalid otherwise.
quorv::UniqueFd activatedSocket(const Activation& activation);

// A new listening socket at path, mode 0666 (the helper checks its callers itself). A stale socket
// left at path is replaced; anything else there is left alone and fails. When makeFolder is set the
// folder is made (0755) if missing and must be a folder only root can change.
quorv::UniqueFd listenAt(const std::string& path, bool makeFolder, std::string& error);

}  // namespace brimstell::helperd
