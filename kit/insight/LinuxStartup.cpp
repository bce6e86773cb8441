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

// A unit is enabled when a ".wants" or ".requires" folder beside it links to it, and masked (off)
// when the unit file itself is a link to /dev/null.
bool unitEnabled(const std::string& folder, const std::string& name) {
    char target[64] = {};
    if (::readlink((folder + "/" + name).c_str(), target, sizeof target - 1) > 0 && std::string(target) == "/dev/null")
        return false;
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

void addUnits(std::vector<BackgroundItem>& items, const std::string& folder, Scope scope, const std::set<std::string>& running) {
    for (const auto& name : namesIn(folder, ".service")) {
        const auto location = folder + "/" + name;
        BackgroundItem item;
        item.label = name;
        item.plist = location;
        item.scope = scope;
        if (const auto text = quorv::files::read(location, 1 << 20)) item.program = Autostart::unitProgram(*text);
        item.enabled = unitEnabled(folder, name);
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
        item.program = entry->program;
        item.enabled = entry->enabled;
        if (!entry->name.empty()) item.listedName = entry->name;
        item.added = createdAt(location);
        items.push_back(std::move(item));
    }
}

}  // namespace

std::vector<BackgroundItem> Autostart::items() {
    const auto& h = quorv::host();
    const auto userRunning = runningUnits(true), systemRunning = runningUnits(false);
    std::vector<BackgroundItem> items;
    addUnits(items, h.inHome(".config/systemd/user"), Scope::user, userRunning);
    addUnits(items, h.path("/etc/systemd/user"), Scope::allUsers, userRunning);
    addUnits(items, h.path("/etc/systemd/system"), Scope::system, systemRunning);
    const auto userAutostart = h.inHome(".config/autostart");
    const auto mine = namesIn(userAutostart, ".desktop");
    addAutostart(items, userAutostart, Scope::user, {});
    // An entry of the user's own folder stands in for the system's entry of the same name.
    addAutostart(items, h.path("/etc/xdg/autostart"), Scope::allUsers, std::set<std::string>(mine.begin(), mine.end()));
    return items;
}

}  // namespace brimstell
