// brimstell-agent: started once an hour by launchd (or a systemd user timer); one run, then exit 0.

#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "kit/agent/Agent.hpp"
#include "kit/agent/AgentReportText.hpp"
#include "kit/agent/ProcessHost.hpp"
#include "support/host/Host.hpp"

namespace {

constexpr const char* usage =
    "Usage: brimstell-agent [--help | --version]\n"
    "\n"
    "Brimstell's background agent. launchd (or the systemd user timer brimstell-agent.timer)\n"
    "starts it once an hour; each start is one run that does the jobs that are due, alerts,\n"
    "refreshes the widget and exits. From a terminal it prints what it did. Run it against a\n"
    "sandbox Mac with BRIMSTELL_ROOT=<folder> BRIMSTELL_PLATFORM=mac HOME=<folder>/Users/<name>.\n";

// Arguments are only ever asked for help or the version: anything else is refused before a run,
// which may clean, could start. -1 when a run is to go ahead, else the exit status.
int answerArguments(int argc, char** argv) {
    if (argc <= 1) return -1;
    const std::string_view first = argv[1];
    const bool help = first == "--help" || first == "-h";
    const bool version = first == "--version";
    if (argc == 2 && help) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (argc == 2 && version) {
        std::puts("brimstell-agent " BRIMSTELL_VERSION);
        return 0;
    }
    const char* unexpected = help || version ? argv[2] : argv[1];
    std::fprintf(stderr, "brimstell-agent: unexpected argument %s\n%s", unexpected, usage);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (const int answered = answerArguments(argc, argv); answered >= 0) return answered;
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
