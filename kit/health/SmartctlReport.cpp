#include "kit/health/SmartctlReport.hpp"

#include <cmath>

#include <nlohmann/json.hpp>

#include "support/text/Nesting.hpp"

namespace brimstell {

namespace {

using nlohmann::json;

std::optional<json> document(std::string_view text) {
    if (!quorv::nesting::jsonWithin(text)) return std::nullopt;
    json j = json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object()) return std::nullopt;
    return j;
}

const json* member(const json& j, const char* key) {
    if (!j.is_object()) return nullptr;
    const auto it = j.find(key);
    return it == j.end() ? nullptr : &*it;
}

std::uint64_t counter(const json& log, const char* key) {
    const json* v = member(log, key);
    if (!v || !v->is_number()) return 0;
    if (v->is_number_unsigned()) return v->get<std::uint64_t>();
    const double d = v->get<double>();
    return d > 0 && d < 1.8e19 ? static_cast<std::uint64_t>(d) : 0;
}

std::uint8_t percent(const json& log, const char* key) {
    const std::uint64_t v = counter(log, key);
    return static_cast<std::uint8_t>(v > 255 ? 255 : v);
}

NVMeLog wearOf(const json& log) {
    NVMeLog w;
    w.criticalWarning = percent(log, "critical_warning");
    w.spare = percent(log, "available_spare");
    w.spareThreshold = percent(log, "available_spare_threshold");
    w.percentUsed = percent(log, "percentage_used");
    w.bytesRead = static_cast<double>(counter(log, "data_units_read")) * NVMeLog::dataUnitBytes;
    w.bytesWritten = static_cast<double>(counter(log, "data_units_written")) * NVMeLog::dataUnitBytes;
    w.powerOnHours = counter(log, "power_on_hours");
    w.unsafeShutdowns = counter(log, "unsafe_shutdowns");
    w.mediaErrors = counter(log, "media_errors");
    return w;
}

std::int64_t sizeOf(const json& j) {
    if (const json* cap = member(j, "user_capacity")) {
        if (const json* b = member(*cap, "bytes"); b && b->is_number_integer()) return b->get<std::int64_t>();
    }
    if (const json* t = member(j, "nvme_total_capacity"); t && t->is_number_integer()) return t->get<std::int64_t>();
    return 0;
}

}  // namespace

// The verdict is put in the words the Mac's disk tool uses, "Verified" and "Failing", so that the
// alert, the widget and the command read the same on both systems.
std::optional<DiskHealth> SmartctlReport::parse(std::string_view text) {
    const auto j = document(text);
    if (!j) return std::nullopt;
    const json* device = member(*j, "device");
    if (!device || !device->is_object()) return std::nullopt;
    DiskHealth d;
    if (const json* m = member(*j, "model_name"); m && m->is_string() && !m->get<std::string>().empty()) {
        d.name = m->get<std::string>();
    }
    d.size = std::max<std::int64_t>(sizeOf(*j), 0);
    if (const json* s = member(*j, "smart_status")) {
        if (const json* passed = member(*s, "passed"); passed && passed->is_boolean()) {
            d.smart = passed->get<bool>() ? "Verified" : "Failing";
        }
    }
    const json* protocol = member(*device, "protocol");
    const bool nvme = protocol && protocol->is_string() && protocol->get<std::string>() == "NVMe";
    const json* rotation = member(*j, "rotation_rate");
    d.solidState = nvme || (rotation && rotation->is_number() && rotation->get<double>() == 0);
    if (const json* log = member(*j, "nvme_smart_health_information_log"); log && log->is_object()) d.wear = wearOf(*log);
    return d;
}

std::string SmartctlReport::problem(std::string_view text) {
    const auto j = document(text);
    if (!j) return {};
    const json* tool = member(*j, "smartctl");
    const json* messages = tool ? member(*tool, "messages") : nullptr;
    std::string out;
    if (!messages || !messages->is_array()) return out;
    for (const auto& m : *messages) {
        const json* severity = member(m, "severity");
        const json* s = member(m, "string");
        if (!s || !s->is_string() || !severity || *severity != "error") continue;
        out += (out.empty() ? "" : "; ") + s->get<std::string>();
    }
    return out;
}

}  // namespace brimstell
