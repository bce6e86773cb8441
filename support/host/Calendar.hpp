#pragma once
// Calendar arithmetic in the local time zone. Times are seconds since 1970.

#include <optional>
#include <string>
#include <string_view>

namespace quorv {

class Calendar {
public:
    // The process's local zone (TZ), or UTC, which tests use for fixed results. Other zones would
    // need the process-wide TZ switched, which a library must not do behind its callers' backs.
    bool utc = false;

    // t plus n calendar days at the same wall-clock time (DST aware).
    std::optional<double> addDays(double t, int n) const;
    // t plus n months; the day is clamped to the target month's last day (31 Jan + 1 = 28/29 Feb).
    std::optional<double> addMonths(double t, int n) const;
    // t plus n weeks of the year (7 calendar days each).
    std::optional<double> addWeeks(double t, int n) const { return addDays(t, 7 * n); }
    // Midnight at the start of t's local day.
    double startOfDay(double t) const;
    bool sameDay(double a, double b) const;
    // "2026-11-21 14:05" in the local zone.
    std::string shortText(double t) const;
    // ISO 8601 with the zone's offset: "2026-11-21T14:05:00+01:00".
    std::string isoText(double t) const;
    // "March 2027" in the local zone.
    std::string monthText(double t) const;

    // "2026-11-21T14:05:00" with "Z" or an offset ("+01:00") back as a time; nullopt for anything
    // else, a field out of range included.
    static std::optional<double> parseIso(std::string_view text);
};

}  // namespace quorv
