// What starts on Linux: systemd units of the user manager and the system, and XDG autostart
// entries, as launch items of the three scopes (your account, all users, the system).

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>

#include "kit/insight/Autostart.hpp"
#include "kit/insight/BackgroundItems.hpp"
#include "kit/insight/Crontab.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/Files.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

using Scope = BackgroundItem::Scope;

namespace {

std::vector<std::string> namesIn(const std::string& folder, std::string_view extension) {
    std::vector<std::string> out;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return out;
    while (const dirent* e = ::readdir(dir.get())) {
        const std::string name = e->d_name;
        if (name.size() > extension.size() && name.ends_with(extension)) out.push_back(name);
    }
    return out;
}

bool maskedAt(const std::string& location) {
    char target[64] = {};
    return ::readlink(location.c_str(), target, sizeof target - 1) > 0 && std::string(target) == "/dev/null";
}

bool wantedIn(const std::string& folder, const std::string& name) {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return false;
    while (const dirent* e = ::readdir(dir.get())) {
        const std::string sub = e->d_name;
        if (!sub.ends_with(".wants") && !sub.ends_with(".requires")) continue;
        struct stat st {};
        if (::lstat((folder + "/" + sub + "/" + name).c_str(), &st) == 0) return true;
    }
    return false;
}

// A unit is enabled when a ".wants" or ".requires" folder beside it (or, for a unit of all users,
// in the user's own folder) links to it, and off when it is masked: the unit file, or the user's
// file of the same name, a link to /dev/null.
bool unitEnabled(const std::string& folder, const std::string& name, const std::string& userFolder) {
    if (maskedAt(folder + "/" + name)) return false;
    if (folder != userFolder && maskedAt(userFolder + "/" + name)) return false;
    return wantedIn(folder, name) || (folder != userFolder && wantedIn(userFolder, name));
}

std::set<std::string> runningUnits(bool user) {
    std::vector<std::string> args = {"list-units", "--type=service", "--state=running", "--no-legend", "--plain"};
    if (user) args.insert(args.begin(), "--user");
    const auto r = quorv::Shell::run(quorv::host().path("/usr/bin/systemctl"), args);
    std::set<std::string> out;
    if (!r.succeeded()) return out;
    std::size_t start = 0;
    while (start < r.output.size()) {
        const auto feed = r.output.find('\n', start);
        const auto line = r.output.substr(start, feed - start);
        const auto word = Autostart::firstWord(line);
        if (word) out.insert(*word);
        start = feed == std::string::npos ? r.output.size() : feed + 1;
    }
    return out;
}

// A unit's text. A unit file may be a link to the unit it is another name of
// ("smartd.service" → /lib/systemd/system/smartmontools.service): that one is read, under the root.
std::optional<std::string> unitText(const std::string& folder, const std::string& name) {
    const auto location = folder + "/" + name;
    char target[4096];
    const ssize_t n = ::readlink(location.c_str(), target, sizeof target - 1);
    if (n <= 0) return quorv::files::read(location, 1 << 20);
    const std::string to(target, static_cast<std::size_t>(n));
    return quorv::files::read(to.starts_with("/") ? quorv::host().path(to) : folder + "/" + to, 1 << 20);
}

struct UnitPlace {
    std::string folder;
    Scope scope;
    // The user's own unit folder: where the user enables and masks units of all users.
    std::string userFolder;
    // Names the user's folder only masks: the units of all users they switch off, not units.
    std::set<std::string> skip;
};

void addUnits(std::vector<BackgroundItem>& items, const UnitPlace& place, const std::set<std::string>& running) {
    const auto& folder = place.folder;
    for (const auto& name : namesIn(folder, ".service")) {
        if (place.skip.count(name)) continue;
        const auto location = folder + "/" + name;
        BackgroundItem item;
        item.label = name;
        item.plist = location;
        item.scope = place.scope;
        item.source = BackgroundItem::Source::unit;
        if (const auto text = unitText(folder, name)) item.program = Autostart::unitProgram(*text);
        item.enabled = unitEnabled(folder, name, place.scope == Scope::system ? folder : place.userFolder);
        item.running = running.count(name) > 0;
        item.added = createdAt(location);
        items.push_back(std::move(item));
    }
}

void addAutostart(std::vector<BackgroundItem>& items, const std::string& folder, Scope scope,
                  const std::set<std::string>& overridden) {
    for (const auto& name : namesIn(folder, ".desktop")) {
        if (overridden.count(name)) continue;
        const auto location = folder + "/" + name;
        const auto text = quorv::files::read(location, 1 << 20);
        const auto entry = text ? Autostart::desktopEntry(*text) : std::nullopt;
        if (!entry) continue;
        BackgroundItem item;
        item.label = name;
        item.plist = location;
        item.scope = scope;
        item.source = BackgroundItem::Source::autostart;
        item.program = entry->program;
        item.enabled = entry->enabled && Autostart::startsIn(*entry, quorv::host().env("XDG_CURRENT_DESKTOP").value_or(""));
        if (!entry->name.empty()) item.listedName = entry->name;
        item.added = createdAt(location);
        items.push_back(std::move(item));
    }
}

// The user's unit masks of units that all users have: links to /dev/null in the user's folder.
std::set<std::string> userMasks(const std::string& userFolder, const std::string& allFolder) {
    std::set<std::string> out;
    for (const auto& name : namesIn(userFolder, ".service")) {
        struct stat st {};
        if (maskedAt(userFolder + "/" + name) && ::lstat((allFolder + "/" + name).c_str(), &st) == 0) out.insert(name);
    }
    return out;
}

// Each program's package, for the items whose program can be found.
void addProvenance(std::vector<BackgroundItem>& items) {
    std::vector<std::string> programs;
    for (const auto& i : items)
        if (const auto p = i.program ? Provenance::located(*i.program) : std::nullopt) programs.push_back(*p);
    const auto found = Provenance::of(programs);
    for (auto& i : items) {
        const auto p = i.program ? Provenance::located(*i.program) : std::nullopt;
        if (const auto it = p ? found.find(*p) : found.end(); it != found.end()) i.provenance = it->second;
    }
}

}  // namespace

std::vector<BackgroundItem> Autostart::items() {
    const auto& h = quorv::host();
    const auto userRunning = runningUnits(true), systemRunning = runningUnits(false);
    const auto userUnits = h.inHome(".config/systemd/user"), allUnits = h.path("/etc/systemd/user");
    std::vector<BackgroundItem> items;
    addUnits(items, {userUnits, Scope::user, userUnits, userMasks(userUnits, allUnits)}, userRunning);
    addUnits(items, {allUnits, Scope::allUsers, userUnits, {}}, userRunning);
    const auto system = h.path("/etc/systemd/system");
    addUnits(items, {system, Scope::system, system, {}}, systemRunning);
    const auto userAutostart = h.inHome(".config/autostart");
    const auto mine = namesIn(userAutostart, ".desktop");
    addAutostart(items, userAutostart, Scope::user, {});
    // An entry of the user's own folder stands in for the system's entry of the same name.
    addAutostart(items, h.path("/etc/xdg/autostart"), Scope::allUsers, std::set<std::string>(mine.begin(), mine.end()));
    for (auto& cron : Crontab::items()) items.push_back(std::move(cron));
    addProvenance(items);
    return items;
}

}  // namespace brimstell
