#include "support/text/JsonWriter.hpp"

#include <charconv>
#include <cmath>

#include <nlohmann/json.hpp>  // its shortest-form double printer, so numbers match its dump

#include "support/text/JsonScan.hpp"
#include "support/text/Utf8.hpp"

namespace quorv {

JsonWriter::JsonWriter(int indent, std::size_t reserve) : indent_(indent) { out_.reserve(reserve); }

void JsonWriter::newline(std::size_t depth) {
    if (indent_ < 0) return;
    out_ += '\n';
    out_.append(depth * static_cast<std::size_t>(indent_), ' ');
}

void JsonWriter::beforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (counts_.empty()) return;
    if (counts_.back()++ > 0) out_ += ',';
    newline(counts_.size());
}

void JsonWriter::open(char bracket) {
    beforeValue();
    out_ += bracket;
    counts_.push_back(0);
}

void JsonWriter::close(char bracket) {
    const bool empty = counts_.back() == 0;
    counts_.pop_back();
    if (!empty) newline(counts_.size());
    out_ += bracket;
}

JsonWriter& JsonWriter::beginObject() { return open('{'), *this; }
JsonWriter& JsonWriter::endObject() { return close('}'), *this; }
JsonWriter& JsonWriter::beginArray() { return open('['), *this; }
JsonWriter& JsonWriter::endArray() { return close(']'), *this; }

JsonWriter& JsonWriter::key(std::string_view name) {
    beforeValue();
    escaped(name);
    out_ += indent_ < 0 ? ":" : ": ";
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::string(std::string_view text) {
    beforeValue();
    escaped(text);
    return *this;
}

// The escapes nlohmann writes: the two-letter ones, and \u00xx in lower case for the other
// control characters; everything else as it is.
void JsonWriter::escaped(std::string_view text) {
    if (!jsonscan::isAscii(text) && !isValidUtf8(text)) {
        escaped(validUtf8(text));
        return;
    }
    static constexpr char hex[] = "0123456789abcdef";
    out_ += '"';
    std::uint64_t high = 0;
    std::size_t start = 0;
    for (std::size_t i; (i = jsonscan::special(text, start, high)) < text.size(); start = i + 1) {
        out_.append(text.substr(start, i - start));
        const auto c = static_cast<unsigned char>(text[i]);
        switch (c) {
            case '"': out_ += "\\\""; break;
            case '\\': out_ += "\\\\"; break;
            case '\b': out_ += "\\b"; break;
            case '\f': out_ += "\\f"; break;
            case '\n': out_ += "\\n"; break;
            case '\r': out_ += "\\r"; break;
            case '\t': out_ += "\\t"; break;
            default:
                out_ += "\\u00";
                out_ += hex[c >> 4];
                out_ += hex[c & 0xF];
        }
    }
    out_.append(text.substr(start));
    out_ += '"';
}

JsonWriter& JsonWriter::number(std::int64_t n) {
    beforeValue();
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, n).ptr;
    out_.append(buffer, static_cast<std::size_t>(end - buffer));
    return *this;
}

JsonWriter& JsonWriter::number(std::uint64_t n) {
    beforeValue();
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, n).ptr;
    out_.append(buffer, static_cast<std::size_t>(end - buffer));
    return *this;
}

JsonWriter& JsonWriter::number(double d) {
    if (!std::isfinite(d)) return null();
    beforeValue();
    char buffer[64];
    const char* end = nlohmann::detail::to_chars(buffer, buffer + sizeof buffer, d);
    out_.append(buffer, static_cast<std::size_t>(end - buffer));
    return *this;
}

JsonWriter& JsonWriter::boolean(bool b) {
    beforeValue();
    out_ += b ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    out_ += "null";
    return *this;
}

JsonWriter& JsonWriter::raw(std::string_view json) {
    beforeValue();
    out_.append(json);
    return *this;
}

}  // namespace quorv
