#include "kit/developer/SimRuntime.hpp"

#include "kit/developer/Simulators.hpp"
#include <algorithm>
#include <cstdint>

#include "kit/developer/ToolText.hpp"
#include "support/host/Calendar.hpp"

namespace brimstell {

namespace {

using json = nlohmann::json;

using ToolText::textOf;

// An entry of `simctl runtime list --json`. Its size is read from "sizeBytes", which Xcode
// writes for every runtime image it manages; without it the size stays 0.
std::optional<SimRuntime> imageRuntime(const std::string& key, const json& entry) {
    if (!entry.is_object()) return std::nullopt;
    SimRuntime r;
    r.identifier = textOf(entry, "identifier");
    if (r.identifier.empty()) r.identifier = key;
    r.platform = SimRuntime::platformName(textOf(entry, "platformIdentifier"));
    r.version = textOf(entry, "version");
    if (r.platform.empty() || r.version.empty()) return std::nullopt;
    if (const auto size = entry.find("sizeBytes"); size != entry.end() && size->is_number_unsigned()) {
        r.bytes = static_cast<std::int64_t>(std::min<std::uint64_t>(size->get<std::uint64_t>(), INT64_MAX));
    }
    r.lastUsedAt = quorv::Calendar::parseIso(textOf(entry, "lastUsedAt")).value_or(0);
    const auto deletable = entry.find("deletable");
    r.deletable = deletable != entry.end() && deletable->is_boolean() && deletable->get<bool>() &&
                  Simulators::validIdentifier(r.identifier);
    return r;
}

// An entry of the older `simctl list -j runtimes`: shown, never deleted from here.
std::optional<SimRuntime> listedRuntime(const json& entry) {
    if (!entry.is_object()) return std::nullopt;
    SimRuntime r;
    r.identifier = textOf(entry, "identifier");
    r.platform = textOf(entry, "platform");
    r.version = textOf(entry, "version");
    if (r.identifier.empty() || r.platform.empty() || r.version.empty()) return std::nullopt;
    return r;
}

}  // namespace

std::vector<SimRuntime> SimRuntime::parse(std::string_view answer) {
    std::vector<SimRuntime> runtimes;
    const json j = ToolText::parseJson(answer);
    if (!j.is_object()) return runtimes;
    if (const auto list = j.find("runtimes"); list != j.end() && list->is_array()) {
        for (const auto& entry : *list) {
            if (auto r = listedRuntime(entry)) runtimes.push_back(std::move(*r));
        }
        return runtimes;
    }
    for (const auto& [key, entry] : j.items()) {
        if (auto r = imageRuntime(key, entry)) runtimes.push_back(std::move(*r));
    }
    return runtimes;
}

std::string SimRuntime::platformName(std::string_view platformIdentifier) {
    constexpr std::string_view prefix = "com.apple.platform.";
    if (!platformIdentifier.starts_with(prefix)) return "";
    const auto platform = platformIdentifier.substr(prefix.size());
    if (platform == "iphonesimulator") return "iOS";
    if (platform == "watchsimulator") return "watchOS";
    if (platform == "appletvsimulator") return "tvOS";
    if (platform == "xrsimulator") return "visionOS";
    return "";
}

}  // namespace brimstell
