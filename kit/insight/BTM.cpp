#include "kit/insight/BTM.hpp"

#include <algorithm>

namespace brimstell {

namespace {

std::string_view trimmed(std::string_view s) {
    const auto first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(" \t");
    return s.substr(first, last - first + 1);
}

// "#3:" opens a record; "#X:" (a placeholder some pages print) does not.
bool isRecordHeader(std::string_view line) {
    if (line.size() < 3 || line.front() != '#' || line.back() != ':') return false;
    const auto middle = line.substr(1, line.size() - 2);
    return std::all_of(middle.begin(), middle.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string uidAfter(std::string_view rest) {
    rest = rest.substr(std::min(rest.find_first_not_of(' '), rest.size()));
    return std::string(rest.substr(0, rest.find(' ')));
}

}  // namespace

std::optional<std::string> BTMRecord::field(const std::string& key) const {
    const auto it = fields.find(key);
    if (it == fields.end() || it->second.empty() || it->second == "(null)") return std::nullopt;
    return it->second;
}

std::set<std::string> BTMRecord::disposition() const {
    const auto value = field("Disposition");
    if (!value) return {};
    const auto open = value->find('[');
    const auto close = value->find(']');
    if (open == std::string::npos || close == std::string::npos || close < open) return {};
    std::set<std::string> words;
    std::string_view inside = std::string_view(*value).substr(open + 1, close - open - 1);
    while (true) {
        const auto comma = inside.find(',');
        const auto word = trimmed(inside.substr(0, comma));
        if (!word.empty()) words.insert(std::string(word));
        if (comma == std::string_view::npos) break;
        inside.remove_prefix(comma + 1);
    }
    return words;
}

std::string BTMRecord::type() const {
    const auto value = field("Type").value_or("");
    return value.substr(0, value.find(" ("));
}

std::vector<BTMRecord> BTM::parse(std::string_view dump) {
    static constexpr std::string_view section = "Records for UID ";
    std::vector<BTMRecord> records;
    std::optional<BTMRecord> open;
    std::string uid;
    auto close = [&] {
        if (open) records.push_back(std::move(*open));
        open.reset();
    };
    while (!dump.empty()) {
        const auto feed = dump.find('\n');
        const auto line = trimmed(dump.substr(0, feed));
        dump.remove_prefix(feed == std::string_view::npos ? dump.size() : feed + 1);
        if (line.starts_with(section)) {
            close();
            uid = uidAfter(line.substr(section.size()));
        } else if (isRecordHeader(line)) {
            close();
            open = BTMRecord{uid, {}};
        } else if (const auto colon = line.find(": "); open && colon != std::string_view::npos) {
            open->fields.emplace(std::string(line.substr(0, colon)), std::string(line.substr(colon + 2)));
        }
    }
    close();
    return records;
}

}  // namespace brimstell
