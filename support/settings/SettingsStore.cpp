#include "support/settings/SettingsStore.hpp"

#include <cstdlib>
#include <map>
#include <mutex>

#include <fmt/format.h>

#include "support/host/Host.hpp"
#include "support/text/Utf8.hpp"

namespace quorv {
namespace {

// Leading-number parse in the manner of NSString's integerValue / doubleValue.
std::int64_t leadingInteger(const std::string& s) {
    return static_cast<std::int64_t>(std::strtoll(s.c_str(), nullptr, 10));
}
double leadingDouble(const std::string& s) { return std::strtod(s.c_str(), nullptr); }

class EmptyStore final : public SettingsStore {
public:
    std::optional<Value> object(const std::string&) override { return std::nullopt; }
    bool set(const std::string&, const Value&) override { return false; }
    bool remove(const std::string&) override { return false; }
    bool synchronize() override { return false; }
    std::vector<std::string> keys() override { return {}; }
};

}  // namespace

bool isStorableKey(std::string_view key) {
    return !key.empty() && key.find('\0') == std::string_view::npos && isValidUtf8(key);
}

bool SettingsStore::boolean(const std::string& key) {
    auto v = object(key);
    if (!v) return false;
    if (auto b = v->get<bool>()) return *b;
    if (auto i = v->get<std::int64_t>()) return *i != 0;
    if (auto d = v->get<double>()) return *d != 0;
    if (auto s = v->get<std::string>()) {
        if (s->empty()) return false;
        const char c = (*s)[0];
        return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
    }
    return false;
}

bool SettingsStore::unlessFalse(const std::string& key) {
    auto v = object(key);
    if (!v) return true;
    const bool* b = v->get<bool>();
    return !(b && !*b);
}

std::int64_t SettingsStore::integer(const std::string& key) {
    auto v = object(key);
    if (!v) return 0;
    if (auto i = v->get<std::int64_t>()) return *i;
    if (auto d = v->get<double>()) {
        if (!(*d == *d) || *d >= 9.2e18 || *d <= -9.2e18) return 0;
        return static_cast<std::int64_t>(*d);
    }
    if (auto b = v->get<bool>()) return *b ? 1 : 0;
    if (auto s = v->get<std::string>()) return leadingInteger(*s);
    return 0;
}

double SettingsStore::number(const std::string& key) {
    auto v = object(key);
    if (!v) return 0;
    if (auto d = v->get<double>()) return *d;
    if (auto i = v->get<std::int64_t>()) return static_cast<double>(*i);
    if (auto b = v->get<bool>()) return *b ? 1 : 0;
    if (auto s = v->get<std::string>()) return leadingDouble(*s);
    return 0;
}

std::optional<std::string> SettingsStore::string(const std::string& key) {
    auto v = object(key);
    if (!v) return std::nullopt;
    if (auto s = v->get<std::string>()) return *s;
    if (v->is<std::int64_t>() || v->is<double>()) return v->text();
    return std::nullopt;
}

std::optional<std::vector<std::string>> SettingsStore::stringArray(const std::string& key) {
    auto v = object(key);
    if (!v) return std::nullopt;
    return v->stringArray();
}

std::optional<Date> SettingsStore::date(const std::string& key) {
    auto v = object(key);
    if (!v) return std::nullopt;
    if (auto d = v->get<Date>()) return *d;
    return std::nullopt;
}

SettingsStore& settings() {
    const Host& h = host();
    if (h.settings) return *h.settings;
    static EmptyStore empty;
    return empty;
}

}  // namespace quorv
