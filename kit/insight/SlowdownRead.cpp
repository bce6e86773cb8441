// Taking a reading, quitting what a fix names, and the names of the values JSON shows.

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "kit/insight/SlowdownMac.hpp"
#include "kit/insight/SlowdownReaders.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

namespace {

// A sandbox (a sandbox Mac, or a test's Linux tree) has no processes of its own to quit: what
// would have been asked is written, one process id a line, into its quit log.
bool recordQuit(std::uint32_t pid) {
    const std::string location = quorv::host().path(slowdownRead::quitLog);
    quorv::files::makeFolders(location.substr(0, location.rfind('/')));
    std::ofstream log(location, std::ios::app);
    log << pid << '\n';
    return static_cast<bool>(log);
}

// Only a process of the user's own account (its /proc entry is owned by the user), so that a
// process id taken over by someone else's program since the reading is left alone; never
// process 1 or ourselves.
bool terminateOwn(std::uint32_t pid) {
    struct stat st {};
    if (pid <= 1 || pid == static_cast<std::uint32_t>(::getpid())) return false;
    if (::stat(quorv::host().path("/proc/" + std::to_string(pid)).c_str(), &st) != 0 || st.st_uid != quorv::host().uid)
        return false;
    return ::kill(static_cast<pid_t>(pid), SIGTERM) == 0;
}

}  // namespace

namespace slowdownRead {

bool quitProcess(std::uint32_t pid) {
    if (pid == 0 || pid > 0x7fffffffu) return false;
    if (quorv::host().sandbox) return recordQuit(pid);
    if (quorv::host().isMac()) return macAskToQuit(static_cast<pid_t>(pid));
    return terminateOwn(pid);
}

}  // namespace slowdownRead

Slowdown::Reading Slowdown::read() {
    return quorv::host().isMac() ? slowdownRead::readMac() : slowdownRead::readLinux();
}

// On a Mac only an app's main process answers a request to quit; its helpers go with it. On Linux
// every process of the program is asked.
bool Slowdown::quit(const Fix& fix) {
    const auto* q = std::get_if<Quit>(&fix);
    if (!q) return false;
    bool asked = false;
    for (const auto pid : q->pids) asked = slowdownRead::quitProcess(pid) || asked;
    return asked;
}

const char* Slowdown::severityName(Severity s) {
    switch (s) {
        case Severity::low: return "low";
        case Severity::medium: return "medium";
        case Severity::high: return "high";
    }
    return "";
}

const char* Slowdown::thermalName(Thermal t) {
    switch (t) {
        case Thermal::nominal: return "nominal";
        case Thermal::fair: return "fair";
        case Thermal::serious: return "serious";
        case Thermal::critical: return "critical";
    }
    return "";
}

const char* Slowdown::pressureName(MemoryPressure p) {
    switch (p) {
        case MemoryPressure::normal: return "normal";
        case MemoryPressure::warning: return "warning";
        case MemoryPressure::critical: return "critical";
    }
    return "";
}

const char* Slowdown::toolName(Tool t) { return t == Tool::startup ? "startup" : "freeUpSpace"; }

#ifndef __APPLE__
std::pair<Slowdown::Thermal, bool> macProcessInfo() { return {Slowdown::Thermal::nominal, false}; }
bool macAskToQuit(pid_t) { return false; }
#endif

}  // namespace brimstell
