// brimstell-demo-feeds: serves the demo Mac's update feeds and App Store answers from 127.0.0.1, in
// the background, for `brimstell updates` to find. Run in a shell where `brimstell demo` set the
// sandbox's variables:
//
//   eval "$(build/brimstell-demo-feeds [SECONDS])"
//
// It prints the two variables that point the sandbox at the server (the authority to trust and
// where to connect), and serves for SECONDS (default 600) before it ends by itself.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "kit/agent/ProcessHost.hpp"
#include "kit/sandbox/DemoFeeds.hpp"
#include "kit/sandbox/FeedServer.hpp"
#include "support/host/Host.hpp"

using namespace brimstell;

namespace {

// In the child: starts the server, sends the variables through the pipe, and serves.
[[noreturn]] void serve(int out, double seconds) {
    ::setsid();
    const auto& h = quorv::host();
    auto server = FeedServer::start(h.root, DemoFeeds::hostNames());
    if (!server) {
        std::fprintf(stderr, "brimstell-demo-feeds: the feed server couldn't start\n");
        std::_Exit(1);
    }
    for (const auto& [path, body] : DemoFeeds::answers()) server->serve(path, {body});
    const std::string variables = "export BRIMSTELL_SANDBOX_CA_FILE='" + server->caFile() +
                                  "'\nexport BRIMSTELL_SANDBOX_FEEDS_AT='127.0.0.1:" + std::to_string(server->port()) + "'\n";
    if (::write(out, variables.data(), variables.size()) != static_cast<ssize_t>(variables.size())) std::_Exit(1);
    ::close(out);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    server.reset();
    std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 600;
    if (argc > 2 || seconds <= 0) {
        std::fprintf(stderr, "usage: brimstell-demo-feeds [SECONDS > 0]\n");
        return 2;
    }
    installProcessHost();
    const auto& h = quorv::host();
    if (!h.sandbox || !h.isMac()) {
        std::fprintf(stderr, "brimstell-demo-feeds: run it where `brimstell demo` set BRIMSTELL_ROOT and BRIMSTELL_PLATFORM=mac\n");
        return 2;
    }
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return 1;
    const pid_t child = ::fork();
    if (child < 0) return 1;
    if (child == 0) {
        ::close(pipeFds[0]);
        // Nothing of the child's may hold the caller's output open, or `$(…)` would wait for it.
        std::freopen("/dev/null", "w", stdout);
        serve(pipeFds[1], seconds);
    }
    ::close(pipeFds[1]);
    char buffer[4096];
    ssize_t n = 0;
    std::string variables;
    while ((n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0) variables.append(buffer, static_cast<std::size_t>(n));
    if (variables.empty()) return 1;
    std::fputs(variables.c_str(), stdout);
    return 0;
}
