#include "kit/insight/BackgroundModel.hpp"

#include <sys/stat.h>

#include <algorithm>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/files/Admin.hpp"
#include "kit/files/FS.hpp"
#include "support/background/Background.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

namespace {
// The background-task dump (sfltool dumpbtm, which only root may run) through the helper's "btm";
// nothing when the helper can't be used, empty when the tool printed nothing (failed or hung).
std::optional<std::string> backgroundTaskDump() {
    if (!Admin::start()) return std::nullopt;
    // The helper stops the tool after 20 seconds; a little more covers the reply's way back.
    return Admin::callHelper("btm", "", {}, 30.0).value_or("");
}

bool existsAt(const std::string& location) {
    struct stat st {};
    return ::lstat(location.c_str(), &st) == 0;
}
}  // namespace

void BackgroundModel::load() {
    message.reset();
    std::optional<std::vector<BTMRecord>> records;
    if (!quorv::host().isMac()) {
        // Linux has no background-task database; its login items are its autostart entries.
        loginNote.clear();
    } else if (const auto dump = backgroundTaskDump(); !dump) {
        loginNote = needsAdminText;
    } else if (dump->empty()) {
        loginNote = unreadableText;
    } else {
        loginNote.clear();
        records = BTM::parse(*dump);
    }
    scan = quorv::Background::await([&] { return BackgroundItems::scan(records); });
    loaded = true;
}

bool BackgroundModel::toggle(const BackgroundItem& item) {
    if (item.source == BackgroundItem::Source::cron) {
        message = cronText;
        return false;
    }
    if (item.scope == BackgroundItem::Scope::system && !Admin::start()) {
        message = systemNeedsAdminText;
        return false;
    }
    if (!BackgroundItems::setEnabled(item, !item.enabled)) {
        message = failedText;
        return false;
    }
    for (auto& i : scan.items)
        if (i.plist == item.plist) i.enabled = !item.enabled;
    message.reset();
    return true;
}

bool BackgroundModel::remove(const BackgroundItem& item) {
    // A crontab line's place is the whole crontab: never moved from here.
    if (item.source == BackgroundItem::Source::cron) {
        message = cronText;
        return false;
    }
    if (!item.programGone()) {
        message = notLeftoverText;
        return false;
    }
    const auto lock = CleanLock::take();
    if (!lock) {
        message = CleanLock::busyText;
        return false;
    }
    bool moved = false;
    if (item.scope == BackgroundItem::Scope::user) {
        const auto result = FS::trash({item.plist}, {}, std::string(source));
        moved = !result.moved.empty();
        if (!moved) message = result.reasons.count(item.plist) ? result.reasons.at(item.plist) : failedText;
    } else {
        const auto result = Admin::moveToTrash({item.plist}, std::string(source));
        moved = result && result->count(item.plist);
        if (!result) message = removeNeedsAdminText;
        else if (!moved) message = failedText;
    }
    if (!moved) return false;
    message = "Removed " + item.shownName();
    std::erase_if(scan.items, [&](const BackgroundItem& i) { return i.plist == item.plist; });
    return true;
}

void BackgroundModel::pruneMissing() {
    // A crontab line has no file of its own that the user could see go.
    std::erase_if(scan.items, [](const BackgroundItem& i) {
        return i.source != BackgroundItem::Source::cron && !existsAt(i.plist);
    });
}

std::size_t BackgroundModel::worthALook() const {
    const double now = quorv::host().now();
    const auto items = std::count_if(scan.items.begin(), scan.items.end(),
                                     [now](const BackgroundItem& i) { return i.worthALook(now); });
    const auto login = std::count_if(scan.login.begin(), scan.login.end(), [](const LoginItem& i) { return i.worthALook(); });
    return static_cast<std::size_t>(items + login);
}

const BackgroundItem* BackgroundModel::find(const std::string& labelOrPlist) const {
    for (const auto& i : scan.items)
        if (i.label == labelOrPlist || i.plist == labelOrPlist) return &i;
    return nullptr;
}

}  // namespace brimstell
