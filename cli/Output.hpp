#pragma once
// What the commands share: the JSON form of a settings value, shell quoting, error lines.

#include <string>

#include <nlohmann/json.hpp>

#include "support/settings/Value.hpp"

namespace cli {

using Json = nlohmann::ordered_json;

Json toJson(const quorv::Value& value);
// Prints a JSON document on standard output (text that isn't UTF-8 is replaced, never thrown on).
void printJson(const Json& j);
// A word safe to paste into a POSIX shell.
std::string shellQuote(const std::string& s);
// "brimstell: " + message on standard error.
void error(const std::string& message);
// "never" for 0, else the local date and time.
std::string timeText(double secondsSince1970);

}  // namespace cli
