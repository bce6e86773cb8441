#pragma once
// The helper client's three lines in the system log, under the subsystem "com.quorv.brimstell"
// (os_log on a Mac, syslog with that tag on Linux, or the host's systemLog when it has one).

#include <string>

namespace brimstell::adminlog {

// "helper register failed: <error>", at error level.
void registerFailed(const std::string& error);
// "helper version <reply>, app expects <expected>"
void versionMismatch(const std::string& reply, const std::string& expected);
// "helper status: <status>"
void status(long status);

}  // namespace brimstell::adminlog
