#include "kit/insight/BackgroundItems.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <memory>

#include "kit/files/Admin.hpp"
#include "kit/insight/Autostart.hpp"
#include "support/host/Host.hpp"
#include "support/plist/Plist.hpp"
#include "support/posix/Compat.hpp"
#include "support/process/Shell.hpp"
#include "support/text/Unicode.hpp"

namespace brimstell {

using Scope = BackgroundItem::Scope;

namespace {

// launchctl with the shell's own time limit. A reading that fails or runs out of time gives no
// answer, which the callers take as "nothing known": nothing switched off, nothing running.
std::optional<std::string> launchctl(const std::vector<std::string>& args) {
    const auto r = quorv::Shell::run(quorv::host().path("/bin/launchctl"), args);
    if (!r.succeeded()) return std::nullopt;
    return r.output;
}

std::vector<std::string> plistsIn(const std::string& folder) {
    std::vector<std::string> out;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return out;
    while (const dirent* e = ::readdir(dir.get())) {
        const std::string name = e->d_name;
        const auto dot = name.rfind('.');
        if (dot != std::string::npos && dot > 0 && name.substr(dot + 1) == "plist") out.push_back(folder + "/" + name);
    }
    std::sort(out.begin(), out.end());
    return out;
}


bool byShownName(const BackgroundItem& a, const BackgroundItem& b) {
    const auto na = a.shownName(), nb = b.shownName();
    const auto la = quorv::lowerCased(na), lb = quorv::lowerCased(nb);
    return la != lb ? la < lb : na < nb;
}

// The "Name" of each legacy record, by the plist location its "URL" names.
std::map<std::string, std::string> listedNames(const std::vector<BTMRecord>& records) {
    std::map<std::string, std::string> out;
    for (const auto& r : records) {
        const auto url = r.field("URL");
        const auto name = r.field("Name");
        if (!r.type().starts_with("legacy") || !url || !name || !url->ends_with(".plist")) continue;
        std::string path = url->starts_with("file://") ? url->substr(7) : *url;
        out.emplace(quorv::host().path(path), *name);
    }
    return out;
}

}  // namespace

std::optional<double> createdAt(const std::string& location) {
    const auto id = quorv::compat::identityAt(AT_FDCWD, location.c_str());
    if (id && id->bornSeconds > 0) return static_cast<double>(id->bornSeconds) + id->bornNanoseconds / 1e9;
    struct stat st {};
    if (::lstat(location.c_str(), &st) != 0) return std::nullopt;
    return static_cast<double>(st.st_mtime);
}

std::string BackgroundItems::userDomain() { return "gui/" + std::to_string(quorv::host().uid); }

std::string BackgroundItems::folder(Scope scope) {
    const auto& h = quorv::host();
    switch (scope) {
        case Scope::user: return h.inHome("Library/LaunchAgents");
        case Scope::allUsers: return h.path("/Library/LaunchAgents");
        case Scope::system: return h.path("/Library/LaunchDaemons");
    }
    return "";
}

std::set<std::string> BackgroundItems::disabled(const std::string& domain) {
    return disabledIn(launchctl({"print-disabled", domain}).value_or(""));
}

std::set<std::string> BackgroundItems::runningLabels() { return runningInList(launchctl({"list"}).value_or("")); }

std::set<std::string> BackgroundItems::runningSystemLabels() {
    return runningInPrintSystem(launchctl({"print", "system"}).value_or(""));
}

std::optional<BackgroundItem> BackgroundItems::itemAt(const std::string& plist, Scope scope) {
    const auto value = quorv::plist::readFile(plist);
    if (!value || !value->is<quorv::Value::Dict>()) return std::nullopt;
    const auto* label = quorv::plist::find(*value, "Label");
    if (!label || !label->is<std::string>()) return std::nullopt;
    BackgroundItem item;
    item.label = *label->get<std::string>();
    item.plist = plist;
    item.scope = scope;
    if (const auto* p = quorv::plist::find(*value, "Program"); p && p->is<std::string>()) {
        item.program = *p->get<std::string>();
    } else if (const auto* args = quorv::plist::find(*value, "ProgramArguments")) {
        const auto* list = args->get<quorv::Value::Array>();
        if (list && !list->empty() && list->front().is<std::string>()) item.program = *list->front().get<std::string>();
    }
    if (item.program && item.program->starts_with("/"))
        item.signature = Signature::of(quorv::host().path(*item.program));
    item.added = createdAt(plist);
    return item;
}

BackgroundItems::Scan BackgroundItems::scan(const std::optional<std::vector<BTMRecord>>& dump) {
    if (!quorv::host().isMac()) {
        Scan found;
        found.items = Autostart::items();
        std::stable_sort(found.items.begin(), found.items.end(), byShownName);
        return found;
    }
    const auto userOff = disabled(userDomain()), systemOff = disabled("system");
    const auto userRunning = runningLabels(), systemRunning = runningSystemLabels();
    const auto names = dump ? listedNames(*dump) : std::map<std::string, std::string>{};
    Scan result;
    for (const Scope scope : {Scope::user, Scope::allUsers, Scope::system}) {
        const bool system = scope == Scope::system;
        for (const auto& plist : plistsIn(folder(scope))) {
            auto item = itemAt(plist, scope);
            if (!item) continue;
            item->enabled = !(system ? systemOff : userOff).count(item->label);
            item->running = (system ? systemRunning : userRunning).count(item->label) > 0;
            if (const auto it = names.find(plist); it != names.end()) item->listedName = it->second;
            result.items.push_back(std::move(*item));
        }
    }
    std::stable_sort(result.items.begin(), result.items.end(), byShownName);
    result.loginKnown = dump.has_value();
    if (dump) result.login = loginItems(*dump);
    return result;
}

bool BackgroundItems::setEnabled(const BackgroundItem& item, bool on) {
    if (!quorv::host().isMac()) return Autostart::setEnabled(item, on);
    if (item.scope == Scope::system) return Admin::setDaemon(item.label, on);
    const std::string target = userDomain() + "/" + item.label;
    const auto program = quorv::host().path("/bin/launchctl");
    if (!quorv::Shell::run(program, {on ? "enable" : "disable", target}).succeeded()) return false;
    if (!on) quorv::Shell::run(program, {"bootout", target});
    return true;
}

}  // namespace brimstell
