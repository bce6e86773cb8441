#include "shared/widget/WidgetSnapshot.hpp"

#include <nlohmann/json.hpp>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/text/Nesting.hpp"

namespace brimstell {

std::optional<std::string> WidgetSnapshot::container() {
    const auto& h = quorv::host();
    if (h.home.empty()) return std::nullopt;
    return h.groupContainer(group);
}

std::string WidgetSnapshot::json() const {
    nlohmann::ordered_json j;
    j["junk"] = junk;
    if (lastClean) j["lastClean"] = *lastClean;
    j["lastFreed"] = lastFreed;
    if (batteryHealth) j["batteryHealth"] = *batteryHealth;
    if (diskStatus) j["diskStatus"] = *diskStatus;
    j["diskFailing"] = diskFailing;
    j["updated"] = updated;
    // Replace rather than throw on text that isn't UTF-8 (a status read from a tool).
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<WidgetSnapshot> WidgetSnapshot::fromJson(const std::string& text) {
    if (!quorv::nesting::jsonWithin(text)) return std::nullopt;
    auto j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object()) return std::nullopt;
    WidgetSnapshot s;
    try {
        s.junk = j.at("junk").get<std::int64_t>();
        s.lastFreed = j.at("lastFreed").get<std::int64_t>();
        s.diskFailing = j.at("diskFailing").get<bool>();
        s.updated = j.at("updated").get<double>();
        if (j.contains("lastClean")) s.lastClean = j["lastClean"].get<double>();
        if (j.contains("batteryHealth")) s.batteryHealth = j["batteryHealth"].get<double>();
        if (j.contains("diskStatus")) s.diskStatus = j["diskStatus"].get<std::string>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
    return s;
}

bool WidgetSnapshot::write(const std::string& containerPath) const {
    if (!quorv::files::makeFolders(containerPath, 0755)) return false;
    return quorv::files::writeAtomically(containerPath + "/" + fileName, json(), 0644);
}

std::optional<WidgetSnapshot> WidgetSnapshot::read(const std::string& containerPath) {
    auto text = quorv::files::read(containerPath + "/" + fileName, 1 << 20);
    if (!text) return std::nullopt;
    return fromJson(*text);
}

}  // namespace brimstell
