#include "kit/developer/ToolText.hpp"

#include <cctype>
#include <cmath>
#include <string>

#include "support/text/Nesting.hpp"

namespace brimstell::ToolText {

std::string textOf(const nlohmann::json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

std::string_view trim(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

nlohmann::json parseJson(std::string_view text) {
    if (text.size() > maxAnswerBytes || !quorv::nesting::jsonWithin(text)) {
        return nlohmann::json(nlohmann::json::value_t::discarded);
    }
    return nlohmann::json::parse(text, nullptr, false);
}

std::optional<std::int64_t> parseSize(std::string_view text, int base) {
    text = trim(text);
    std::string number;
    std::size_t i = 0;
    for (; i < text.size() && (std::isdigit(static_cast<unsigned char>(text[i])) || text[i] == '.' || text[i] == ','); ++i) {
        if (text[i] != ',') number += text[i];
    }
    if (number.empty() || number.front() == '.' || number.size() > 24) return std::nullopt;
    std::string unit(trim(text.substr(i)));
    for (auto& c : unit) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    static constexpr std::string_view units[] = {"B", "KB", "MB", "GB", "TB"};
    for (std::size_t power = 0; power < std::size(units); ++power) {
        if (unit != units[power]) continue;
        char* end = nullptr;
        const double value = std::strtod(number.c_str(), &end);
        if (end != number.c_str() + number.size() || !std::isfinite(value)) return std::nullopt;
        const double bytes = value * std::pow(static_cast<double>(base), static_cast<double>(power));
        if (bytes >= 9.0e18) return std::nullopt;
        return static_cast<std::int64_t>(std::llround(bytes));
    }
    return std::nullopt;
}

}  // namespace brimstell::ToolText
