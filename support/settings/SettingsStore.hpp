#pragma once
// The settings store that app and agent share: one typed key-value domain.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/settings/Value.hpp"

namespace quorv {

// Whether key can name a setting on every platform: not empty, well-formed UTF-8, no NUL (the
// macOS defaults system can't even make a key of anything else).
bool isStorableKey(std::string_view key);

class SettingsStore {
public:
    virtual ~SettingsStore() = default;

    // The stored value, of whatever type it is; nullopt when absent.
    virtual std::optional<Value> object(const std::string& key) = 0;
    // Writes are visible to this process at once and reach the shared domain before they return.
    virtual bool set(const std::string& key, const Value& value) = 0;
    virtual bool remove(const std::string& key) = 0;
    // Picks up what other processes wrote and makes sure our writes are on disk.
    virtual bool synchronize() = 0;
    virtual std::vector<std::string> keys() = 0;

    // The typed reads. They convert as the platform's user defaults do, so that a value written by
    // hand with another type still reads sensibly.

    // Plain read: absent = false; numbers are true when non-zero; strings "YES"/"true"/"1"… are true.
    bool boolean(const std::string& key);
    // Present-and-false read: only a stored Boolean false is off; absent or another type is on.
    bool unlessFalse(const std::string& key);
    // Absent = 0; doubles truncate; Booleans are 0 or 1; strings are read from their leading digits.
    std::int64_t integer(const std::string& key);
    // Absent = 0; integers and Booleans convert; strings are read as numbers.
    double number(const std::string& key);
    // Strings as they are; numbers as their text; anything else is absent.
    std::optional<std::string> string(const std::string& key);
    // Present only when the value is an array of strings.
    std::optional<std::vector<std::string>> stringArray(const std::string& key);
    // Present only when the value is a date.
    std::optional<Date> date(const std::string& key);
};

// The settings of the current host; a store that holds nothing when the host has none.
SettingsStore& settings();

}  // namespace quorv
