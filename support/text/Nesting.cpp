#include "support/text/Nesting.hpp"

#include <vector>

namespace quorv::nesting {

bool jsonWithin(std::string_view text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) return false;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}

namespace {

// Where the construct that starts at i ends (just past its closing text), for the constructs the
// parser skips whole; npos when i starts none of them. An unterminated one runs to the end.
std::size_t skipped(std::string_view text, std::size_t i) {
    struct Span {
        std::string_view open, close;
    };
    static constexpr Span spans[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
    const std::string_view rest = text.substr(i);
    for (const auto& s : spans) {
        if (!rest.starts_with(s.open)) continue;
        const auto end = text.find(s.close, i + s.open.size());
        return end == std::string_view::npos ? text.size() : end + s.close.size();
    }
    return std::string_view::npos;
}

// Just past the '>' that ends the tag starting at i (quoted attribute values may hold '>');
// npos when the tag never ends.
std::size_t tagEnd(std::string_view text, std::size_t i) {
    char quote = 0;
    for (std::size_t j = i + 1; j < text.size(); ++j) {
        const char c = text[j];
        if (quote != 0) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            return j + 1;
        }
    }
    return std::string_view::npos;
}

}  // namespace

// The element name of the tag that starts at i ("<name …>" or "</name>").
std::string_view tagName(std::string_view text, std::size_t i, std::size_t end) {
    std::size_t from = i + 1;
    if (from < end && text[from] == '/') ++from;
    std::size_t to = from;
    while (to < end && text[to] != '>' && text[to] != '/' && text[to] != ' ' && text[to] != '\t' &&
           text[to] != '\n' && text[to] != '\r') {
        ++to;
    }
    return text.substr(from, to - from);
}

bool xmlWithin(std::string_view text, int limit) {
    // The open elements' names: an end tag must close the innermost one, else the text is refused,
    // so no parser that reads end tags differently can be led deeper than counted here.
    std::vector<std::string_view> open;
    std::size_t i = 0;
    while ((i = text.find('<', i)) != std::string_view::npos) {
        if (const auto past = skipped(text, i); past != std::string_view::npos) {
            i = past;
            continue;
        }
        if (text.substr(i).starts_with("<!")) {
            // A document type: whatever it holds is still looked at, so nothing hides in it.
            i += 2;
            continue;
        }
        const auto end = tagEnd(text, i);
        if (end == std::string_view::npos) return true;  // a torn tag: the parser refuses it
        const std::string_view name = tagName(text, i, end);
        if (text[i + 1] == '/') {
            if (open.empty() || open.back() != name) return false;
            open.pop_back();
        } else if (text[end - 2] != '/') {
            if (open.size() >= static_cast<std::size_t>(limit)) return false;
            open.push_back(name);
        }
        i = end;
    }
    return true;
}

}  // namespace quorv::nesting
