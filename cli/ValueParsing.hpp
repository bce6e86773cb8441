#pragma once
// Turns what a person typed into a typed settings value.

#include <optional>
#include <string>
#include <vector>

#include "kit/settings/SettingsKeys.hpp"
#include "support/settings/Value.hpp"

namespace cli {

std::optional<brimstell::SettingType> typeNamed(const std::string& name);

// The type a value is stored with: the one asked for, else the key's own, else what the text looks
// like (true/false, a whole number, a decimal number, else a string).
brimstell::SettingType typeFor(const std::string& key, const std::vector<std::string>& words,
                               std::optional<brimstell::SettingType> asked);

// nullopt with a sentence in error when the words don't fit the type. Dates take "now", seconds
// since 1970, or "YYYY-MM-DD[THH:MM[:SS]][Z|±HH:MM]" (local time without a zone).
std::optional<quorv::Value> parseValue(brimstell::SettingType type, const std::vector<std::string>& words, double now,
                                       std::string& error);

}  // namespace cli
