// The later slowdown rules and what they share; the first four are in SlowdownCauses.cpp.

#include "kit/insight/SlowdownRules.hpp"

#include <algorithm>
#include <cmath>

#include "support/host/Host.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell::slowdownRules {

using Cause = Slowdown::Cause;
using Severity = Slowdown::Severity;

namespace {

bool onMac() { return quorv::host().isMac(); }

std::string_view fileName(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool among(std::string_view name, const std::vector<std::string_view>& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// What backs up the disk. On Linux there is no one backup program; these are the common ones.
const std::vector<std::string_view>& backupNames() {
    static const std::vector<std::string_view> mac = {"backupd", "backupd-helper"};
    static const std::vector<std::string_view> linux = {"deja-dup", "duplicity", "restic", "borg",
                                                        "timeshift", "rsnapshot", "backintime", "rsync"};
    return onMac() ? mac : linux;
}

}  // namespace

double cpuOf(const std::vector<Slowdown::Proc>& procs, const std::vector<std::string_view>& names) {
    double sum = 0;
    for (const auto& p : procs)
        if (among(fileName(p.path), names)) sum += p.cpu;
    return sum;
}

// On Linux /usr/bin holds people's apps too, so it isn't a system folder there; the daemons and
// helpers lie in sbin, libexec and lib. A path that isn't absolute is a kernel thread or a
// process whose executable we may not see (another account's, root's): the system's own; unless
// it is the user's, whose executables we always see: then it is a script known by its name.
bool systemOwn(const Slowdown::Load& load, std::uint32_t me) {
    static const std::vector<std::string_view> mac = {"/System/", "/usr/libexec/", "/usr/sbin/",
                                                      "/sbin/", "/Library/Apple/", "/usr/bin/"};
    static const std::vector<std::string_view> linux = {"/usr/sbin/", "/sbin/", "/usr/libexec/", "/usr/lib/", "/lib/"};
    if (!onMac() && (load.path.empty() || load.path[0] != '/')) return load.uids != std::set<std::uint32_t>{me};
    const auto& folders = onMac() ? mac : linux;
    return std::any_of(folders.begin(), folders.end(),
                       [&](std::string_view f) { return std::string_view(load.path).substr(0, f.size()) == f; });
}

bool excludedFromBusy(const std::string& name) {
    if (name == "kernel_task" || among(name, backupNames()) || among(name, drawingNames())) return true;
    for (const auto& work : Slowdown::workTable())
        if (among(name, work.names)) return true;
    return false;
}

const std::vector<std::string_view>& drawingNames() {
    static const std::vector<std::string_view> mac = {"WindowServer"};
    static const std::vector<std::string_view> linux = {"Xorg", "Xwayland", "gnome-shell", "kwin_wayland",
                                                        "kwin_x11", "mutter", "sway", "weston", "Hyprland"};
    return onMac() ? mac : linux;
}

// People's accounts: 501 up to 65533 on a Mac; on Linux from 1000 to 60000, the UID_MIN and UID_MAX
// that login.defs sets by default.
bool otherAccount(std::uint32_t uid, std::uint32_t me) {
    const auto [low, high] = onMac() ? std::pair<std::uint32_t, std::uint32_t>{501, 65533} : std::pair<std::uint32_t, std::uint32_t>{1000, 60000};
    return uid != me && uid >= low && uid <= high;
}

// The user's own apps holding the most memory, largest first: at most memoryHoldersShown, each
// holding at least memoryHolderMinimum (smaller ones give too little back to be worth quitting),
// and never the system's own programs. The other-account entry, too, only comes with the
// short-of-memory cause: memory is what those apps take.
void addMemoryHolders(const Slowdown::Reading& r, const std::vector<Slowdown::Load>& loads, std::vector<Cause>& out) {
    std::vector<const Slowdown::Load*> mine;
    for (const auto& load : loads)
        if (load.uids == std::set<std::uint32_t>{r.me} && !systemOwn(load, r.me) && load.memory >= memoryHolderMinimum)
            mine.push_back(&load);
    std::stable_sort(mine.begin(), mine.end(), [](auto* a, auto* b) { return a->memory > b->memory; });
    if (mine.size() > memoryHoldersShown) mine.resize(memoryHoldersShown);
    for (const auto* load : mine)
        out.push_back({load->name + " is using " + quorv::formatSize(load->memory) + " of memory",
                       "Quitting it gives all of that back. Browsers hold on to memory for every open tab.", "memorychip",
                       Severity::medium, Slowdown::Quit{load->name, load->bundle, load->pids}});
    if (std::any_of(r.procs.begin(), r.procs.end(), [&](const auto& p) { return otherAccount(p.uid, r.me); }))
        out.push_back({"Another account is still signed in",
                       "Apps left open there keep running in the background and hold on to memory. Logging that account "
                       "out frees it.",
                       "person.2", Severity::medium, std::monostate{}});
}

void addDisk(const Slowdown::Reading& r, std::vector<Cause>& out) {
    if (r.total <= 0) return;  // no reading of the disk
    const bool full = r.total < 200'000'000'000 ? r.free < 10'000'000'000 : r.free < r.total / 20;
    if (!full) return;
    out.push_back({"Your disk is almost full",
                   "Only " + quorv::formatSize(r.free) +
                       (onMac() ? " is free. macOS needs room on the disk for memory and updates, and everything slows down when it runs out."
                                : " is free. The system needs room on the disk for memory and updates, and everything slows down when it runs out."),
                   "internaldrive", Severity::high, Slowdown::OpenTool{Slowdown::Tool::freeUpSpace}});
}

void addWork(const Slowdown::Reading& r, std::vector<Cause>& out) {
    for (const auto& work : Slowdown::workTable())
        if (cpuOf(r.procs, work.names) >= 25)
            out.push_back({std::string(work.title), std::string(work.detail), "gearshape.2", Severity::low, std::monostate{}});
}

void addBackup(const Slowdown::Reading& r, std::vector<Cause>& out) {
    if (!r.backupRunning && cpuOf(r.procs, backupNames()) < 25) return;
    out.push_back({onMac() ? "A Time Machine backup is running" : "A backup is running",
                   "Copying files can slow the disk for a while. It finishes on its own.", "clock.arrow.circlepath",
                   Severity::low, std::monostate{}});
}

// Linux has no settings address to open; its power profile is changed from the desktop's menu.
void addLowPower(const Slowdown::Reading& r, std::vector<Cause>& out) {
    if (!r.lowPower) return;
    if (onMac())
        out.push_back({"Low Power Mode is on", "It saves energy by running the processor slower.", "battery.25",
                       Severity::low, Slowdown::Settings{Slowdown::batterySettings}});
    else
        out.push_back({"Power saving is on", "It saves energy by running the processor slower.", "battery.25",
                       Severity::low, std::monostate{}});
}

void addUptime(const Slowdown::Reading& r, std::vector<Cause>& out) {
    if (!(r.uptime >= 0)) return;
    const auto days = static_cast<long long>(std::floor(r.uptime / 86'400));
    if (days <= 13) return;
    out.push_back({(onMac() ? "Your Mac hasn't restarted in " : "Your computer hasn't restarted in ") + std::to_string(days) + " days",
                   "A restart clears out memory apps never gave back and finishes pending updates.", "restart",
                   Severity::low, std::monostate{}});
}

}  // namespace brimstell::slowdownRules
