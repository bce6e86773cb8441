#include "kit/agent/SettingsKeys.hpp"

namespace brimstell {

namespace {
constexpr SettingKey table[] = {
    {keys::backgroundChecks, SettingType::boolean, "true", "the agent is registered to run hourly"},
    {keys::warnLowDisk, SettingType::boolean, "true", "low-disk alert on"},
    {keys::warnLowDiskGB, SettingType::integer, "10", "low-disk threshold in decimal gigabytes"},
    {keys::warnBatteryWorn, SettingType::boolean, "false", "worn-battery alert on"},
    {keys::warnDiskHealth, SettingType::boolean, "false", "disk self-check alert on"},
    {keys::warnLeftovers, SettingType::boolean, "true", "removed-apps leftovers alert on"},
    {keys::warnLoginItems, SettingType::boolean, "true", "new login items alert on"},
    {keys::checkUpdatesWeekly, SettingType::boolean, "false", "weekly update check by the agent"},
    {keys::updatesLastCheck, SettingType::date, "", "time of the last update check"},
    {keys::autoCleanEnabled, SettingType::boolean, "false", "Auto Clean on"},
    {keys::autoCleanFrequency, SettingType::string, "weekly", "daily, weekly or monthly"},
    {keys::autoCleanLastRun, SettingType::number, "0", "time of the last Auto Clean run (seconds since 1970)"},
    {keys::autoCleanLastFreed, SettingType::integer, "0", "bytes freed by the last Auto Clean run"},
    {keys::autoCleanRanOnce, SettingType::boolean, "false", "Auto Clean has run at least once"},
    {keys::autoCleanJunk, SettingType::boolean, "true", "Auto Clean cleans the junk ticked by default"},
    {keys::autoCleanEmptyTrash, SettingType::boolean, "false", "Auto Clean also deletes old Trash items for good"},
    {keys::autoCleanEmptyTrashDays, SettingType::integer, "30", "age in days above which Trash items are deleted"},
    {keys::autoCleanDownloads, SettingType::boolean, "false", "Auto Clean also moves old downloads to the Trash"},
    {keys::autoCleanDownloadsDays, SettingType::integer, "90", "age in days above which downloads are untouched long enough to move"},
    {keys::alarmLowDisk, SettingType::boolean, "", "the low-disk alert was shown and still holds"},
    {keys::alarmBatteryWorn, SettingType::boolean, "", "the worn-battery alert was shown and still holds"},
    {keys::alarmDiskHealth, SettingType::boolean, "", "the disk alert was shown and still holds"},
    {keys::installedApps, SettingType::stringArray, "", "apps installed at the last leftovers check"},
    {keys::loginItems, SettingType::stringArray, "", "launch property lists seen at the last login-items check"},
    {keys::junkMeasured, SettingType::number, "0", "time of the last junk measurement (seconds since 1970)"},
    {keys::widgetLastClean, SettingType::number, "0", "time of the last cleaning (seconds since 1970)"},
    {keys::widgetLastFreed, SettingType::integer, "0", "bytes freed by the last cleaning"},
};
}  // namespace

std::span<const SettingKey> settingKeys() { return table; }

const SettingKey* findSettingKey(std::string_view key) {
    for (const auto& k : table) {
        if (k.key == key) return &k;
    }
    return nullptr;
}

std::string_view typeName(SettingType type) {
    switch (type) {
        case SettingType::boolean: return "boolean";
        case SettingType::integer: return "integer";
        case SettingType::number: return "double";
        case SettingType::string: return "string";
        case SettingType::stringArray: return "array";
        case SettingType::date: return "date";
    }
    return "?";
}

}  // namespace brimstell
