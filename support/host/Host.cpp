#include "support/host/Host.hpp"

#include "support/posix/Compat.hpp"
#include "support/posix/Files.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <vector>

extern char** environ;

namespace quorv {
namespace {

std::mutex processMutex;
std::shared_ptr<const Host> processHost;
thread_local std::shared_ptr<const Host> scopedHost;

bool isInside(const std::string& path, const std::string& folder) {
    if (folder == "/") return !path.empty() && path[0] == '/';
    return path == folder || (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
                              path[folder.size()] == '/');
}

std::string executableFolder() {
    const auto self = compat::executablePath();
    return self ? std::filesystem::path(*self).parent_path().string() : std::string();
}

struct Account {
    std::string name;
    std::string home;
};

Account accountOf(uid_t uid) {
    std::vector<char> buf(16384);
    passwd pw{};
    passwd* result = nullptr;
    if (getpwuid_r(uid, &pw, buf.data(), buf.size(), &result) == 0 && result != nullptr) {
        return {pw.pw_name ? pw.pw_name : "", pw.pw_dir ? pw.pw_dir : ""};
    }
    return {};
}

double realNow() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

std::string Host::path(std::string_view systemPath) const {
    std::string p(systemPath);
    if (root == "/" || root.empty()) return p;
    if (p.empty() || p == "/") return root;
    if (p[0] != '/') return root + "/" + p;
    return root + p;
}

std::optional<std::string> Host::systemPath(std::string_view location) const {
    std::string p(location);
    if (root == "/" || root.empty()) return p;
    if (!isInside(p, root)) return std::nullopt;
    std::string rest = p.substr(root.size());
    return rest.empty() ? std::string("/") : rest;
}

std::string Host::inHome(std::string_view relative) const {
    if (relative.empty()) return home;
    std::string rel(relative);
    while (!rel.empty() && rel.front() == '/') rel.erase(rel.begin());
    return home == "/" ? "/" + rel : home + "/" + rel;
}

std::optional<std::string> Host::env(const std::string& name) const {
    auto it = environment.find(name);
    if (it == environment.end()) return std::nullopt;
    return it->second;
}

namespace {
std::string xdg(const Host& h, const char* variable, const char* fallback) {
    auto v = h.env(variable);
    // A relative XDG_* value is ignored, as freedesktop.org base directories require.
    if (v && !v->empty() && (*v)[0] == '/') return files::trimTrailingSlashes(*v);
    return h.inHome(fallback);
}
}  // namespace

// On Linux the Mac's folders map onto the XDG base directories: Brimstell's state (the history,
// the health history, the clean lock, the widget's figures) under the state home, the settings
// under the config home. Nothing goes under ~/Library there.
std::string Host::appSupport() const {
    if (isMac()) return inHome("Library/Application Support/Brimstell");
    return xdg(*this, "XDG_STATE_HOME", ".local/state") + "/brimstell";
}

std::string Host::groupContainer(std::string_view group) const {
    if (isMac()) return inHome("Library/Group Containers/" + std::string(group));
    return appSupport() + "/" + std::string(group);
}

// The settings stay a property list on Linux too: the one typed store both platforms share,
// readable with plistutil; only its place and name follow the platform.
std::string Host::settingsFile() const {
    if (isMac()) return inHome("Library/Preferences/com.quorv.brimstell.plist");
    return xdg(*this, "XDG_CONFIG_HOME", ".config") + "/brimstell/settings.plist";
}

std::vector<Host::MovedPlace> Host::formerPlaces() const {
    if (isMac()) return {};
    const std::string oldData = xdg(*this, "XDG_DATA_HOME", ".local/share") + "/brimstell";
    const std::string config = xdg(*this, "XDG_CONFIG_HOME", ".config") + "/brimstell";
    return {{oldData, appSupport()}, {config + "/com.quorv.brimstell.plist", settingsFile()}};
}

std::map<std::string, std::string> processEnvironment() {
    std::map<std::string, std::string> env;
    for (char** e = environ; e && *e; ++e) {
        std::string_view kv(*e);
        auto eq = kv.find('=');
        if (eq == std::string_view::npos) continue;
        env.emplace(std::string(kv.substr(0, eq)), std::string(kv.substr(eq + 1)));
    }
    return env;
}

namespace {

std::string valueOf(const std::map<std::string, std::string>& environment, const char* name) {
    auto it = environment.find(name);
    return it == environment.end() ? std::string() : it->second;
}

// BRIMSTELL_ROOT made absolute and plain; "/" when there is none.
std::string rootFrom(std::string root) {
    if (!root.empty()) {
        std::error_code ec;
        auto abs = std::filesystem::absolute(root, ec);
        root = ec ? root : abs.lexically_normal().string();
        root = files::trimTrailingSlashes(root);
    }
    return root.empty() ? "/" : root;
}

// A sandbox never borrows the real home: a HOME outside the root would let a demo clean the real
// user's files. Take the sandbox's only user, else one named like this user.
std::string sandboxHome(const std::string& root, const Account& account) {
    std::string chosen;
    std::error_code ec;
    int users = 0;
    for (auto& entry : std::filesystem::directory_iterator(root + "/Users", ec)) {
        if (entry.is_directory() && entry.path().filename() != "Shared") {
            chosen = entry.path().string();
            ++users;
        }
    }
    return users == 1 ? chosen : root + "/Users/" + (account.name.empty() ? "user" : account.name);
}

// A sandbox may fix the clock, so that runs against it are repeatable.
std::function<double()> clockFor(bool sandbox, const std::string& fixed) {
    if (sandbox && !fixed.empty()) {
        char* end = nullptr;
        errno = 0;
        const double t = std::strtod(fixed.c_str(), &end);
        if (errno == 0 && end && *end == '\0') return [t] { return t; };
    }
    return realNow;
}

}  // namespace

std::shared_ptr<Host> hostFromEnvironment(const std::map<std::string, std::string>& environment) {
    auto h = std::make_shared<Host>();
    h->environment = environment;
#ifdef __APPLE__
    h->platform = Platform::mac;
#else
    h->platform = Platform::linux;
#endif
    const std::string platform = valueOf(environment, "BRIMSTELL_PLATFORM");
    if (platform == "mac") h->platform = Platform::mac;
    if (platform == "linux") h->platform = Platform::linux;

    h->uid = getuid();
    const Account account = accountOf(h->uid);
    h->root = rootFrom(valueOf(environment, "BRIMSTELL_ROOT"));
    h->sandbox = h->root != "/";

    std::string home = files::trimTrailingSlashes(valueOf(environment, "HOME"));
    if (home.empty()) home = account.home;
    if (h->sandbox && !isInside(home, h->root)) home = sandboxHome(h->root, account);
    h->home = home;
    if (h->sandbox) {
        h->userName = std::filesystem::path(home).filename().string();
    } else {
        h->userName = !account.name.empty() ? account.name : valueOf(environment, "USER");
    }
    h->executableDir = executableFolder();
    h->clock = clockFor(h->sandbox, valueOf(environment, "BRIMSTELL_NOW"));
    return h;
}

const Host& host() {
    if (scopedHost) return *scopedHost;
    std::lock_guard lock(processMutex);
    if (!processHost) processHost = hostFromEnvironment(processEnvironment());
    return *processHost;
}

std::shared_ptr<const Host> currentHost() {
    if (scopedHost) return scopedHost;
    std::lock_guard lock(processMutex);
    if (!processHost) processHost = hostFromEnvironment(processEnvironment());
    return processHost;
}

void setProcessHost(std::shared_ptr<const Host> h) {
    std::lock_guard lock(processMutex);
    // References handed out by host() stay valid: a replaced host is retired, never freed.
    static std::vector<std::shared_ptr<const Host>> retired;
    if (processHost) retired.push_back(std::move(processHost));
    processHost = std::move(h);
}

HostScope::HostScope(std::shared_ptr<const Host> h) : previous_(std::move(scopedHost)) {
    scopedHost = std::move(h);
}

HostScope::~HostScope() { scopedHost = std::move(previous_); }

}  // namespace quorv
