#ifdef __linux__

#include "helper/CallerCheck.hpp"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include <fmt/format.h>

#include "support/posix/Compat.hpp"
#include "support/posix/RootControlled.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell::helperd {
namespace {

constexpr std::array<const char*, 3> adminGroups = {"sudo", "wheel", "admin"};
constexpr std::array<const char*, 2> programNames = {"brimstell", "brimstell-agent"};

struct Account {
    std::string name;
    std::string home;
    gid_t gid = 0;
};

std::optional<Account> accountOf(uid_t uid) {
    std::vector<char> buffer(16384);
    passwd pw{};
    passwd* found = nullptr;
    if (::getpwuid_r(uid, &pw, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return std::nullopt;
    return Account{pw.pw_name ? pw.pw_name : "", pw.pw_dir ? pw.pw_dir : "", pw.pw_gid};
}

std::optional<gid_t> groupId(const char* name) {
    std::vector<char> buffer(16384);
    group gr{};
    group* found = nullptr;
    if (::getgrnam_r(name, &gr, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return std::nullopt;
    return gr.gr_gid;
}

bool isAdministrator(uid_t uid, const Account& account, const HelperOptions& options) {
    if (uid == 0 || options.trustUids.count(uid) != 0) return true;
    int count = 64;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    while (::getgrouplist(account.name.c_str(), account.gid, groups.data(), &count) < 0) {
        if (count <= static_cast<int>(groups.size()) || count > 65536) return false;
        groups.resize(static_cast<std::size_t>(count));
    }
    groups.resize(static_cast<std::size_t>(count));
    for (const char* name : adminGroups) {
        const auto gid = groupId(name);
        if (!gid) continue;
        for (gid_t g : groups) {
            if (g == *gid) return true;
        }
    }
    return false;
}

std::string homeOf(const Account& account, const std::string& rootPath, HelperRules rules) {
    const std::string& name = account.name;
    // Under Linux rules a "/Users" folder means nothing: the home is the user database's.
    const bool plainName = rules == HelperRules::mac && !name.empty() && name != "." && name != ".." &&
                           name.find('/') == std::string::npos;
    if (plainName) {
        const std::string macHome = "/Users/" + name;
        const std::string there = (rootPath == "/" ? std::string() : rootPath) + macHome;
        struct stat st {};
        if (::lstat(there.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return macHome;
    }
    return account.home;
}

std::optional<std::string> readProc(pid_t pid, const char* what, std::size_t limit) {
    quorv::UniqueFd fd(::open(fmt::format("/proc/{}/{}", pid, what).c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return std::nullopt;
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n == 0) return text;
        if (n < 0) return std::nullopt;
        text.append(buffer, static_cast<std::size_t>(n));
        if (text.size() > limit) return std::nullopt;
    }
}

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool inTrustedFolder(const std::string& path, const HelperOptions& options) {
    for (const auto& folder : options.trustExeDirs) {
        if (folderOf(path) == folder) return true;
    }
    return false;
}

struct Program {
    dev_t device = 0;
    ino_t inode = 0;
};

// The program the process runs, when it is one the helper serves.
std::optional<Program> trustedProgram(pid_t pid, const HelperOptions& options, std::string& why) {
    // The file itself, through the process's own link: what runs, not what a path names now.
    quorv::UniqueFd exe(::open(fmt::format("/proc/{}/exe", pid).c_str(), O_PATH | O_CLOEXEC));
    struct stat running {};
    if (!exe || ::fstat(exe.get(), &running) != 0 || !S_ISREG(running.st_mode)) {
        why = "its program can't be read";
        return std::nullopt;
    }
    char link[4096];
    const ssize_t n = ::readlink(fmt::format("/proc/{}/exe", pid).c_str(), link, sizeof link - 1);
    if (n <= 0) {
        why = "its program can't be read";
        return std::nullopt;
    }
    const std::string path(link, static_cast<std::size_t>(n));
    if (path[0] != '/' || path.ends_with(" (deleted)")) {
        why = fmt::format("its program is not a file on disk ({})", path);
        return std::nullopt;
    }
    struct stat there {};
    if (::lstat(path.c_str(), &there) != 0 || there.st_dev != running.st_dev || there.st_ino != running.st_ino) {
        why = fmt::format("its program is no longer at {}", path);
        return std::nullopt;
    }
    if (!inTrustedFolder(path, options)) {
        bool named = false;
        for (const char* name : programNames) named = named || nameOf(path) == name;
        const auto st = quorv::rootControlled(path);
        if (!named || !st || !S_ISREG(st->st_mode) || st->st_ino != running.st_ino || st->st_dev != running.st_dev) {
            why = fmt::format("its program {} is not an installed Brimstell program", path);
            return std::nullopt;
        }
    }
    return Program{running.st_dev, running.st_ino};
}

bool untraced(pid_t pid, std::string& why) {
    const auto status = readProc(pid, "status", 1 << 20);
    if (!status) {
        why = "its status can't be read";
        return false;
    }
    const auto at = status->find("\nTracerPid:");
    if (at == std::string::npos) {
        why = "its status can't be read";
        return false;
    }
    const char* value = status->c_str() + at + std::strlen("\nTracerPid:");
    if (std::strtol(value, nullptr, 10) != 0) {
        why = "it is being traced";
        return false;
    }
    return true;
}

// Every executable mapping: the program, a library only root can change, or the kernel's own.
bool onlyTrustedCode(pid_t pid, const HelperOptions& options, std::string& why) {
    const auto maps = readProc(pid, "maps", 16 << 20);
    if (!maps) {
        why = "its memory map can't be read";
        return false;
    }
    std::map<std::string, bool> judged;
    std::size_t start = 0;
    while (start < maps->size()) {
        auto end = maps->find('\n', start);
        if (end == std::string::npos) end = maps->size();
        const std::string line = maps->substr(start, end - start);
        start = end + 1;
        // address perms offset device inode [path]
        char perms[8] = {};
        unsigned major = 0;
        unsigned minor = 0;
        unsigned long long inode = 0;
        int pathAt = 0;
        if (std::sscanf(line.c_str(), "%*x-%*x %7s %*x %x:%x %llu %n", perms, &major, &minor, &inode, &pathAt) < 4) {
            why = "its memory map can't be read";
            return false;
        }
        if (perms[2] != 'x') continue;
        const std::string path = pathAt > 0 ? line.substr(static_cast<std::size_t>(pathAt)) : std::string();
        if (path == "[vdso]" || path == "[vsyscall]" || path == "[vectors]") continue;
        auto known = judged.find(path);
        if (known == judged.end()) {
            bool ok = false;
            if (!path.empty() && path[0] == '/' && !path.ends_with(" (deleted)")) {
                struct stat st {};
                if (inTrustedFolder(path, options)) {
                    ok = ::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
                } else if (auto rc = quorv::rootControlled(path)) {
                    st = *rc;
                    ok = S_ISREG(st.st_mode);
                }
                ok = ok && st.st_ino == inode && ::major(st.st_dev) == major && ::minor(st.st_dev) == minor;
            }
            known = judged.emplace(path, ok).first;
        }
        if (!known->second) {
            why = path.empty() ? "it runs code from anonymous memory" : fmt::format("it runs code from {}", path);
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<Caller> identify(int fd, const HelperOptions& options, const std::string& rootPath, std::string& why) {
    const auto peer = quorv::compat::peerOf(fd);
    if (!peer || peer->pid <= 0) {
        why = "its credentials can't be read";
        return std::nullopt;
    }
    Caller caller;
    caller.pid = peer->pid;
    caller.uid = peer->uid;
    caller.gid = peer->gid;
    const auto account = accountOf(peer->uid);
    if (!account || account->name.empty()) {
        why = fmt::format("uid {} has no entry in the user database", peer->uid);
        return std::nullopt;
    }
    if (!isAdministrator(peer->uid, *account, options)) {
        why = fmt::format("{} is not an administrator", account->name);
        return std::nullopt;
    }
    caller.name = account->name;
    caller.home = homeOf(*account, rootPath, options.rules);
    if (caller.home.empty() || caller.home[0] != '/') {
        why = fmt::format("{} has no absolute home", account->name);
        return std::nullopt;
    }
    const auto program = trustedProgram(peer->pid, options, why);
    if (!program || !untraced(peer->pid, why) || !onlyTrustedCode(peer->pid, options, why)) return std::nullopt;
    caller.exeDevice = program->device;
    caller.exeInode = program->inode;
    return caller;
}

bool stillTrusted(const Caller& caller, const HelperOptions& options, std::string& why) {
    const auto program = trustedProgram(caller.pid, options, why);
    if (!program) return false;
    if (program->device != caller.exeDevice || program->inode != caller.exeInode) {
        why = "it runs another program than when it connected";
        return false;
    }
    return untraced(caller.pid, why) && onlyTrustedCode(caller.pid, options, why);
}

}  // namespace brimstell::helperd

#endif  // __linux__
