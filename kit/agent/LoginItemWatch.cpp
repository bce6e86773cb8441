#include "kit/agent/LoginItemWatch.hpp"

#include <dirent.h>

#include <algorithm>
#include <memory>

#include "support/host/Host.hpp"

namespace brimstell {

std::vector<std::string> LoginItemWatch::places() {
    const auto& h = quorv::host();
    // Linux: the user's autostart entries and units, then those every user gets, then the
    // system's own services (the folders the start-up page lists).
    if (!h.isMac())
        return {h.inHome(".config/autostart"), h.inHome(".config/systemd/user"), h.path("/etc/xdg/autostart"),
                h.path("/etc/systemd/user"), h.path("/etc/systemd/system")};
    return {h.inHome("Library/LaunchAgents"), h.path("/Library/LaunchAgents"), h.path("/Library/LaunchDaemons")};
}

namespace {
// "x.plist" has the extension "plist"; ".plist" has none (a leading dot starts a hidden name).
// On Linux the files that start something are ".desktop" entries and ".service" units.
bool startsSomething(const std::string& name, bool mac) {
    const auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return false;
    const std::string_view extension = std::string_view(name).substr(dot + 1);
    return mac ? extension == "plist" : extension == "desktop" || extension == "service";
}
}  // namespace

std::set<std::string> LoginItemWatch::current() {
    std::set<std::string> found;
    const bool mac = quorv::host().isMac();
    for (const auto& place : places()) {
        std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(place.c_str()), ::closedir);
        if (!dir) continue;
        while (const dirent* e = ::readdir(dir.get())) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            if (startsSomething(name, mac)) found.insert(place + "/" + name);
        }
    }
    return found;
}

std::set<std::string> LoginItemWatch::added(const std::optional<std::set<std::string>>& before,
                                            const std::set<std::string>& now) {
    if (!before) return {};
    std::set<std::string> out;
    std::set_difference(now.begin(), now.end(), before->begin(), before->end(), std::inserter(out, out.end()));
    return out;
}

std::string LoginItemWatch::displayName(const std::string& entry) {
    const auto slash = entry.find_last_of('/');
    std::string name = slash == std::string::npos ? entry : entry.substr(slash + 1);
    const auto dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.erase(dot);
    return name;
}

}  // namespace brimstell
