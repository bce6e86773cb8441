#include "support/plist/Plist.hpp"

#include "support/plist/PlistLibrary.hpp"

#include <cmath>
#include <cstdlib>
#include <memory>

#include "support/plist/PlistNesting.hpp"
#include "support/posix/Files.hpp"

namespace quorv::plist {
namespace {

// Property lists count dates from 2001-01-01.
constexpr double kEpoch2001 = 978307200.0;

struct Freer {
    void operator()(void* p) const { library().plist_free(static_cast<plist_t>(p)); }
};
using Node = std::unique_ptr<void, Freer>;

std::optional<Value> fromNode(plist_t node, int depth, bool& tooDeep);

// The plain values: a Boolean, a number, a string, a date, data.
std::optional<Value> fromScalar(plist_t node, plist_type type) {
    const auto& lib = library();
    switch (type) {
        case PLIST_BOOLEAN: {
            uint8_t b = 0;
            lib.plist_get_bool_val(node, &b);
            return Value(b != 0);
        }
        case PLIST_UINT: {
            uint64_t u = 0;
            lib.plist_get_uint_val(node, &u);
            return Value(static_cast<std::int64_t>(u));
        }
        case PLIST_REAL: {
            double d = 0;
            lib.plist_get_real_val(node, &d);
            return Value(d);
        }
        case PLIST_STRING: {
            char* s = nullptr;
            lib.plist_get_string_val(node, &s);
            std::string out = s ? s : "";
            std::free(s);
            return Value(std::move(out));
        }
        case PLIST_DATE: {
            int32_t sec = 0, usec = 0;
            lib.plist_get_date_val(node, &sec, &usec);
            return Value(Date{kEpoch2001 + sec + usec / 1e6});
        }
        case PLIST_DATA: {
            char* d = nullptr;
            uint64_t len = 0;
            lib.plist_get_data_val(node, &d, &len);
            Value::Data data(reinterpret_cast<uint8_t*>(d), reinterpret_cast<uint8_t*>(d) + (d ? len : 0));
            std::free(d);
            return Value(std::move(data));
        }
        default: return std::nullopt;
    }
}

Value fromArray(plist_t node, int depth, bool& tooDeep) {
    Value::Array a;
    const uint32_t n = library().plist_array_get_size(node);
    for (uint32_t i = 0; i < n; ++i) {
        auto item = fromNode(library().plist_array_get_item(node, i), depth + 1, tooDeep);
        if (item) a.push_back(std::move(*item));
    }
    return Value(std::move(a));
}

Value fromDict(plist_t node, int depth, bool& tooDeep) {
    Value::Dict d;
    plist_dict_iter it = nullptr;
    library().plist_dict_new_iter(node, &it);
    for (;;) {
        char* key = nullptr;
        plist_t val = nullptr;
        library().plist_dict_next_item(node, it, &key, &val);
        if (!val) {
            std::free(key);
            break;
        }
        auto item = fromNode(val, depth + 1, tooDeep);
        if (item && key) d.emplace_back(key, std::move(*item));
        std::free(key);
    }
    std::free(it);
    return Value(std::move(d));
}

// depth counts the containers around node; a container deeper than nesting::maxDepth sets tooDeep,
// which fails the whole parse rather than dropping the part quietly.
std::optional<Value> fromNode(plist_t node, int depth, bool& tooDeep) {
    if (!node) return std::nullopt;
    const auto type = library().plist_get_node_type(node);
    if ((type == PLIST_ARRAY || type == PLIST_DICT) && depth >= nesting::maxDepth) {
        tooDeep = true;
        return std::nullopt;
    }
    if (type == PLIST_ARRAY) return fromArray(node, depth, tooDeep);
    if (type == PLIST_DICT) return fromDict(node, depth, tooDeep);
    return fromScalar(node, type);
}

plist_t toNode(const Value& v) {
    struct Visitor {
        plist_t operator()(bool b) const { return library().plist_new_bool(b ? 1 : 0); }
        plist_t operator()(std::int64_t i) const { return library().plist_new_uint(static_cast<uint64_t>(i)); }
        plist_t operator()(double d) const { return library().plist_new_real(d); }
        plist_t operator()(const std::string& s) const { return library().plist_new_string(s.c_str()); }
        plist_t operator()(const Date& d) const {
            const double rel = d.since1970 - kEpoch2001;
            double whole = std::floor(rel);
            int32_t usec = static_cast<int32_t>(std::lround((rel - whole) * 1e6));
            if (usec >= 1000000) {
                whole += 1;
                usec -= 1000000;
            }
            return library().plist_new_date(static_cast<int32_t>(whole), usec);
        }
        plist_t operator()(const Value::Data& d) const {
            return library().plist_new_data(reinterpret_cast<const char*>(d.data()), d.size());
        }
        plist_t operator()(const Value::Array& a) const {
            plist_t node = library().plist_new_array();
            for (const auto& item : a) library().plist_array_append_item(node, toNode(item));
            return node;
        }
        plist_t operator()(const Value::Dict& d) const {
            plist_t node = library().plist_new_dict();
            for (const auto& [k, item] : d) library().plist_dict_set_item(node, k.c_str(), toNode(item));
            return node;
        }
    };
    return std::visit(Visitor{}, v.storage);
}

}  // namespace

std::optional<Value> parse(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > UINT32_MAX) return std::nullopt;
    // libplist recurses once per level while parsing and freeing: measure before it looks.
    if (!nestingWithin(bytes)) return std::nullopt;
    plist_t root = nullptr;
    library().plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    if (!root) return std::nullopt;
    Node owner(root);
    bool tooDeep = false;
    auto value = fromNode(root, 0, tooDeep);
    if (tooDeep) return std::nullopt;
    return value;
}

std::optional<Value> readFile(const std::string& path) {
    auto bytes = files::read(path);
    if (!bytes) return std::nullopt;
    return parse(*bytes);
}

std::string toXml(const Value& value) {
    Node node(toNode(value));
    char* xml = nullptr;
    uint32_t len = 0;
    library().plist_to_xml(node.get(), &xml, &len);
    std::string out = xml ? std::string(xml, len) : std::string();
    std::free(xml);
    return out;
}

std::string toBinary(const Value& value) {
    Node node(toNode(value));
    char* bin = nullptr;
    uint32_t len = 0;
    library().plist_to_bin(node.get(), &bin, &len);
    std::string out = bin ? std::string(bin, len) : std::string();
    std::free(bin);
    return out;
}

const Value* find(const Value& v, std::string_view key) {
    const Value::Dict* d = v.get<Value::Dict>();
    if (!d) return nullptr;
    for (const auto& [k, item] : *d) {
        if (k == key) return &item;
    }
    return nullptr;
}

}  // namespace quorv::plist
