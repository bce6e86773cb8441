#include "support/host/Calendar.hpp"

#include <cmath>
#include <ctime>

#include <fmt/format.h>

namespace quorv {
namespace {

// Times further than this from 1970 (some 30 million years) are no dates anyone keeps; they are
// refused before the conversion to time_t, which could overflow.
constexpr double furthest = 1e15;

bool split(const Calendar& c, double t, std::tm& out) {
    if (!(std::fabs(t) < furthest)) return false;
    const auto secs = static_cast<std::time_t>(std::floor(t));
    return c.utc ? gmtime_r(&secs, &out) != nullptr : localtime_r(&secs, &out) != nullptr;
}

std::optional<double> join(const Calendar& c, std::tm tm, double fraction) {
    tm.tm_isdst = -1;
    const std::time_t secs = c.utc ? timegm(&tm) : std::mktime(&tm);
    if (secs == static_cast<std::time_t>(-1) && !(tm.tm_year == 69 && tm.tm_mon == 11 && tm.tm_mday == 31)) {
        return std::nullopt;
    }
    return static_cast<double>(secs) + fraction;
}

int daysInMonth(int year, int month0) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const int y = year + 1900;
    const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    return month0 == 1 && leap ? 29 : days[month0];
}

}  // namespace

std::optional<double> Calendar::addDays(double t, int n) const {
    std::tm tm{};
    if (!std::isfinite(t) || !split(*this, t, tm)) return std::nullopt;
    tm.tm_mday += n;
    return join(*this, tm, t - std::floor(t));
}

std::optional<double> Calendar::addMonths(double t, int n) const {
    std::tm tm{};
    if (!std::isfinite(t) || !split(*this, t, tm)) return std::nullopt;
    int month = tm.tm_mon + n;
    int year = tm.tm_year + month / 12;
    month %= 12;
    if (month < 0) {
        month += 12;
        year -= 1;
    }
    tm.tm_year = year;
    tm.tm_mon = month;
    if (tm.tm_mday > daysInMonth(year, month)) tm.tm_mday = daysInMonth(year, month);
    return join(*this, tm, t - std::floor(t));
}

double Calendar::startOfDay(double t) const {
    std::tm tm{};
    if (!std::isfinite(t) || !split(*this, t, tm)) return t;
    tm.tm_hour = 0;
    tm.tm_min = 0;
    tm.tm_sec = 0;
    return join(*this, tm, 0).value_or(t);
}

bool Calendar::sameDay(double a, double b) const {
    std::tm ta{}, tb{};
    if (!split(*this, a, ta) || !split(*this, b, tb)) return false;
    return ta.tm_year == tb.tm_year && ta.tm_yday == tb.tm_yday;
}

std::string Calendar::shortText(double t) const {
    std::tm tm{};
    if (!std::isfinite(t) || !split(*this, t, tm)) return "?";
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                       tm.tm_hour, tm.tm_min);
}

std::string Calendar::isoText(double t) const {
    std::tm tm{};
    if (!std::isfinite(t) || !split(*this, t, tm)) return "?";
    const long off = utc ? 0 : tm.tm_gmtoff;
    const long offAbs = off < 0 ? -off : off;
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}{:02}:{:02}", tm.tm_year + 1900, tm.tm_mon + 1,
                       tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, off < 0 ? '-' : '+', offAbs / 3600,
                       (offAbs % 3600) / 60);
}

std::string Calendar::monthText(double t) const {
    static const char* const names[] = {"January", "February", "March", "April", "May", "June",
                                        "July", "August", "September", "October", "November", "December"};
    std::tm tm{};
    if (!std::isfinite(t) || !split(*this, t, tm)) return "?";
    return fmt::format("{} {}", names[tm.tm_mon], tm.tm_year + 1900);
}

namespace {

// The digits of text[from, from + n) as a number; -1 when any is not a digit.
int digits(std::string_view text, std::size_t from, std::size_t n) {
    if (from + n > text.size()) return -1;
    int v = 0;
    for (std::size_t i = from; i < from + n; ++i) {
        if (text[i] < '0' || text[i] > '9') return -1;
        v = v * 10 + (text[i] - '0');
    }
    return v;
}

}  // namespace

std::optional<double> Calendar::parseIso(std::string_view text) {
    if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':') {
        return std::nullopt;
    }
    const int fields[] = {digits(text, 0, 4), digits(text, 5, 2), digits(text, 8, 2),
                          digits(text, 11, 2), digits(text, 14, 2), digits(text, 17, 2)};
    for (int f : fields) {
        if (f < 0) return std::nullopt;
    }
    if (fields[1] < 1 || fields[1] > 12 || fields[2] < 1 || fields[2] > daysInMonth(fields[0] - 1900, fields[1] - 1) ||
        fields[3] > 23 || fields[4] > 59 || fields[5] > 60) {
        return std::nullopt;
    }
    long offset = 0;
    const std::string_view zone = text.substr(19);
    if (zone != "Z") {
        const int h = digits(zone, 1, 2);
        const int m = digits(zone, 4, 2);
        if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') || zone[3] != ':' || h < 0 || h > 23 || m < 0 || m > 59) {
            return std::nullopt;
        }
        offset = (h * 3600L + m * 60L) * (zone[0] == '-' ? -1 : 1);
    }
    std::tm tm{};
    tm.tm_year = fields[0] - 1900;
    tm.tm_mon = fields[1] - 1;
    tm.tm_mday = fields[2];
    tm.tm_hour = fields[3];
    tm.tm_min = fields[4];
    tm.tm_sec = fields[5];
    return static_cast<double>(timegm(&tm) - offset);
}

}  // namespace quorv
