#pragma once
// Reading what developer tools print: lines, JSON within bounds, and sizes as tools write them.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace brimstell::ToolText {

std::string_view trim(std::string_view text);
// The text under key in a JSON object; empty when absent or not a text.
std::string textOf(const nlohmann::json& object, const char* key);
// The JSON value of a tool's answer; discarded when it is too long, nests too deep or isn't JSON.
nlohmann::json parseJson(std::string_view text);
// "8.674GB", "0B", "2,401 KB", "1.2 kB": a number, maybe a blank, and a unit of B, kB/KB, MB, GB
// or TB in multiples of base (1000 or 1024). None for anything else, a negative size included.
std::optional<std::int64_t> parseSize(std::string_view text, int base);

// Answers longer than this are not a tool's listing.
inline constexpr std::size_t maxAnswerBytes = 32u << 20;

}  // namespace brimstell::ToolText
