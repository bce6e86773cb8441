#pragma once
// The lines of a tool's output or a small text file: split at line feeds, a carriage return before
// one dropped, no empty last line for a text that ends in a line feed.

#include <string_view>
#include <vector>

namespace quorv {

// Calls f with each line in order.
template <class F>
void eachLine(std::string_view text, F&& f) {
    while (!text.empty()) {
        const auto feed = text.find('\n');
        auto line = text.substr(0, feed);
        if (line.ends_with('\r')) line.remove_suffix(1);
        f(line);
        text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
    }
}

inline std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> out;
    eachLine(text, [&out](std::string_view line) { out.push_back(line); });
    return out;
}

}  // namespace quorv
