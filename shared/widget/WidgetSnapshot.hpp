#pragma once
// The figures the home-screen widget shows, left for it in the app group's container.

#include <cstdint>
#include <optional>
#include <string>

namespace brimstell {

struct WidgetSnapshot {
    std::int64_t junk = 0;                  // bytes a clean-up of the default rules would free
    std::optional<double> lastClean;        // seconds since 1970
    std::int64_t lastFreed = 0;
    std::optional<double> batteryHealth;    // 1.0 = as new
    std::optional<std::string> diskStatus;  // the SMART status text
    bool diskFailing = false;
    double updated = 0;                     // seconds since 1970

    static constexpr const char* group = "K3Q8ZT2WMX.com.quorv.brimstell";
    static constexpr const char* fileName = "widget.json";

    // The shared container of the group.
    static std::optional<std::string> container();

    // The JSON object, keys in field order; absent optionals are left out.
    std::string json() const;
    static std::optional<WidgetSnapshot> fromJson(const std::string& text);

    // Creates the container and writes widget.json atomically. False on failure.
    bool write(const std::string& containerPath) const;
    // nullopt when the file is missing or unreadable.
    static std::optional<WidgetSnapshot> read(const std::string& containerPath);
};

}  // namespace brimstell
