#include "kit/developer/Simulators.hpp"

#include <algorithm>
#include <cstdint>

#include "kit/developer/ToolText.hpp"
#include "support/host/Calendar.hpp"

namespace brimstell {

namespace {

using json = nlohmann::json;

using ToolText::textOf;

// Newer simctl writes "isAvailable"; older only "availability": "(available)" or
// "(unavailable, runtime profile not found)".
bool available(const json& device) {
    if (const auto it = device.find("isAvailable"); it != device.end() && it->is_boolean()) return it->get<bool>();
    const std::string availability = textOf(device, "availability");
    return availability.find("unavailable") == std::string::npos;
}

std::optional<SimDevice> device(const json& d, const std::string& runtime) {
    if (!d.is_object()) return std::nullopt;
    SimDevice s;
    s.udid = textOf(d, "udid");
    s.name = textOf(d, "name");
    if (s.udid.empty() || s.name.empty()) return std::nullopt;
    s.isAvailable = available(d);
    if (const auto size = d.find("dataPathSize"); size != d.end() && size->is_number_unsigned()) {
        s.dataPathSize = static_cast<std::int64_t>(std::min<std::uint64_t>(size->get<std::uint64_t>(), INT64_MAX));
    }
    s.lastBootedAt = quorv::Calendar::parseIso(textOf(d, "lastBootedAt")).value_or(0);
    s.runtime = runtime;
    return s;
}

}  // namespace

std::optional<std::string> Simulators::xcrun() { return DeveloperTools::firstPresent({"/usr/bin/xcrun"}); }

std::optional<std::string> Simulators::xcodeSelect() { return DeveloperTools::firstPresent({"/usr/bin/xcode-select"}); }

bool Simulators::xcodePresent() {
    const auto program = xcodeSelect();
    if (!program || !xcrun()) return false;
    const auto r = DeveloperTools::run(*program, {"-p"}, {}, defaultTimeout);
    return r.ok && r.output.find(".app/Contents/Developer") != std::string::npos;
}

ToolRun Simulators::simctl(const std::vector<std::string>& arguments, double timeout) {
    const auto program = xcrun();
    if (!program) return {};
    std::vector<std::string> all{"simctl"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return DeveloperTools::run(*program, all, {}, timeout);
}

std::vector<SimDevice> Simulators::parseDevices(std::string_view answer) {
    std::vector<SimDevice> devices;
    const json j = ToolText::parseJson(answer);
    if (!j.is_object()) return devices;
    const auto byRuntime = j.find("devices");
    if (byRuntime == j.end() || !byRuntime->is_object()) return devices;
    for (const auto& [key, list] : byRuntime->items()) {
        if (!list.is_array()) continue;
        const std::string runtime = runtimeName(key);
        for (const auto& d : list) {
            if (auto s = device(d, runtime)) devices.push_back(std::move(*s));
        }
    }
    return devices;
}

std::string Simulators::runtimeName(std::string_view key) {
    constexpr std::string_view prefix = "com.apple.CoreSimulator.SimRuntime.";
    if (!key.starts_with(prefix)) return std::string(key);
    std::string name(key.substr(prefix.size()));
    const auto dash = name.find('-');
    if (dash == std::string::npos) return name;
    name[dash] = ' ';
    for (auto i = name.find('-', dash); i != std::string::npos; i = name.find('-', i)) name[i] = '.';
    return name;
}

bool Simulators::validIdentifier(std::string_view identifier) {
    if (identifier.size() != 36) return false;
    for (const char c : identifier) {
        const bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (!hex && c != '-') return false;
    }
    return true;
}

}  // namespace brimstell
