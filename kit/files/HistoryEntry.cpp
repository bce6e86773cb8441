#include "kit/files/HistoryEntry.hpp"

#include <array>
#include <cmath>
#include <limits>

#include "support/text/Utf8.hpp"

namespace brimstell {

using Json = nlohmann::ordered_json;

namespace {

void putPath(Json& j, const char* key, const std::string& path) {
    j[key] = quorv::isValidUtf8(path) ? path : quorv::validUtf8(path);
}

void putBytes(Json& j, const char* key, const std::optional<std::string>& path) {
    if (path && !quorv::isValidUtf8(*path)) j[key] = quorv::base64Encode(*path);
}

// A path under key, preferring its exact bytes under bytesKey. False when present but not a string.
bool getPath(const Json& j, const char* key, const char* bytesKey, std::optional<std::string>& out) {
    const auto it = j.find(key);
    if (it == j.end() || it->is_null()) {
        out.reset();
        return true;
    }
    if (!it->is_string()) return false;
    out = it->get<std::string>();
    const auto bytes = j.find(bytesKey);
    if (bytes != j.end()) {
        std::string decoded;
        if (!bytes->is_string() || !quorv::base64Decode(bytes->get_ref<const std::string&>(), decoded)) return false;
        out = std::move(decoded);
    }
    return true;
}

bool getOptionalString(const Json& j, const char* key, std::optional<std::string>& out) {
    const auto it = j.find(key);
    if (it == j.end() || it->is_null()) return true;
    if (!it->is_string()) return false;
    out = it->get<std::string>();
    return true;
}

}  // namespace

bool isUuid(std::string_view s) {
    // Read for two ids of every entry of the history: one table lookup a character.
    static constexpr auto hex = [] {
        std::array<bool, 256> t{};
        for (const char c : std::string_view("0123456789abcdefABCDEF")) t[static_cast<unsigned char>(c)] = true;
        return t;
    }();
    if (s.size() != 36 || s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-') return false;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (!hex[static_cast<unsigned char>(s[i])] && i != 8 && i != 13 && i != 18 && i != 23) return false;
    }
    return true;
}

Json HistoryEntry::toJson() const {
    Json j = Json::object();
    j["id"] = id;
    putPath(j, "original", original);
    if (trashed) putPath(j, "trashed", *trashed);
    j["size"] = size;
    j["date"] = date;
    j["session"] = session;
    if (source) j["source"] = quorv::validUtf8(*source);
    if (restoredTo) putPath(j, "restored", *restoredTo);
    if (fileID) j["fileID"] = Json{{"volume", fileID->volume}, {"file", fileID->file}};
    if (root) j["root"] = *root;
    putBytes(j, "originalBytes", original);
    putBytes(j, "trashedBytes", trashed);
    putBytes(j, "restoredBytes", restoredTo);
    return j;
}

std::optional<HistoryEntry> HistoryEntry::fromJson(const Json& j) {
    if (!j.is_object()) return std::nullopt;
    HistoryEntry e;

    const auto id = j.find("id");
    const auto session = j.find("session");
    if (id == j.end() || !id->is_string() || !isUuid(id->get_ref<const std::string&>())) return std::nullopt;
    if (session == j.end() || !session->is_string() || !isUuid(session->get_ref<const std::string&>())) return std::nullopt;
    e.id = id->get<std::string>();
    e.session = session->get<std::string>();

    std::optional<std::string> original;
    if (!getPath(j, "original", "originalBytes", original) || !original) return std::nullopt;
    e.original = std::move(*original);
    if (!getPath(j, "trashed", "trashedBytes", e.trashed)) return std::nullopt;
    if (!getPath(j, "restored", "restoredBytes", e.restoredTo)) return std::nullopt;
    if (!getOptionalString(j, "source", e.source)) return std::nullopt;

    const auto size = j.find("size");
    if (size == j.end()) return std::nullopt;
    if (size->is_number_unsigned()) {
        const auto u = size->get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
        e.size = static_cast<std::int64_t>(u);
    } else if (size->is_number_integer()) {
        e.size = size->get<std::int64_t>();
    } else {
        return std::nullopt;
    }

    const auto date = j.find("date");
    if (date == j.end() || !date->is_number()) return std::nullopt;
    e.date = date->get<double>();
    if (!std::isfinite(e.date)) return std::nullopt;

    if (const auto f = j.find("fileID"); f != j.end() && !f->is_null()) {
        const auto volume = f->find("volume");
        const auto file = f->find("file");
        if (!f->is_object() || volume == f->end() || file == f->end() || !volume->is_number_integer() ||
            !file->is_number_integer() || (!file->is_number_unsigned() && file->get<std::int64_t>() < 0)) {
            return std::nullopt;
        }
        if (volume->is_number_unsigned() &&
            volume->get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        e.fileID = FileID{volume->get<std::int64_t>(), file->get<std::uint64_t>()};
    }

    if (const auto r = j.find("root"); r != j.end() && !r->is_null()) {
        if (!r->is_boolean()) return std::nullopt;
        e.root = r->get<bool>();
    }
    return e;
}

}  // namespace brimstell
