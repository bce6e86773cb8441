#include "support/process/Shell.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <optional>

#include "support/host/Host.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/UniqueFd.hpp"

// How a run ends:
// - The tool exits and both pipes reach end of file: the usual case. Whatever it left running
//   with its output elsewhere is its own business and is left alone.
// - The time limit passes with the tool still running: its whole process group gets SIGTERM, a
//   short grace, then SIGKILL, and `timedOut` is set.
// - The tool exits but something it started still holds the output pipe: we keep reading for a
//   short while, then stop the group the same way, so a forgotten `sleep 1000 &` can't hang us.
// The group is the tool's own (it is made group leader at spawn), so it holds everything it
// starts except what deliberately leaves the group: a daemon that calls setsid() or setpgid()
// escapes this and lives on. We don't chase those; a subreaper or cgroup would be needed.
//
// The tool is reaped only after the last signal to its group has gone out. Until then it stays a
// zombie, which keeps its pid, and so its group id, from being given to an unrelated process.

namespace quorv {

namespace {

using Steady = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// After the tool exits, how long whatever it left holding the pipe may still write.
constexpr Seconds drainPeriod{0.5};
// Between SIGTERM and SIGKILL to the group.
constexpr Seconds gracePeriod{0.5};
// Without a process descriptor to wait on, how often we look whether the tool has exited: soon
// at first (most tools are quick), then every 32 ms.
constexpr int firstExitCheckMs = 1;
constexpr int exitCheckMs = 32;
// Reads per wake-up of one pipe, so a tool that writes without pause can't starve the clock.
constexpr int readsPerWake = 16;

bool holdsNul(const std::string& s) { return s.find('\0') != std::string::npos; }

// A descriptor of ours moved to 3 or above, so that the spawn's own redirections onto 0, 1 and 2
// can never close it under us (as when our process runs with a standard descriptor closed).
UniqueFd aboveStandard(UniqueFd fd) {
    if (!fd || fd.get() > 2) return fd;
    return UniqueFd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
}

struct Pipe {
    UniqueFd read;
    UniqueFd write;
};

std::optional<Pipe> makePipe() {
    int ends[2];
    if (compat::closeOnExecPipe(ends) != 0) return std::nullopt;
    Pipe p{UniqueFd(ends[0]), UniqueFd(ends[1])};
    p.read = aboveStandard(std::move(p.read));
    p.write = aboveStandard(std::move(p.write));
    if (!p.read || !p.write) return std::nullopt;
    // Only our end is non-blocking; the tool writes to a plain blocking pipe.
    const int flags = ::fcntl(p.read.get(), F_GETFL);
    if (flags < 0 || ::fcntl(p.read.get(), F_SETFL, flags | O_NONBLOCK) != 0) return std::nullopt;
    return p;
}

// One pipe we read from, keeping up to `cap` bytes and dropping the rest.
struct Reader {
    UniqueFd fd;
    std::string* into = nullptr;
    std::size_t cap = 0;
    bool overflowed = false;

    bool open() const { return fd.valid(); }

    // Reads what is there now (at most a few buffers). Closes at end of file or on error.
    void drain(int maxReads) {
        char buffer[65536];
        for (int i = 0; i < maxReads && open(); ++i) {
            const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
            if (n > 0) {
                const std::size_t got = static_cast<std::size_t>(n);
                const std::size_t room = into->size() < cap ? cap - into->size() : 0;
                if (got > room) overflowed = true;
                into->append(buffer, got < room ? got : room);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
            fd.reset();  // end of file, or an error we can't recover from
        }
    }
};

// A descriptor that becomes readable when the child exits, where the system offers one.
UniqueFd processDescriptor(pid_t pid) { return UniqueFd(compat::childExitDescriptor(pid)); }

enum class ExitCheck { running, exited, lost };

// Whether the child has exited, leaving it unreaped.
ExitCheck checkExit(pid_t pid) {
    for (;;) {
        siginfo_t info{};
        if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
            return info.si_pid == pid ? ExitCheck::exited : ExitCheck::running;
        }
        if (errno == EINTR) continue;
        // ECHILD: someone else reaped it (or SIGCHLD is ignored and the system did).
        return ExitCheck::lost;
    }
}

// Reaps the child and turns its end into a status: exit code, or 128 + signal.
int reap(pid_t pid) {
    int raw = 0;
    for (;;) {
        const pid_t r = ::waitpid(pid, &raw, 0);
        if (r == pid) break;
        if (r < 0 && errno == EINTR) continue;
        return -1;
    }
    if (WIFEXITED(raw)) return WEXITSTATUS(raw);
    if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
    return -1;
}

int millisecondsUntil(Steady::time_point when, Steady::time_point now) {
    if (when <= now) return 0;
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(when - now).count();
    return ms > 1'000'000 ? 1'000'000 : static_cast<int>(ms);
}

// posix_spawn's attribute and file-action objects, destroyed once.
struct SpawnSetup {
    posix_spawnattr_t attr;
    posix_spawn_file_actions_t actions;
    bool attrReady = false;
    bool actionsReady = false;

    SpawnSetup() {
        attrReady = ::posix_spawnattr_init(&attr) == 0;
        actionsReady = ::posix_spawn_file_actions_init(&actions) == 0;
    }
    ~SpawnSetup() {
        if (attrReady) ::posix_spawnattr_destroy(&attr);
        if (actionsReady) ::posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

}  // namespace

ShellResult Shell::run(const std::string& program, const std::vector<std::string>& args,
                       const ShellOptions& options) {
    ShellResult result;
    // A relative name would be looked up against whatever folder we happen to be in.
    if (program.empty() || program[0] != '/' || holdsNul(program)) return result;

    // A NUL byte can't be passed through exec; rather than cut a value short, refuse the run.
    std::vector<std::string> argStrings;
    argStrings.reserve(args.size() + 1);
    argStrings.push_back(program);
    for (const auto& a : args) {
        if (holdsNul(a)) return result;
        argStrings.push_back(a);
    }

    // Held while copied, so a host replaced meanwhile on another thread can't vanish under us.
    const auto base = currentHost();
    std::map<std::string, std::string> env = base->environment;
    for (const auto& [name, value] : options.environment) env[name] = value;
    std::vector<std::string> envStrings;
    envStrings.reserve(env.size());
    for (const auto& [name, value] : env) {
        if (name.empty() || name.find('=') != std::string::npos || holdsNul(name) || holdsNul(value)) {
            return result;
        }
        envStrings.push_back(name + "=" + value);
    }

    std::vector<char*> argv;
    argv.reserve(argStrings.size() + 1);
    for (auto& s : argStrings) argv.push_back(s.data());
    argv.push_back(nullptr);
    std::vector<char*> envp;
    envp.reserve(envStrings.size() + 1);
    for (auto& s : envStrings) envp.push_back(s.data());
    envp.push_back(nullptr);

    if (holdsNul(options.workingFolder)) return result;

    auto out = makePipe();
    if (!out) return result;
    std::optional<Pipe> err;
    if (options.captureErrors) {
        err = makePipe();
        if (!err) return result;
    }

    SpawnSetup setup;
    if (!setup.attrReady || !setup.actionsReady) return result;

    // Own process group (so the whole tree can be stopped), no blocked signals, and every signal
    // back to its default: a tool must not inherit our ignored SIGPIPE or a blocked SIGTERM.
    short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
#if defined(__APPLE__)
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;  // only the descriptors set up below reach the tool
#endif
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    bool ok = ::posix_spawnattr_setflags(&setup.attr, flags) == 0 &&
              ::posix_spawnattr_setpgroup(&setup.attr, 0) == 0 &&
              ::posix_spawnattr_setsigmask(&setup.attr, &none) == 0 &&
              ::posix_spawnattr_setsigdefault(&setup.attr, &all) == 0;

    posix_spawn_file_actions_t* fa = &setup.actions;
    ok = ok && ::posix_spawn_file_actions_addopen(fa, 0, "/dev/null", O_RDONLY, 0) == 0;
    ok = ok && ::posix_spawn_file_actions_adddup2(fa, out->write.get(), 1) == 0;
    if (err) {
        ok = ok && ::posix_spawn_file_actions_adddup2(fa, err->write.get(), 2) == 0;
    } else {
        ok = ok && ::posix_spawn_file_actions_addopen(fa, 2, "/dev/null", O_WRONLY, 0) == 0;
    }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Our own descriptors are close-on-exec, but another thread's library may have opened one
    // without; none of them reaches the tool.
    ok = ok && ::posix_spawn_file_actions_addclosefrom_np(fa, 3) == 0;
#endif
    if (!options.workingFolder.empty()) {
        ok = ok && ::posix_spawn_file_actions_addchdir_np(fa, options.workingFolder.c_str()) == 0;
    }
    if (!ok) return result;

    // posix_spawn, unlike fork, is safe with other threads running: the child shares nothing it
    // could deadlock on before exec, and an exec failure comes back as the return value.
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, program.c_str(), fa, &setup.attr, argv.data(), envp.data());
    out->write.reset();
    if (err) err->write.reset();
    if (spawned != 0) return result;
    result.started = true;

    const std::size_t cap = options.maxOutput;
    Reader readers[2];
    readers[0].fd = std::move(out->read);
    readers[0].into = &result.output;
    readers[0].cap = cap;
    if (err) {
        readers[1].fd = std::move(err->read);
        readers[1].into = &result.errorOutput;
        readers[1].cap = cap;
    }
    auto anyOpen = [&] { return readers[0].open() || readers[1].open(); };

    UniqueFd exitFd = processDescriptor(pid);

    const auto start = Steady::now();
    // Past a few decades a limit is no limit, and it must stay clear of the clock's range.
    const double limit = std::min(options.timeLimit, 1e9);
    const bool limited = std::isfinite(limit) && limit > 0;
    const auto deadline =
        limited ? start + std::chrono::duration_cast<Steady::duration>(Seconds(limit)) : Steady::time_point::max();

    bool exited = false;
    Steady::time_point drainEnd = Steady::time_point::max();
    bool termSent = false;
    Steady::time_point killAt = Steady::time_point::max();
    bool killSent = false;

    auto stopGroup = [&](Steady::time_point now) {
        ::kill(-pid, SIGTERM);
        termSent = true;
        killAt = now + std::chrono::duration_cast<Steady::duration>(gracePeriod);
    };
    auto killGroup = [&] {
        ::kill(-pid, SIGKILL);
        killSent = true;
    };
    bool lost = false;  // reaped behind our back; its status is unknown
    auto noteExit = [&](Steady::time_point now) {
        const ExitCheck check = checkExit(pid);
        if (check == ExitCheck::running) return;
        lost = check == ExitCheck::lost;
        exited = true;
        drainEnd = std::min(deadline, now + std::chrono::duration_cast<Steady::duration>(drainPeriod));
        exitFd.reset();
    };

    int tickMs = firstExitCheckMs;
    for (;;) {
        const auto now = Steady::now();

        if (!termSent && !exited && now >= deadline) {
            noteExit(now);  // it may have ended just in time, with the news not yet read
            if (!exited) {
                result.timedOut = true;
                stopGroup(now);
            }
        }
        if (!termSent && exited && anyOpen() && now >= drainEnd) stopGroup(now);
        if (termSent && !killSent && (now >= killAt || (exited && !anyOpen()))) {
            // Whatever ignored SIGTERM, or never held the pipe, goes now.
            killGroup();
        }
        if (killSent) break;
        if (exited && !anyOpen()) break;

        Steady::time_point wake = Steady::time_point::max();
        if (!termSent) wake = exited ? drainEnd : deadline;
        else wake = killAt;
        int timeout = wake == Steady::time_point::max() ? -1 : millisecondsUntil(wake, now);
        const bool tick = !exited && !exitFd;
        if (tick) {
            if (timeout < 0 || timeout > tickMs) timeout = tickMs;
            tickMs = std::min(tickMs * 2, exitCheckMs);
        }

        pollfd fds[3];
        int count = 0;
        int readerAt[2] = {-1, -1};
        for (int i = 0; i < 2; ++i) {
            if (!readers[i].open()) continue;
            readerAt[i] = count;
            fds[count++] = pollfd{readers[i].fd.get(), POLLIN, 0};
        }
        int exitAt = -1;
        if (!exited && exitFd) {
            exitAt = count;
            fds[count++] = pollfd{exitFd.get(), POLLIN, 0};
        }

        const int ready = ::poll(fds, static_cast<nfds_t>(count), timeout);
        if (ready < 0) {
            if (errno == EINTR) continue;
            // Can't wait any more; don't leave the tool behind.
            killGroup();
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (readerAt[i] >= 0 && fds[readerAt[i]].revents != 0) readers[i].drain(readsPerWake);
        }
        if (!exited && (tick || (exitAt >= 0 && fds[exitAt].revents != 0))) {
            noteExit(Steady::now());
        }
    }

    // What is already in the pipes is the tool's output too.
    for (auto& r : readers) {
        if (r.open()) r.drain(readsPerWake);
        r.fd.reset();
    }
    result.truncated = readers[0].overflowed || readers[1].overflowed;
    if (!lost) result.status = reap(pid);
    return result;
}

}  // namespace quorv
