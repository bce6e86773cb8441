#include "support/settings/Value.hpp"

#include <fmt/format.h>

namespace quorv {

Value Value::strings(const std::vector<std::string>& items) {
    Array a;
    a.reserve(items.size());
    for (const auto& s : items) a.emplace_back(s);
    return Value(std::move(a));
}

std::optional<std::vector<std::string>> Value::stringArray() const {
    const Array* a = get<Array>();
    if (!a) return std::nullopt;
    std::vector<std::string> out;
    out.reserve(a->size());
    for (const auto& v : *a) {
        const std::string* s = v.get<std::string>();
        if (!s) return std::nullopt;
        out.push_back(*s);
    }
    return out;
}

std::string Value::typeName() const {
    static const char* names[] = {"boolean", "integer", "double", "string", "date", "data", "array", "dictionary"};
    return names[storage.index()];
}

namespace {
std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        out += c;
    }
    return out + "\"";
}
}  // namespace

std::string Value::text() const {
    struct Visitor {
        std::string operator()(bool b) const { return b ? "true" : "false"; }
        std::string operator()(std::int64_t i) const { return std::to_string(i); }
        std::string operator()(double d) const { return fmt::format("{}", d); }
        std::string operator()(const std::string& s) const { return s; }
        std::string operator()(const Date& d) const { return fmt::format("{}", d.since1970); }
        std::string operator()(const Data& d) const { return fmt::format("<{} bytes>", d.size()); }
        std::string operator()(const Array& a) const {
            std::string out = "[";
            for (size_t i = 0; i < a.size(); ++i) {
                if (i) out += ", ";
                const std::string* s = a[i].get<std::string>();
                out += s ? quoted(*s) : a[i].text();
            }
            return out + "]";
        }
        std::string operator()(const Dict& d) const {
            std::string out = "{";
            for (size_t i = 0; i < d.size(); ++i) {
                if (i) out += ", ";
                out += quoted(d[i].first) + ": " + d[i].second.text();
            }
            return out + "}";
        }
    };
    return std::visit(Visitor{}, storage);
}

bool Value::operator==(const Value& other) const { return storage == other.storage; }

}  // namespace quorv
