// Auto Clean's settings as the store holds them.

#include <cmath>

#include "kit/settings/SettingsKeys.hpp"
#include "kit/cleaning/AutoCleanRules.hpp"
#include "support/settings/SettingsStore.hpp"

namespace brimstell {

namespace {

// Each read takes only a value of the key's own type; anything else (a text where a number
// belongs, a number where a Boolean belongs) counts as not set.

bool booleanOr(quorv::SettingsStore& store, const char* key, bool fallback) {
    const auto value = store.object(key);
    const bool* b = value ? value->get<bool>() : nullptr;
    return b ? *b : fallback;
}

// An integer, or a double holding a whole number (what a hand edit often leaves).
std::optional<std::int64_t> integerIn(quorv::SettingsStore& store, const char* key) {
    const auto value = store.object(key);
    if (!value) return std::nullopt;
    if (const auto* i = value->get<std::int64_t>()) return *i;
    if (const auto* d = value->get<double>()) {
        constexpr double limit = 9.2e18;  // inside the range of a 64-bit integer
        if (std::isfinite(*d) && std::trunc(*d) == *d && std::fabs(*d) < limit) return static_cast<std::int64_t>(*d);
    }
    return std::nullopt;
}

// A day limit of less than one day would take a folder's whole contents at once; no settings
// page offers it, so it counts as not set.
std::int64_t daysOr(quorv::SettingsStore& store, const char* key, std::int64_t fallback) {
    const auto days = integerIn(store, key);
    return days && *days >= 1 ? *days : fallback;
}

std::optional<double> numberIn(quorv::SettingsStore& store, const char* key) {
    const auto value = store.object(key);
    if (!value) return std::nullopt;
    if (const auto* d = value->get<double>()) {
        if (std::isfinite(*d)) return *d;
        return std::nullopt;
    }
    if (const auto* i = value->get<std::int64_t>()) return static_cast<double>(*i);
    return std::nullopt;
}

}  // namespace

AutoCleanSettings AutoCleanRules::settingsFrom(quorv::SettingsStore& store) {
    AutoCleanSettings s;
    // Read as the agent's schedule reads it (the store's plain Boolean read), so that the two never
    // disagree on whether Auto Clean is on.
    s.enabled = store.boolean(keys::autoCleanEnabled);
    if (const auto value = store.object(keys::autoCleanFrequency)) {
        if (const auto* text = value->get<std::string>()) s.frequency = frequencyNamed(*text).value_or(s.frequency);
    }
    s.junk = booleanOr(store, keys::autoCleanJunk, s.junk);
    s.emptyTrash = booleanOr(store, keys::autoCleanEmptyTrash, s.emptyTrash);
    s.emptyTrashDays = daysOr(store, keys::autoCleanEmptyTrashDays, s.emptyTrashDays);
    s.downloads = booleanOr(store, keys::autoCleanDownloads, s.downloads);
    s.downloadsDays = daysOr(store, keys::autoCleanDownloadsDays, s.downloadsDays);
    s.lastRun = numberIn(store, keys::autoCleanLastRun).value_or(s.lastRun);
    s.lastFreed = integerIn(store, keys::autoCleanLastFreed).value_or(s.lastFreed);
    s.ranOnce = booleanOr(store, keys::autoCleanRanOnce, s.ranOnce);
    return s;
}

}  // namespace brimstell
