#include "kit/cloud/KeptOffline.hpp"

#include <algorithm>
#include <set>

#include "kit/settings/SettingsKeys.hpp"
#include "support/host/Host.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/settings/SettingsStore.hpp"

namespace brimstell {

std::vector<std::string> KeptOffline::locations() {
    std::vector<std::string> out;
    const auto stored = quorv::settings().stringArray(keys::cloudKeptOffline);
    if (!stored) return out;
    for (const auto& path : *stored) {
        if (!path.empty() && path.front() == '/') out.push_back(quorv::host().path(path));
    }
    return out;
}

std::size_t KeptOffline::countBelow(const std::string& root) {
    const auto all = locations();
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const std::string& location) {
        return location != root && quorv::LinkSafe::isInside(location, root);
    }));
}

void KeptOffline::replace(const std::vector<std::string>& roots, const std::vector<std::string>& found) {
    // This run's finds first, so that a full list makes room for them rather than for older ones.
    std::set<std::string> paths;
    const auto add = [&paths](const std::string& location) {
        if (paths.size() < maxPaths) paths.insert(quorv::host().systemPath(location).value_or(location));
    };
    for (const auto& location : std::set<std::string>(found.begin(), found.end())) add(location);
    for (const auto& location : locations()) {
        const bool released = std::any_of(roots.begin(), roots.end(),
                                          [&](const std::string& root) { return quorv::LinkSafe::isInside(location, root); });
        if (!released) add(location);
    }
    auto& store = quorv::settings();
    if (paths.empty()) store.remove(keys::cloudKeptOffline);
    else store.set(keys::cloudKeptOffline, quorv::Value::strings(std::vector<std::string>(paths.begin(), paths.end())));
}

}  // namespace brimstell
