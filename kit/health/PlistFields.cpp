#include "kit/health/PlistFields.hpp"

#include <cmath>

#include "support/plist/Plist.hpp"

namespace brimstell::plistfields {

std::optional<std::int64_t> integer(const quorv::Value& dict, std::string_view key) {
    const quorv::Value* v = quorv::plist::find(dict, key);
    if (!v) return std::nullopt;
    if (const auto* i = v->get<std::int64_t>()) return *i;
    if (const auto* d = v->get<double>(); d && std::isfinite(*d) && std::fabs(*d) < 9e18) {
        return static_cast<std::int64_t>(std::llround(*d));
    }
    return std::nullopt;
}

std::optional<bool> boolean(const quorv::Value& dict, std::string_view key) {
    const quorv::Value* v = quorv::plist::find(dict, key);
    if (!v) return std::nullopt;
    if (const auto* b = v->get<bool>()) return *b;
    if (const auto* i = v->get<std::int64_t>()) return *i != 0;
    return std::nullopt;
}

std::optional<std::string> text(const quorv::Value& dict, std::string_view key) {
    const quorv::Value* v = quorv::plist::find(dict, key);
    if (!v) return std::nullopt;
    if (const auto* s = v->get<std::string>()) return *s;
    return std::nullopt;
}

}  // namespace brimstell::plistfields
