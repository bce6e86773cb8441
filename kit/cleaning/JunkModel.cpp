#include "kit/cleaning/JunkModel.hpp"

#include <map>
#include <set>
#include <utility>

#include "kit/settings/SettingsKeys.hpp"
#include "kit/widget/WidgetFeed.hpp"
#include "kit/cleaning/AutoCleanRules.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/cleaning/JunkScanner.hpp"
#include "kit/files/FS.hpp"
#include "support/background/Background.hpp"
#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"
#include "support/text/SizeText.hpp"
#include "support/text/Uuid.hpp"

namespace brimstell {

JunkModel::Sources JunkModel::defaultSources() {
    Sources s;
    s.scan = [](const std::string& home, const std::function<void(int, int)>& progress) {
        return JunkScanner::scan(home, progress);
    };
    s.adminEnabled = [] { return Admin::refresh(); };
    s.adminScan = [] { return Admin::scanJunk(); };
    return s;
}

JunkModel::JunkModel() : JunkModel(defaultSources()) {}

JunkModel::JunkModel(Sources sources) : sources_(std::move(sources)) {}

void JunkModel::changed() {
    if (onChange) onChange(*this);
}

std::vector<FileItem> JunkModel::tickedItems(const std::vector<JunkCategory>& categories) {
    std::vector<FileItem> items;
    for (const auto& c : categories) {
        if (!c.enabled) continue;
        for (const auto& item : c.items) {
            if (item.selected) items.push_back(item);
        }
    }
    return items;
}

std::int64_t JunkModel::tickedTotal(const std::vector<JunkCategory>& categories) {
    // Summed as one category so that a helper's absurd sizes stop at the largest value.
    JunkCategory all;
    all.items = tickedItems(categories);
    return all.total();
}

std::int64_t JunkModel::categoriesTotal(const std::vector<JunkCategory>& categories) {
    // Summed as one category so that a helper's absurd sizes stop at the largest value.
    JunkCategory all;
    for (const auto& c : categories) {
        if (c.enabled) all.items.insert(all.items.end(), c.items.begin(), c.items.end());
    }
    return all.total();
}

void JunkModel::recount() {
    total = categoriesTotal(cats);
    movable = tickedTotal(cats);
}

std::int64_t JunkModel::autoCleanShare(const std::vector<JunkCategory>& categories) {
    return tickedTotal(AutoCleanRules::defaultJunk(categories));
}

JunkCategory JunkModel::adminCategory(const HelperJunkCategory& found) {
    JunkCategory c;
    c.name = found.name;
    c.icon = found.icon;
    c.note = found.detail;
    c.items = found.items;
    for (auto& item : c.items) {
        if (item.id.empty()) item.id = quorv::newUuid();
    }
    c.enabled = true;
    c.admin = true;
    c.group = CacheKind::system;
    return c;
}

std::string JunkModel::matchKey(const std::string& location) {
    std::string path = quorv::host().systemPath(location).value_or(location);
    if (path.starts_with("/var/")) path.insert(0, "/private");
    return path;
}

std::string JunkModel::resultLine(std::int64_t freed, std::size_t skipped) {
    std::string line = "Moved " + quorv::formatSize(freed) + " to the Trash";
    // The count follows the sentence after a comma: "Moved 3 GB to the Trash, 2 skipped (…)".
    if (skipped > 0) line += ", " + std::to_string(skipped) + " skipped (in use or protected)";
    return line;
}

void JunkModel::keepChoices(const std::vector<JunkCategory>& from) {
    std::map<std::string, bool> enabled;
    std::map<std::string, bool> selected;
    for (const auto& c : from) {
        enabled[c.name] = c.enabled;
        for (const auto& item : c.items) selected[item.location] = item.selected;
    }
    for (auto& c : cats) {
        if (auto it = enabled.find(c.name); it != enabled.end()) c.enabled = it->second;
        for (auto& item : c.items) {
            if (auto it = selected.find(item.location); it != selected.end()) item.selected = it->second;
        }
    }
}

std::vector<FileItem> JunkModel::rootItems(bool adminEnabled) const {
    std::vector<FileItem> items;
    if (!adminEnabled) return items;
    for (const auto& c : cats) {
        if (!c.enabled || !c.admin) continue;
        for (const auto& item : c.items) {
            if (item.selected) items.push_back(item);
        }
    }
    return items;
}

void JunkModel::settle(const std::vector<JunkCategory>& previous) {
    JunkCatalogue::defaultTicking(cats);
    keepChoices(previous);
    recount();
    WidgetFeed::update(autoCleanShare(cats), std::nullopt, std::nullopt);
}

void JunkModel::scan() {
    if (scanning || cleaning) return;
    const auto previous = cats;
    scanning = true;
    progressDone = progressTotal = 0;
    activity = lookingText;
    changed();

    const std::string home = FS::home();
    auto found = quorv::Background::await([&] {
        return sources_.scan ? sources_.scan(home, [this](int done, int all) {
            progressDone = done;
            progressTotal = all;
            changed();
        })
                             : std::vector<JunkCategory>();
    });
    cats = std::move(found);
    settle(previous);
    changed();

    if (sources_.adminEnabled && sources_.adminEnabled()) {
        activity = checkingSystemText;
        changed();
        auto system = sources_.adminScan ? quorv::Background::await([&] { return sources_.adminScan(); })
                                         : std::nullopt;
        if (system) {
            for (const auto& category : *system) {
                if (!category.items.empty()) cats.push_back(adminCategory(category));
            }
            settle(previous);
            activity.clear();
        } else {
            activity = adminUnavailableText;
        }
    } else {
        activity.clear();
    }
    scanning = false;
    scanned = true;
    changed();
}

namespace {

// Adds what of items moved (by match key) to result: freed bytes are the scanned sizes of what
// moved, each location once (counted across calls); what did not move is skipped.
void tally(const std::vector<FileItem>& items, const std::set<std::string>& moved, JunkCleanResult& result,
           std::set<std::string>& counted) {
    for (const auto& item : items) {
        const auto key = JunkModel::matchKey(item.location);
        if (moved.count(key) == 0) {
            result.skippedLocations.push_back(item.location);
            continue;
        }
        if (!counted.insert(key).second) continue;
        ++result.moved;
        if (item.size > 0) result.freed += item.size;
    }
}

}  // namespace

JunkCleanResult JunkModel::clean(const std::optional<std::string>& source) {
    JunkCleanResult result;
    if (scanning || cleaning) return result;
    const auto lock = CleanLock::take();
    if (!lock) {
        result.busy = true;
        message = CleanLock::busyText;
        changed();
        return result;
    }
    cleaning = true;
    changed();

    std::vector<FileItem> own;
    std::vector<FileItem> root;
    for (const auto& c : cats) {
        if (!c.enabled) continue;
        for (const auto& item : c.items) {
            if (item.selected) (c.admin ? root : own).push_back(item);
        }
    }

    // What moved, by match key.
    std::set<std::string> moved;
    const auto ownResult = quorv::Background::await([&] { return FS::trash(own, source); });
    for (const auto& m : ownResult.moved) moved.insert(matchKey(m.original));
    if (!root.empty()) {
        std::vector<std::string> locations;
        for (const auto& item : root) locations.push_back(item.location);
        const auto rootMoved = quorv::Background::await([&] { return Admin::trash(locations, source); });
        for (const auto& location : rootMoved) moved.insert(matchKey(location));
    }

    std::set<std::string> counted;
    tally(own, moved, result, counted);
    tally(root, moved, result, counted);
    result.skipped = result.skippedLocations.size();

    auto& settings = quorv::settings();
    settings.set(keys::widgetLastClean, quorv::host().now());
    settings.set(keys::widgetLastFreed, result.freed);

    // Prune what moved; the ticks stay as they were.
    for (auto& c : cats) {
        std::erase_if(c.items, [&](const FileItem& item) { return moved.count(matchKey(item.location)) != 0; });
    }
    recount();
    WidgetFeed::update(autoCleanShare(cats), std::nullopt, std::nullopt);

    message = resultLine(result.freed, result.skipped);
    cleaning = false;
    changed();
    return result;
}

}  // namespace brimstell
