#include "kit/agent/LoginItemWatch.hpp"

#include <dirent.h>

#include <algorithm>
#include <memory>

#include "support/host/Host.hpp"

namespace brimstell {

std::vector<std::string> LoginItemWatch::places() {
    const auto& h = quorv::host();
    return {h.inHome("Library/LaunchAgents"), h.path("/Library/LaunchAgents"), h.path("/Library/LaunchDaemons")};
}

namespace {
// "x.plist" has the extension "plist"; ".plist" has none (a leading dot starts a hidden name).
bool hasPlistExtension(const std::string& name) {
    const auto dot = name.rfind('.');
    return dot != std::string::npos && dot > 0 && name.compare(dot + 1, std::string::npos, "plist") == 0;
}
}  // namespace

std::set<std::string> LoginItemWatch::current() {
    std::set<std::string> found;
    for (const auto& place : places()) {
        std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(place.c_str()), ::closedir);
        if (!dir) continue;
        while (const dirent* e = ::readdir(dir.get())) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            if (hasPlistExtension(name)) found.insert(place + "/" + name);
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
