#pragma once
// Property lists, XML or binary, to and from Value.

#include <optional>
#include <string>
#include <string_view>

#include "support/settings/Value.hpp"

namespace quorv::plist {

// Parses either format; nullopt when the bytes are not a property list, or nest deeper than
// nesting::maxDepth (see PlistNesting.hpp).
std::optional<Value> parse(std::string_view bytes);
// Reads a property-list file; nullopt when it is missing or not a property list.
std::optional<Value> readFile(const std::string& path);
// The XML form.
std::string toXml(const Value& value);
// The binary form ("bplist00").
std::string toBinary(const Value& value);

// The value at a key of a dictionary; nullptr when v is not a dictionary or lacks the key.
const Value* find(const Value& v, std::string_view key);

}  // namespace quorv::plist
