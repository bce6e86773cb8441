#include "support/text/JsonReader.hpp"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <system_error>

#include "support/text/JsonScan.hpp"
#include "support/text/Nesting.hpp"
#include "support/text/Utf8.hpp"

namespace quorv {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

double JsonReader::Number::asDouble() const {
    switch (type) {
        case Type::unsignedInteger: return static_cast<double>(u);
        case Type::signedInteger: return static_cast<double>(i);
        case Type::floating: return d;
    }
    return d;
}

JsonReader::JsonReader(std::string_view text) : text_(text) {
    if (text_.substr(0, 3) == "\xEF\xBB\xBF") pos_ = 3;
}

JsonReader JsonReader::insideArray(std::string_view text, bool first) {
    JsonReader in(std::string_view{});
    in.text_ = text;
    in.first_.push_back(first);
    return in;
}

bool JsonReader::fail() {
    failed_ = true;
    return false;
}

void JsonReader::skipSpace() {
    while (pos_ < text_.size()) {
        const char c = text_[pos_];
        if (c != ' ' && c != '\n' && c != '\r' && c != '\t') return;
        ++pos_;
    }
}

bool JsonReader::expect(char c) {
    if (failed_) return false;
    skipSpace();
    if (pos_ >= text_.size() || text_[pos_] != c) return fail();
    ++pos_;
    return true;
}

JsonReader::Kind JsonReader::peek() {
    if (failed_) return Kind::invalid;
    skipSpace();
    if (pos_ >= text_.size()) return Kind::invalid;
    switch (text_[pos_]) {
        case 'n': return Kind::null;
        case 't':
        case 'f': return Kind::boolean;
        case '"': return Kind::string;
        case '[': return Kind::array;
        case '{': return Kind::object;
        default: return text_[pos_] == '-' || isDigit(text_[pos_]) ? Kind::number : Kind::invalid;
    }
}

bool JsonReader::beginArray() {
    if (!expect('[')) return false;
    first_.push_back(true);
    return true;
}

bool JsonReader::beginObject() {
    if (!expect('{')) return false;
    first_.push_back(true);
    return true;
}

// Past the separator before the next element or member, or past the closing bracket.
bool JsonReader::more(char close) {
    if (failed_ || first_.empty()) return fail();
    skipSpace();
    if (pos_ < text_.size() && text_[pos_] == close) {
        ++pos_;
        first_.pop_back();
        return false;
    }
    if (!first_.back() && !expect(',')) return false;
    first_.back() = false;
    return true;
}

bool JsonReader::nextElement() { return more(']'); }

bool JsonReader::nextKey(std::string& key) {
    if (!more('}')) return false;
    if (peek() != Kind::string) return fail();
    return readString(key) && expect(':');
}

bool JsonReader::hex4(unsigned& out) {
    if (text_.size() - pos_ < 4) return fail();
    out = 0;
    for (int k = 0; k < 4; ++k) {
        const char c = text_[pos_++];
        const unsigned v = isDigit(c) ? unsigned(c - '0')
                           : (c >= 'a' && c <= 'f') ? unsigned(c - 'a' + 10)
                           : (c >= 'A' && c <= 'F') ? unsigned(c - 'A' + 10)
                                                    : 16u;
        if (v == 16) return fail();
        out = out * 16 + v;
    }
    return true;
}

// After a backslash.
bool JsonReader::escape(std::string& out) {
    if (pos_ >= text_.size()) return fail();
    switch (text_[pos_++]) {
        case '"': out += '"'; return true;
        case '\\': out += '\\'; return true;
        case '/': out += '/'; return true;
        case 'b': out += '\b'; return true;
        case 'f': out += '\f'; return true;
        case 'n': out += '\n'; return true;
        case 'r': out += '\r'; return true;
        case 't': out += '\t'; return true;
        case 'u': break;
        default: return fail();
    }
    unsigned cp = 0;
    if (!hex4(cp)) return false;
    if (cp >= 0xDC00 && cp <= 0xDFFF) return fail();
    if (cp >= 0xD800 && cp <= 0xDBFF) {
        unsigned low = 0;
        if (text_.substr(pos_, 2) != "\\u") return fail();
        pos_ += 2;
        if (!hex4(low)) return false;
        if (low < 0xDC00 || low > 0xDFFF) return fail();
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
    }
    appendUtf8(out, static_cast<char32_t>(cp));
    return true;
}

bool JsonReader::readString(std::string& out) {
    out.clear();
    if (!expect('"')) return false;
    for (;;) {
        const std::size_t start = pos_;
        std::uint64_t high = 0;  // any byte above ASCII: only then is the run checked for UTF-8
        pos_ = jsonscan::special(text_, pos_, high);
        const std::string_view run = text_.substr(start, pos_ - start);
        if (pos_ >= text_.size() || ((high & jsonscan::highs) != 0 && !isValidUtf8(run))) return fail();
        out.append(run);
        const char c = text_[pos_++];
        if (c == '"') return true;
        if (c != '\\' || !escape(out)) return fail();
    }
}

bool JsonReader::readNumber(Number& out) {
    if (peek() != Kind::number) return fail();
    const std::size_t start = pos_;
    const bool negative = text_[pos_] == '-';
    if (negative) ++pos_;
    auto digits = [&] {
        const std::size_t from = pos_;
        while (pos_ < text_.size() && isDigit(text_[pos_])) ++pos_;
        return pos_ - from;
    };
    if (pos_ >= text_.size() || !isDigit(text_[pos_])) return fail();
    if (text_[pos_] == '0') {
        ++pos_;
    } else {
        digits();
    }
    bool integer = true;
    if (pos_ < text_.size() && text_[pos_] == '.') {
        ++pos_;
        integer = false;
        if (digits() == 0) return fail();
    }
    if (pos_ < text_.size() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
        ++pos_;
        integer = false;
        if (pos_ < text_.size() && (text_[pos_] == '+' || text_[pos_] == '-')) ++pos_;
        if (digits() == 0) return fail();
    }
    const char* first = text_.data() + start;
    const char* last = text_.data() + pos_;
    if (integer && negative && std::from_chars(first, last, out.i).ec == std::errc()) {
        out.type = Number::Type::signedInteger;
        return true;
    }
    if (integer && !negative && std::from_chars(first, last, out.u).ec == std::errc()) {
        out.type = Number::Type::unsignedInteger;
        return true;
    }
    out.type = Number::Type::floating;
    const auto [end, ec] = std::from_chars(first, last, out.d);
    // Too small to tell from zero reads as what strtod gives (0 or a subnormal); too big fails.
    if (ec == std::errc::result_out_of_range) out.d = std::strtod(std::string(first, last).c_str(), nullptr);
    if ((ec != std::errc() && ec != std::errc::result_out_of_range) || end != last || !std::isfinite(out.d)) return fail();
    return true;
}

bool JsonReader::literal(std::string_view word) {
    if (failed_) return false;
    skipSpace();
    if (text_.substr(pos_, word.size()) != word) return fail();
    pos_ += word.size();
    return true;
}

bool JsonReader::readBoolean(bool& out) {
    if (peek() != Kind::boolean) return fail();
    out = text_[pos_] == 't';
    return literal(out ? "true" : "false");
}

bool JsonReader::readNull() { return literal("null"); }

bool JsonReader::skip() {
    std::string scratch;
    Number n;
    bool b = false;
    switch (peek()) {
        case Kind::null: return readNull();
        case Kind::boolean: return readBoolean(b);
        case Kind::number: return readNumber(n);
        case Kind::string: return readString(scratch);
        case Kind::array:
            if (first_.size() >= static_cast<std::size_t>(nesting::maxDepth) || !beginArray()) return fail();
            while (nextElement()) {
                if (!skip()) return false;
            }
            return !failed_;
        case Kind::object:
            if (first_.size() >= static_cast<std::size_t>(nesting::maxDepth) || !beginObject()) return fail();
            while (nextKey(scratch)) {
                if (!skip()) return false;
            }
            return !failed_;
        case Kind::invalid: return fail();
    }
    return fail();
}

bool JsonReader::atEnd() {
    if (failed_) return false;
    skipSpace();
    return pos_ == text_.size();
}

}  // namespace quorv
