#include "support/text/MountInfo.hpp"

#include <algorithm>

namespace quorv {

namespace {

std::string unescape(std::string_view field) {
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const auto o = field.substr(i + 1, 3);
            if (o[0] >= '0' && o[0] <= '3' && o[1] >= '0' && o[1] <= '7' && o[2] >= '0' && o[2] <= '7') {
                out.push_back(static_cast<char>((o[0] - '0') * 64 + (o[1] - '0') * 8 + (o[2] - '0')));
                i += 3;
                continue;
            }
        }
        out.push_back(field[i]);
    }
    return out;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
    std::vector<std::string_view> fields;
    while (!line.empty()) {
        const auto space = line.find(' ');
        fields.push_back(line.substr(0, space));
        line = space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
    }
    return fields;
}

bool inside(std::string_view path, std::string_view point) {
    if (point == "/") return !path.empty() && path[0] == '/';
    return path == point || (path.size() > point.size() && path.substr(0, point.size()) == point && path[point.size()] == '/');
}

}  // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text) {
    std::vector<MountEntry> out;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const auto fields = fieldsOf(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        // id parent major:minor root point options [optional…] - type source super-options
        const auto dash = std::find(fields.begin(), fields.end(), "-");
        if (fields.size() < 5 || dash == fields.end() || dash - fields.begin() < 5 || dash + 1 == fields.end()) continue;
        MountEntry entry{unescape(fields[4]), std::string(*(dash + 1)), dash + 2 != fields.end() ? unescape(*(dash + 2)) : ""};
        if (!entry.point.empty() && entry.point[0] == '/') out.push_back(std::move(entry));
    }
    return out;
}

const MountEntry* mountHolding(const std::vector<MountEntry>& mounts, std::string_view path) {
    const MountEntry* best = nullptr;
    for (const auto& m : mounts) {
        // A later mount on the same point covers an earlier one.
        if (inside(path, m.point) && (!best || m.point.size() >= best->point.size())) best = &m;
    }
    return best;
}

}  // namespace quorv
