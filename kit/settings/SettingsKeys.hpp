#pragma once
// Every key of the shared settings domain, with its type and default.

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "support/settings/Value.hpp"

namespace brimstell {

namespace keys {
inline constexpr const char* backgroundChecks = "backgroundChecks";
inline constexpr const char* warnLowDisk = "warnLowDisk";
inline constexpr const char* warnLowDiskGB = "warnLowDiskGB";
inline constexpr const char* warnBatteryWorn = "warnBatteryWorn";
inline constexpr const char* warnDiskHealth = "warnDiskHealth";
inline constexpr const char* warnLeftovers = "warnLeftovers";
inline constexpr const char* warnLoginItems = "warnLoginItems";
inline constexpr const char* checkUpdatesWeekly = "checkUpdatesWeekly";
inline constexpr const char* updatesLastCheck = "updatesLastCheck";
inline constexpr const char* autoCleanEnabled = "autoClean.enabled";
inline constexpr const char* autoCleanFrequency = "autoClean.frequency";
inline constexpr const char* autoCleanLastRun = "autoClean.lastRun";
inline constexpr const char* autoCleanLastFreed = "autoClean.lastFreed";
inline constexpr const char* autoCleanRanOnce = "autoClean.ranOnce";
inline constexpr const char* autoCleanJunk = "autoClean.junk";
inline constexpr const char* autoCleanEmptyTrash = "autoClean.emptyTrash";
inline constexpr const char* autoCleanEmptyTrashDays = "autoClean.emptyTrashDays";
inline constexpr const char* autoCleanDownloads = "autoClean.downloads";
inline constexpr const char* autoCleanDownloadsDays = "autoClean.downloadsDays";
inline constexpr const char* alarmLowDisk = "agent.alarm.lowDisk";
inline constexpr const char* alarmBatteryWorn = "agent.alarm.batteryWorn";
inline constexpr const char* alarmDiskHealth = "agent.alarm.diskHealth";
inline constexpr const char* installedApps = "agent.installedApps";
inline constexpr const char* loginItems = "agent.loginItems";
inline constexpr const char* junkMeasured = "agent.junkMeasured";
inline constexpr const char* widgetLastClean = "widget.lastClean";
inline constexpr const char* widgetLastFreed = "widget.lastFreed";
inline constexpr const char* cloudKeptOffline = "cloud.keptOffline";
}  // namespace keys

enum class SettingType { boolean, integer, number, string, stringArray, date };

// What a value may be beyond its type.
enum class SettingRange {
    any,
    atLeastZero,  // days, gigabytes, bytes
    frequency,    // one of the Auto Clean frequencies: "daily", "weekly", "monthly"
};

struct SettingKey {
    std::string_view key;
    SettingType type;
    std::string_view defaultText;  // as the settings page shows an unwritten key; "" = absent
    std::string_view meaning;
    SettingRange range = SettingRange::any;
};

// The table of keys, in the order the settings page lists them.
std::span<const SettingKey> settingKeys();
const SettingKey* findSettingKey(std::string_view key);
std::string_view typeName(SettingType type);

// Why value can't be stored under key, as a sentence that starts with the key; nullopt when it
// can. A key not in the table is refused unless ownKeys is set (a user's own key, any value).
std::optional<std::string> settingProblem(std::string_view key, const quorv::Value& value, bool ownKeys);

// The default of a key as a typed value; nullopt for a key without one (or not in the table).
std::optional<quorv::Value> defaultValue(std::string_view key);

}  // namespace brimstell
