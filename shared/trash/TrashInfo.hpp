#pragma once
// The .trashinfo files of a freedesktop.org Trash, and the texts that both Trash backends and the
// root helper keep: paths percent-encoded byte by byte, dates as wall-clock time of the local zone.

#include <optional>
#include <string>
#include <string_view>

#include "support/host/Calendar.hpp"

namespace brimstell {

struct TrashInfo {
    std::optional<std::string> path;  // decoded; relative paths are left as they stand
    std::optional<double> deletionDate;

    // Every byte outside A-Z a-z 0-9 - . _ ~ and "/" as %XX (upper-case hex), so line feeds, tabs,
    // "%" and bytes that are not UTF-8 survive one line of text.
    static std::string percentEncode(std::string_view bytes);
    // The inverse; nullopt for a "%" not followed by two hex digits.
    static std::optional<std::string> percentDecode(std::string_view text);

    // "2026-09-21T19:43:20": seconds since 1970 as wall-clock time in the calendar's zone (the
    // process's local zone unless the calendar is UTC), no zone written.
    static std::string dateText(double t, const quorv::Calendar& calendar);
    // The inverse; nullopt unless the text is exactly YYYY-MM-DDThh:mm:ss (a fraction of a second
    // after it is ignored) and names a real time.
    static std::optional<double> parseDate(std::string_view text, const quorv::Calendar& calendar);

    // The whole file: "[Trash Info]\nPath=<encoded>\nDeletionDate=<date>\n".
    static std::string format(std::string_view path, double deletionDate, const quorv::Calendar& calendar);
    // Path and DeletionDate of the [Trash Info] group; a missing or broken value stays absent.
    static TrashInfo parse(std::string_view text, const quorv::Calendar& calendar);
};

}  // namespace brimstell
