#include "kit/settings/SettingsKeys.hpp"

#include <string>

namespace brimstell {

namespace {
constexpr SettingKey table[] = {
    {keys::backgroundChecks, SettingType::boolean, "true", "the agent is registered to run hourly"},
    {keys::warnLowDisk, SettingType::boolean, "true", "low-disk alert on"},
    {keys::warnLowDiskGB, SettingType::integer, "10", "low-disk threshold in decimal gigabytes", SettingRange::atLeastZero},
    {keys::warnBatteryWorn, SettingType::boolean, "false", "worn-battery alert on"},
    {keys::warnDiskHealth, SettingType::boolean, "false", "disk self-check alert on"},
    {keys::warnLeftovers, SettingType::boolean, "true", "removed-apps leftovers alert on"},
    {keys::warnLoginItems, SettingType::boolean, "true", "new login items alert on"},
    {keys::checkUpdatesWeekly, SettingType::boolean, "false", "weekly update check by the agent"},
    {keys::updatesLastCheck, SettingType::date, "", "time of the last update check"},
    {keys::autoCleanEnabled, SettingType::boolean, "false", "Auto Clean on"},
    {keys::autoCleanFrequency, SettingType::string, "weekly", "daily, weekly or monthly", SettingRange::frequency},
    {keys::autoCleanLastRun, SettingType::number, "0", "time of the last Auto Clean run (seconds since 1970)"},
    {keys::autoCleanLastFreed, SettingType::integer, "0", "bytes freed by the last Auto Clean run", SettingRange::atLeastZero},
    {keys::autoCleanRanOnce, SettingType::boolean, "false", "Auto Clean has run at least once"},
    {keys::autoCleanJunk, SettingType::boolean, "true", "Auto Clean cleans the junk ticked by default"},
    {keys::autoCleanEmptyTrash, SettingType::boolean, "false", "Auto Clean also deletes old Trash items for good"},
    {keys::autoCleanEmptyTrashDays, SettingType::integer, "30", "age in days above which Trash items are deleted",
     SettingRange::atLeastZero},
    {keys::autoCleanDownloads, SettingType::boolean, "false", "Auto Clean also moves old downloads to the Trash"},
    {keys::autoCleanDownloadsDays, SettingType::integer, "90", "age in days above which downloads are untouched long enough to move",
     SettingRange::atLeastZero},
    {keys::alarmLowDisk, SettingType::boolean, "", "the low-disk alert was shown and still holds"},
    {keys::alarmBatteryWorn, SettingType::boolean, "", "the worn-battery alert was shown and still holds"},
    {keys::alarmDiskHealth, SettingType::boolean, "", "the disk alert was shown and still holds"},
    {keys::installedApps, SettingType::stringArray, "", "apps installed at the last leftovers check"},
    {keys::loginItems, SettingType::stringArray, "", "launch property lists seen at the last login-items check"},
    {keys::junkMeasured, SettingType::number, "0", "time of the last junk measurement (seconds since 1970)"},
    {keys::widgetLastClean, SettingType::number, "0", "time of the last cleaning (seconds since 1970)"},
    {keys::widgetLastFreed, SettingType::integer, "0", "bytes freed by the last cleaning", SettingRange::atLeastZero},
    {keys::cloudKeptOffline, SettingType::stringArray, "", "cloud files a release kept because they are set to stay available offline"},
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

namespace {

std::string withArticle(std::string_view word) {
    const bool vowel = !word.empty() && std::string_view("aeiou").find(word.front()) != std::string_view::npos;
    return (vowel ? "an " : "a ") + std::string(word);
}

bool hasType(SettingType type, const quorv::Value& v) {
    switch (type) {
        case SettingType::boolean: return v.get<bool>() != nullptr;
        case SettingType::integer: return v.get<std::int64_t>() != nullptr;
        case SettingType::number: return v.get<double>() != nullptr || v.get<std::int64_t>() != nullptr;
        case SettingType::string: return v.get<std::string>() != nullptr;
        case SettingType::date: return v.get<quorv::Date>() != nullptr;
        case SettingType::stringArray: {
            const auto* items = v.get<quorv::Value::Array>();
            if (!items) return false;
            for (const auto& item : *items) {
                if (!item.get<std::string>()) return false;
            }
            return true;
        }
    }
    return false;
}

std::optional<std::string> rangeProblem(const SettingKey& k, const quorv::Value& v) {
    const std::string key(k.key);
    if (k.range == SettingRange::atLeastZero) {
        const double n = v.get<std::int64_t>() ? static_cast<double>(*v.get<std::int64_t>()) : *v.get<double>();
        if (n < 0) return key + " can't be below 0.";
    }
    if (k.range == SettingRange::frequency) {
        const std::string& text = *v.get<std::string>();
        if (text != "daily" && text != "weekly" && text != "monthly") {
            return key + " is daily, weekly or monthly, not \"" + text + "\".";
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> settingProblem(std::string_view key, const quorv::Value& value, bool ownKeys) {
    const SettingKey* known = findSettingKey(key);
    if (!known) {
        if (ownKeys) return std::nullopt;
        return std::string(key) + " isn't one of Brimstell's settings (--force stores a key of your own).";
    }
    if (!hasType(known->type, value)) {
        return std::string(key) + " holds " + withArticle(typeName(known->type)) + ", not " + withArticle(value.typeName()) + ".";
    }
    return rangeProblem(*known, value);
}

std::optional<quorv::Value> defaultValue(std::string_view key) {
    const SettingKey* known = findSettingKey(key);
    if (!known || known->defaultText.empty()) return std::nullopt;
    const std::string text(known->defaultText);
    switch (known->type) {
        case SettingType::boolean: return quorv::Value(text == "true");
        case SettingType::integer: return quorv::Value(static_cast<std::int64_t>(std::stoll(text)));
        case SettingType::number: return quorv::Value(std::stod(text));
        case SettingType::string: return quorv::Value(text);
        case SettingType::date:
        case SettingType::stringArray: break;  // none of these has a default
    }
    return std::nullopt;
}

}  // namespace brimstell
