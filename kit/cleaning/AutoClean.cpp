#include "kit/cleaning/AutoClean.hpp"

#include <algorithm>

#include "kit/settings/SettingsKeys.hpp"
#include "kit/cleaning/AutoCleanRules.hpp"
#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/TrashBin.hpp"
#include "support/background/Background.hpp"
#include "support/host/Host.hpp"
#include "support/notify/Notify.hpp"
#include "support/settings/SettingsStore.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

namespace {

// A junk model over the user's own folders only: Auto Clean never touches system files or other
// accounts, so the helper is not asked.
JunkModel ownJunkModel() {
    auto sources = JunkModel::defaultSources();
    sources.adminEnabled = [] { return false; };
    sources.adminScan = nullptr;
    return JunkModel(std::move(sources));
}

// Scans and keeps what Auto Clean may take.
void scanSafeJunk(JunkModel& model) {
    model.scan();
    model.cats = AutoCleanRules::defaultJunk(model.cats);
    model.recount();
}

std::string downloadsFolder() { return FS::home() + "/" + std::string(JunkCatalogue::downloadsFolder); }

// The Trash rule's limit as the Trash takes it. A hand-written limit under one day chooses nothing
// (-1), as the Downloads rule does, rather than the whole Trash; a huge one can't wrap around.
int trashDays(const AutoCleanSettings& s) {
    if (s.emptyTrashDays < 1) return -1;
    return static_cast<int>(std::min<std::int64_t>(s.emptyTrashDays, 1'000'000));
}

std::int64_t sizeOf(const std::vector<FileItem>& items) {
    std::int64_t sum = 0;
    for (const auto& item : items) {
        if (item.size > 0) sum += item.size;
    }
    return sum;
}

}  // namespace

std::string AutoClean::lockFile() { return CleanLock::file(); }

std::optional<double> AutoClean::nextRun() {
    const auto s = AutoCleanRules::settingsFrom(quorv::settings());
    if (!s.enabled || !(s.lastRun > 0)) return std::nullopt;
    return AutoCleanRules::nextRun(s.lastRun, s.frequency, quorv::host().calendar);
}

void AutoClean::turnedOn() {
    auto& settings = quorv::settings();
    if (settings.number(keys::autoCleanLastRun) > 0) return;
    settings.set(keys::autoCleanLastRun, quorv::host().now());
}

std::optional<std::int64_t> AutoClean::run(bool manual) {
    if (running) return std::nullopt;
    running = true;
    message.reset();
    auto& settings = quorv::settings();
    settings.synchronize();
    const auto s = AutoCleanRules::settingsFrom(settings);

    // Held for the whole run; the junk clean and the Trash's emptying below take it again.
    const auto lock = CleanLock::take(lockFile());
    if (!lock) {
        // The app or the agent is cleaning right now: this run ends without a trace.
        running = false;
        return std::nullopt;
    }

    const std::int64_t freed = quorv::Background::await([&] {
        std::int64_t bytes = 0;
        if (s.junk) {
            auto model = ownJunkModel();
            scanSafeJunk(model);
            bytes += model.clean(std::string(source)).freed;
        }
        if (s.emptyTrash) bytes += TrashBin::emptyOlderThan(trashDays(s)).value_or(0);
        if (s.downloads) {
            const auto old = AutoCleanRules::old(downloadsFolder(), s.downloadsDays, quorv::host().now(), true);
            if (!old.empty()) bytes += FS::trash(old, std::string(source)).freed;
        }
        return bytes;
    });

    running = false;
    const double now = quorv::host().now();
    settings.set(keys::autoCleanLastRun, now);
    settings.set(keys::autoCleanLastFreed, freed);
    settings.set(keys::autoCleanRanOnce, true);
    settings.set(keys::widgetLastClean, now);
    settings.set(keys::widgetLastFreed, freed);
    settings.synchronize();

    const std::string size = quorv::formatSize(freed);
    message = freed < 1 ? std::string("Nothing to clean") : "Freed " + size;
    if (freed >= 1 && !manual) {
        quorv::Notify::send("Auto Clean freed " + size, "Everything it moved is in History, ready to restore.");
    }
    return freed;
}

CleanReport AutoClean::cleanSafeJunk() {
    CleanReport report;
    // Taken before the scan, so that a busy clean doesn't scan for nothing; the model's clean takes
    // it again.
    const auto lock = CleanLock::take();
    if (!lock) {
        report.busy = true;
        report.title = CleanLock::busyText;
        return report;
    }
    auto model = ownJunkModel();
    scanSafeJunk(model);
    // The model's clean writes the widget's last clean and what it freed, and feeds it the rest.
    const auto result = model.clean(std::string(quickCleanSource));
    report.freed = result.freed;
    if (result.freed < 1) {
        report.title = "Nothing to clean";
        report.body = "There was no safe junk to move.";
    } else {
        report.title = "Cleaned " + quorv::formatSize(result.freed);
        report.body = "Everything moved is in Cleaning History, ready to restore.";
    }
    return report;
}

AutoCleanPreview AutoClean::computePreview() {
    const auto s = AutoCleanRules::settingsFrom(quorv::settings());
    AutoCleanPreview p = quorv::Background::await([&] {
        AutoCleanPreview found;
        if (s.junk) {
            auto model = ownJunkModel();
            scanSafeJunk(model);
            found.junk = model.movable;
        }
        const double now = quorv::host().now();
        if (s.emptyTrash) {
            for (const auto& item : TrashBin::olderThan(trashDays(s), now)) found.trash += item.size;
        }
        if (s.downloads) found.downloads = sizeOf(AutoCleanRules::old(downloadsFolder(), s.downloadsDays, now, true));
        return found;
    });
    preview = p;
    return p;
}

}  // namespace brimstell
