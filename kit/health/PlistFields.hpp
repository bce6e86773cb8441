#pragma once
// Typed reads of one key of a property-list dictionary, as the health readers take them: a number
// may come as an integer or a real, anything of another type counts as absent.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/settings/Value.hpp"

namespace brimstell::plistfields {

std::optional<std::int64_t> integer(const quorv::Value& dict, std::string_view key);
std::optional<bool> boolean(const quorv::Value& dict, std::string_view key);
std::optional<std::string> text(const quorv::Value& dict, std::string_view key);

}  // namespace brimstell::plistfields
