// brimstell-helper: the root helper's daemon. See HelperServer (the loop), CallerCheck (who is
// served) and HelperDispatch (what a request does).

#include <cstdio>
#include <string>

#ifdef __linux__

#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>

#include "helper/HelperOptions.hpp"
#include "helper/HelperServer.hpp"
#include "helper/Listener.hpp"
#include "shared/helper/HelperDispatch.hpp"
#include "support/host/Host.hpp"

namespace {

std::atomic<bool> stopRequested{false};

void onStopSignal(int) { stopRequested.store(true); }

void installSignals() {
    struct sigaction stop {};
    stop.sa_handler = onStopSignal;
    sigemptyset(&stop.sa_mask);
    stop.sa_flags = 0;  // no SA_RESTART: the wait for callers returns and sees the request
    ::sigaction(SIGTERM, &stop, nullptr);
    ::sigaction(SIGINT, &stop, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGHUP, SIG_IGN);
}

std::string variable(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

// Nothing inherited steers the helper or anything it runs: its host holds a fixed environment,
// its root comes from its command line alone.
void installFixedHost() {
    const std::string path(brimstell::HelperDispatch::systemPath);
    ::clearenv();
    ::setenv("PATH", path.c_str(), 1);
    ::setenv("LC_ALL", "C", 1);
    auto host = std::make_shared<quorv::Host>();
    host->uid = ::geteuid();
    // The clock dates the .trashinfo files of the Linux Trash.
    host->clock = [] {
        using namespace std::chrono;
        return duration<double>(system_clock::now().time_since_epoch()).count();
    };
    host->environment.emplace("PATH", path);
    host->environment.emplace("LC_ALL", "C");
    quorv::setProcessHost(host);
}

// The socket to serve: the one systemd passed, else our own at the configured path (whose file
// is noted in socketFile, so that only that one is removed at the end).
quorv::UniqueFd openListener(const brimstell::helperd::Activation& activation, const brimstell::helperd::HelperOptions& options,
                             bool& ownSocket, struct stat& socketFile) {
    quorv::UniqueFd listener = brimstell::helperd::activatedSocket(activation);
    ownSocket = !listener;
    if (!ownSocket) return listener;
    std::string error;
    listener = brimstell::helperd::listenAt(options.socketPath, !options.socketGiven, error);
    if (!listener) {
        ::syslog(LOG_ERR, "%s", error.c_str());
        return listener;
    }
    ::lstat(options.socketPath.c_str(), &socketFile);
    return listener;
}

// Our own socket goes with us, unless something else has taken its place meanwhile.
void removeOwnSocket(const std::string& path, const struct stat& socketFile) {
    struct stat now {};
    if (::lstat(path.c_str(), &now) == 0 && now.st_ino == socketFile.st_ino && now.st_dev == socketFile.st_dev) {
        ::unlink(path.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    using namespace brimstell;
    // What socket activation passed is read before the environment goes.
    const helperd::Activation activation{variable("LISTEN_PID"), variable("LISTEN_FDS")};

    std::string message;
    int exitCode = 0;
    const auto options = helperd::parseOptions(argc, argv, message, exitCode);
    if (!options) {
        std::fputs(message.c_str(), exitCode == 0 ? stdout : stderr);
        return exitCode;
    }
    installFixedHost();
    installSignals();
    ::openlog("brimstell-helper", LOG_PID | (options->logToStderr ? LOG_PERROR : 0), LOG_DAEMON);

    auto dispatch = HelperDispatch::open(options->root, options->rules);
    if (!dispatch) {
        ::syslog(LOG_ERR, "can't open the root %s", options->root.c_str());
        return 1;
    }
    // Before any request: whatever a restore left in the stash when the helper was stopped.
    if (const auto swept = dispatch->files().sweepStash(); swept > 0) {
        ::syslog(LOG_NOTICE, "moved %zu item(s) left by an unfinished restore out of the stash", swept);
    }
    bool ownSocket = false;
    struct stat socketFile {};
    quorv::UniqueFd listener = openListener(activation, *options, ownSocket, socketFile);
    if (!listener) return 1;
    ::syslog(LOG_INFO, "serving on %s, root %s, %s rules",
             ownSocket ? options->socketPath.c_str() : "the socket systemd passed", options->root.c_str(),
             options->rules == HelperRules::mac ? "Mac" : "Linux");

    helperd::HelperServer server(std::move(listener), std::move(*dispatch), *options);
    server.run(stopRequested);
    if (ownSocket) removeOwnSocket(options->socketPath, socketFile);
    return 0;
}

#else

int main() {
    std::fputs("brimstell-helper: this program serves Linux; on a Mac the helper is an XPC service.\n", stderr);
    return 1;
}

#endif
