#pragma once
// Why a sandbox Mac is slow: the fake "/bin/ps", "/usr/sbin/sysctl", "/usr/bin/vm_stat" and
// "/usr/bin/tmutil" printing a recorded state of the machine, and the recorded answers of its
// process-info interface (thermal state, Low Power Mode).

#include "kit/sandbox/SandboxMac.hpp"

namespace brimstell {

// Processes of a Mac much like the one ps listed in the real recording we started from (a second
// account signed in, Spotlight at work), with a busy app, a busy root daemon and apps holding
// gigabytes; 16 GB of memory with 4.5 GB swapped out; up for 16 days; Low Power Mode on.
void addSlowdown(SandboxMac& mac);

}  // namespace brimstell
