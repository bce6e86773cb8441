#pragma once
// The daily battery history: one point a calendar day, in <appSupport>/health-history.json
// (Library/Application Support/Brimstell on a Mac), so that health can be drawn over time.
//
// The file is a JSON array of {"day", "health", "cycles", "fullCapacity"}, days as ISO 8601 text,
// sorted by day. A change is made under the object's mutex and an flock on health-history.lock
// beside the file, on the points as they stand in the file then, so that the app, the agent and
// the command line can all record on the same day without losing each other's points.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/health/HealthTypes.hpp"
#include "support/host/Calendar.hpp"

namespace brimstell {

struct HealthPoint {
    double day = 0;  // start of the calendar day of the reading, seconds since 1970
    double health = 0;
    std::int64_t cycles = 0;
    std::int64_t fullCapacity = 0;
};

// The file's text, days written in the calendar's zone; and back, nullopt for anything that isn't
// such an array (a point missing a key or holding a key of the wrong type included).
std::string encodeHealthHistory(const std::vector<HealthPoint>& points, const quorv::Calendar& calendar);
std::optional<std::vector<HealthPoint>> decodeHealthHistory(std::string_view text);

class HealthHistory {
public:
    static constexpr std::size_t maxFileBytes = 8u << 20;

    explicit HealthHistory(std::string file);
    HealthHistory(const HealthHistory&) = delete;
    HealthHistory& operator=(const HealthHistory&) = delete;

    // The process's history of the current host: one object per file.
    static HealthHistory& shared();
    // host().appSupport() + "/health-history.json"
    static std::string defaultFile();
    const std::string& file() const { return file_; }

    // The points in the file; a missing, unreadable or undecodable file is an empty history.
    std::vector<HealthPoint> load();
    // True when no point has today's day (now's, in calendar).
    bool due(double now, const quorv::Calendar& calendar);
    // Keeps the reading as now's day's point, replacing one of the same day. False when the file
    // couldn't be written. A file that doesn't decode is set aside first, never written over.
    bool record(const BatteryDetails& battery, double now, const quorv::Calendar& calendar);

private:
    std::optional<std::vector<HealthPoint>> readLocked(bool& undecodable);
    std::string lockPath() const;

    std::mutex mutex_;
    std::string file_;
};

}  // namespace brimstell
