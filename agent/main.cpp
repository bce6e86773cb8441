// brimstell-agent: started once an hour by launchd (or a systemd user timer); one run, then exit 0.

#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kit/agent/Agent.hpp"
#include "kit/agent/AgentReportText.hpp"
#include "kit/agent/ProcessHost.hpp"
#include "support/host/Host.hpp"

int main(int argc, char** argv) {
    if (argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::puts("brimstell-agent: Brimstell's background agent. launchd (or the systemd user timer\n"
                  "brimstell-agent.timer) starts it once an hour; each start is one run that does the\n"
                  "jobs that are due, alerts, refreshes the widget and exits. It takes no arguments.\n"
                  "From a terminal it prints what it did. Run it against a sandbox Mac with\n"
                  "BRIMSTELL_ROOT=<folder> BRIMSTELL_PLATFORM=mac HOME=<folder>/Users/<name>.");
        return 0;
    }
    const char* service = std::getenv("XPC_SERVICE_NAME");
    const std::optional<std::string> serviceName = service ? std::optional<std::string>(service) : std::nullopt;
    // Started by another launchd job or XPC context: not ours to run.
    if (!brimstell::Agent::shouldRun(serviceName)) return 0;

#ifdef __GLIBC__
    // One job runs at a time: the workers that take its blocking parts share the main heap rather
    // than each mapping (and at exit unmapping) an arena of its own.
    ::mallopt(M_ARENA_MAX, 1);
#endif

    brimstell::installProcessHost();
    const auto report = brimstell::Agent::run();

    // Under launchd or systemd the service name is set and nobody reads the output; from a
    // terminal, say what happened.
    if (!serviceName && ::isatty(STDOUT_FILENO)) {
        std::fputs(brimstell::reportText(report).c_str(), stdout);
    }
    return 0;
}
