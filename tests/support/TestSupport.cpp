#include "support/TestSupport.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "kit/agent/ProcessHost.hpp"

extern char** environ;

namespace testing_support {

namespace fs = std::filesystem;

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/brimstell-test-XXXXXX";
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    // Tests make folders unreadable on purpose; give them back before removing.
    for (auto it = fs::recursive_directory_iterator(path_, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec)) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
    fs::remove_all(path_, ec);
}

bool RecordingNotifier::deliver(const std::string& id, const std::string& title, const std::string& body) {
    std::lock_guard lock(mutex_);
    ids_.push_back(id);
    sent_.emplace_back(title, body);
    return true;
}

std::vector<std::pair<std::string, std::string>> RecordingNotifier::sent() {
    std::lock_guard lock(mutex_);
    return sent_;
}

std::vector<std::string> RecordingNotifier::ids() {
    std::lock_guard lock(mutex_);
    return ids_;
}

SandboxHost::SandboxHost(double t)
    : mac(brimstell::SandboxMac::create(dir / "mac")), notifier(std::make_shared<RecordingNotifier>()), now(t) {
    host = brimstell::makeHost(mac.environment());
    host->calendar.utc = true;
    host->notifier = notifier;
    setNow(t);
}

void SandboxHost::setNow(double t) {
    now = t;
    host->clock = [t] { return t; };
}

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const std::map<std::string, std::string>& environment) {
    // The child's environment: ours, less anything that steers Brimstell, plus what the test gives.
    std::map<std::string, std::string> merged;
    for (char** e = environ; e && *e; ++e) {
        std::string kv(*e);
        auto eq = kv.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = kv.substr(0, eq);
        if (key == "XPC_SERVICE_NAME" || key.rfind("BRIMSTELL_", 0) == 0) continue;
        merged[key] = kv.substr(eq + 1);
    }
    for (const auto& [k, v] : environment) merged[k] = v;
    std::vector<std::string> envStrings;
    for (const auto& [k, v] : merged) envStrings.push_back(k + "=" + v);
    std::vector<char*> envp;
    for (auto& s : envStrings) envp.push_back(s.data());
    envp.push_back(nullptr);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    int pipefd[2];
    if (::pipe2(pipefd, O_CLOEXEC) != 0) return {};
    // Standard error into a file of its own, read once the program has ended.
    std::FILE* errors = std::tmpfile();
    if (!errors) return {};
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(pipefd[1], 1);
        ::dup2(::fileno(errors), 2);
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    ::close(pipefd[1]);
    RunResult r;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(pipefd[0], buf, sizeof buf)) > 0) r.output.append(buf, static_cast<size_t>(n));
    ::close(pipefd[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::rewind(errors);
    while ((n = static_cast<ssize_t>(std::fread(buf, 1, sizeof buf, errors))) > 0) r.errors.append(buf, static_cast<size_t>(n));
    std::fclose(errors);
    return r;
}

double utc(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return static_cast<double>(timegm(&tm));
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream in(readText(path));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::optional<std::string> findTool(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream dirs(path ? path : "/usr/bin:/bin");
    for (std::string dir; std::getline(dirs, dir, ':');) {
        if (!dir.empty() && ::access((dir + "/" + name).c_str(), X_OK) == 0) return dir + "/" + name;
    }
    return std::nullopt;
}

CliMac::CliMac() : mac(brimstell::SandboxMac::create(dir / "mac")), env(mac.environment()) {
    env["TZ"] = "UTC";
    env["BRIMSTELL_OUTBOX"] = dir / "outbox.jsonl";
}

RunResult CliMac::run(const std::vector<std::string>& args, const std::string& input) const {
    if (input.empty()) return runProgram(BRIMSTELL_CLI_EXE, args, env);
    std::vector<std::string> shell = {"-c", "printf '%s' \"$0\" | exec \"$@\"", input, BRIMSTELL_CLI_EXE};
    shell.insert(shell.end(), args.begin(), args.end());
    return runProgram("/bin/sh", shell, env);
}

std::string CliMac::settingsFile() const { return mac.home() + "/Library/Preferences/com.quorv.brimstell.plist"; }

}  // namespace testing_support
