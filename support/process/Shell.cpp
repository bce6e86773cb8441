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
#include <optional>

#include "support/host/Host.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/UniqueFd.hpp"
#include "support/process/StopPlan.hpp"

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

// The program's arguments and environment as exec takes them.
struct Command {
    std::vector<std::string> args;
    std::vector<std::string> env;
};

// The command for program, or nullopt when something in it can't be passed through exec (a NUL
// byte, a malformed variable name): rather than cut a value short, the run is refused.
std::optional<Command> prepare(const std::string& program, const std::vector<std::string>& args,
                               const ShellOptions& options) {
    // A relative name would be looked up against whatever folder we happen to be in.
    if (program.empty() || program[0] != '/' || holdsNul(program) || holdsNul(options.workingFolder)) return std::nullopt;
    Command command;
    command.args.reserve(args.size() + 1);
    command.args.push_back(program);
    for (const auto& a : args) {
        if (holdsNul(a)) return std::nullopt;
        command.args.push_back(a);
    }
    // Held while copied, so a host replaced meanwhile on another thread can't vanish under us.
    const auto base = currentHost();
    std::map<std::string, std::string> env = base->environment;
    for (const auto& [name, value] : options.environment) env[name] = value;
    command.env.reserve(env.size());
    for (const auto& [name, value] : env) {
        if (name.empty() || name.find('=') != std::string::npos || holdsNul(name) || holdsNul(value)) return std::nullopt;
        command.env.push_back(name + "=" + value);
    }
    return command;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    out.reserve(strings.size() + 1);
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

// Own process group (so the whole tree can be stopped), no blocked signals, and every signal
// back to its default: a tool must not inherit our ignored SIGPIPE or a blocked SIGTERM.
bool setAttributes(posix_spawnattr_t& attr) {
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
    return ::posix_spawnattr_setflags(&attr, flags) == 0 && ::posix_spawnattr_setpgroup(&attr, 0) == 0 &&
           ::posix_spawnattr_setsigmask(&attr, &none) == 0 && ::posix_spawnattr_setsigdefault(&attr, &all) == 0;
}

// Standard input from /dev/null, output to outFd, errors to errFd (or /dev/null when it is -1),
// nothing else inherited, and the working folder.
bool setFileActions(posix_spawn_file_actions_t* fa, int outFd, int errFd, const std::string& workingFolder) {
    bool ok = ::posix_spawn_file_actions_addopen(fa, 0, "/dev/null", O_RDONLY, 0) == 0;
    ok = ok && ::posix_spawn_file_actions_adddup2(fa, outFd, 1) == 0;
    if (errFd >= 0) {
        ok = ok && ::posix_spawn_file_actions_adddup2(fa, errFd, 2) == 0;
    } else {
        ok = ok && ::posix_spawn_file_actions_addopen(fa, 2, "/dev/null", O_WRONLY, 0) == 0;
    }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Our own descriptors are close-on-exec, but another thread's library may have opened one
    // without; none of them reaches the tool.
    ok = ok && ::posix_spawn_file_actions_addclosefrom_np(fa, 3) == 0;
#endif
    if (!workingFolder.empty()) ok = ok && ::posix_spawn_file_actions_addchdir_np(fa, workingFolder.c_str()) == 0;
    return ok;
}

// A started tool: its pid and the read ends of its output and (when captured) error pipes.
struct Child {
    pid_t pid = -1;
    UniqueFd out;
    UniqueFd err;
};

std::optional<Child> spawn(Command& command, const ShellOptions& options) {
    auto out = makePipe();
    if (!out) return std::nullopt;
    std::optional<Pipe> err;
    if (options.captureErrors && !(err = makePipe())) return std::nullopt;
    SpawnSetup setup;
    if (!setup.attrReady || !setup.actionsReady || !setAttributes(setup.attr) ||
        !setFileActions(&setup.actions, out->write.get(), err ? err->write.get() : -1, options.workingFolder)) {
        return std::nullopt;
    }
    auto argv = pointers(command.args);
    auto envp = pointers(command.env);
    // posix_spawn, unlike fork, is safe with other threads running: the child shares nothing it
    // could deadlock on before exec, and an exec failure comes back as the return value.
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, argv[0], &setup.actions, &setup.attr, argv.data(), envp.data());
    if (spawned != 0) return std::nullopt;
    return Child{pid, std::move(out->read), err ? std::move(err->read) : UniqueFd()};
}

enum class Woke { quiet, exitSignalled, interrupted, failed };

// Waits up to timeout ms (-1: no limit) for output or the tool's exit (exitFd, or -1), reading
// what came.
Woke waitOnce(Reader (&readers)[2], int exitFd, int timeout) {
    pollfd fds[3];
    int count = 0;
    int readerAt[2] = {-1, -1};
    for (int i = 0; i < 2; ++i) {
        if (!readers[i].open()) continue;
        readerAt[i] = count;
        fds[count++] = pollfd{readers[i].fd.get(), POLLIN, 0};
    }
    const int exitAt = exitFd >= 0 ? count : -1;
    if (exitFd >= 0) fds[count++] = pollfd{exitFd, POLLIN, 0};
    if (::poll(fds, static_cast<nfds_t>(count), timeout) < 0) return errno == EINTR ? Woke::interrupted : Woke::failed;
    for (int i = 0; i < 2; ++i) {
        if (readerAt[i] >= 0 && fds[readerAt[i]].revents != 0) readers[i].drain(readsPerWake);
    }
    return exitAt >= 0 && fds[exitAt].revents != 0 ? Woke::exitSignalled : Woke::quiet;
}

// How long the next wait may be: until the plan's next moment, and, while the exit can only be
// seen by looking, no longer than the current tick (which grows to exitCheckMs).
int nextTimeout(const StopPlan& plan, Steady::time_point now, bool ticking, int& tickMs) {
    const auto wake = plan.wake();
    int timeout = wake == Steady::time_point::max() ? -1 : millisecondsUntil(wake, now);
    if (ticking) {
        if (timeout < 0 || timeout > tickMs) timeout = tickMs;
        tickMs = std::min(tickMs * 2, exitCheckMs);
    }
    return timeout;
}

// Reads the tool's pipes until it and what it left are done, stopping its group as the plan says.
// False when its end was reaped by someone else, so its status is unknown.
bool watch(Child& child, Reader (&readers)[2], const ShellOptions& options, ShellResult& result) {
    auto anyOpen = [&] { return readers[0].open() || readers[1].open(); };
    UniqueFd exitFd = processDescriptor(child.pid);
    StopPlan plan(Steady::now(), options.timeLimit);
    bool lost = false;
    auto noteExit = [&](Steady::time_point now) {
        const ExitCheck check = checkExit(child.pid);
        if (check == ExitCheck::running) return;
        lost = check == ExitCheck::lost;
        plan.exited(now);
        exitFd.reset();
    };
    int tickMs = firstExitCheckMs;
    for (;;) {
        const auto now = Steady::now();
        if (plan.dueForLastLook(now)) noteExit(now);
        const auto action = plan.decide(now, anyOpen());
        if (action == StopPlan::Action::terminate) ::kill(-child.pid, SIGTERM);
        if (action == StopPlan::Action::kill) ::kill(-child.pid, SIGKILL);
        if (action == StopPlan::Action::kill || action == StopPlan::Action::finish) break;
        const bool ticking = !plan.hasExited() && !exitFd;
        const int timeout = nextTimeout(plan, now, ticking, tickMs);
        const Woke woke = waitOnce(readers, plan.hasExited() ? -1 : exitFd.get(), timeout);
        if (woke == Woke::interrupted) continue;
        if (woke == Woke::failed) {
            ::kill(-child.pid, SIGKILL);  // can't wait any more; don't leave the tool behind
            break;
        }
        if (!plan.hasExited() && (ticking || woke == Woke::exitSignalled)) noteExit(Steady::now());
    }
    result.timedOut = plan.timedOut();
    return !lost;
}

}  // namespace

ShellResult Shell::run(const std::string& program, const std::vector<std::string>& args,
                       const ShellOptions& options) {
    ShellResult result;
    auto command = prepare(program, args, options);
    if (!command) return result;
    auto child = spawn(*command, options);
    if (!child) return result;
    result.started = true;

    Reader readers[2];
    readers[0] = Reader{std::move(child->out), &result.output, options.maxOutput};
    readers[1] = Reader{std::move(child->err), &result.errorOutput, options.maxOutput};
    const bool known = watch(*child, readers, options, result);
    // What is already in the pipes is the tool's output too.
    for (auto& r : readers) {
        if (r.open()) r.drain(readsPerWake);
        r.fd.reset();
    }
    result.truncated = readers[0].overflowed || readers[1].overflowed;
    // Reaped only now, after the last signal to its group: until then the zombie keeps its pid.
    if (known) result.status = reap(child->pid);
    return result;
}

}  // namespace quorv
