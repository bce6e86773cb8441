#pragma once
// What the commands share: the JSON form of a settings value, shell quoting, error lines.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>
#include <string_view>

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

// A path as a line of text shows it: as it is when it is printable UTF-8, else in $'…' quoting
// with \n, \t and \xNN escapes (as ls writes such names), so that no name breaks a line or passes
// for another.
std::string shownPath(const std::string& path);
// Puts a path into a JSON object under key; a path that is not UTF-8 is written readable under key
// and exactly, as base64, under key + "Base64".
void putPath(Json& object, const std::string& key, const std::string& path);
// What a clean did, as `clean --json` and `leftovers clean --json` print it, and on a terminal:
// each location that did not move, then the model's message.
void printCleanResult(std::int64_t freed, std::size_t moved, const std::vector<std::string>& skipped,
                      const std::string& message, bool json);
// A moment as JSON gives it: ISO 8601 in UTC to the second ("2026-11-24T05:01:02Z"); null for 0
// or less (never) and for what isn't a time.
Json dateJson(double secondsSince1970);
std::string isoDate(double secondsSince1970);
// A state or kind as JSON names it: "requires approval" → "requiresApproval", "in the Trash" →
// "inTheTrash" (words joined, lower camel case).
std::string stateWord(std::string_view text);

// "1 item", "3 items".
std::string itemsText(std::size_t n);
// Whether to go ahead: yes given, or a "y" typed at the terminal. nullopt: there is no one to ask.
std::optional<bool> confirmed(const std::string& question, bool yes);
// The same, saying what became of it: with no terminal to ask on, "not " + doing + " without --yes:
// there is no terminal to ask on" on standard error and exit status 2; a "no" prints declined.
// True to go ahead.
bool goAhead(const std::string& question, bool yes, const std::string& doing, const std::string& declined, int& exitCode);

}  // namespace cli
