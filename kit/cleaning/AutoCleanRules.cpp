#include "kit/cleaning/AutoCleanRules.hpp"

#include <cmath>

#include "kit/cleaning/JunkCatalogue.hpp"
#include "support/host/Calendar.hpp"

namespace brimstell {

namespace {
constexpr std::string_view frequencyNames[] = {"daily", "weekly", "monthly"};

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
}  // namespace

std::string_view AutoCleanRules::name(Frequency frequency) {
    return frequencyNames[static_cast<int>(frequency)];
}

std::optional<AutoCleanRules::Frequency> AutoCleanRules::frequencyNamed(std::string_view text) {
    for (int i = 0; i < 3; ++i) {
        if (frequencyNames[i] == text) return static_cast<Frequency>(i);
    }
    return std::nullopt;
}

std::optional<double> AutoCleanRules::nextRun(double last, Frequency frequency, const quorv::Calendar& calendar) {
    if (!(last > 0)) return std::nullopt;
    std::optional<double> next;
    switch (frequency) {
        case Frequency::daily: next = calendar.addDays(last, 1); break;
        case Frequency::weekly: next = calendar.addWeeks(last, 1); break;
        case Frequency::monthly: next = calendar.addMonths(last, 1); break;
    }
    return next.value_or(last);
}

bool AutoCleanRules::isPartial(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos) return false;
    const std::string_view extension = name.substr(dot + 1);
    // Longer than any of ours, or empty: not one of them.
    if (extension.empty() || extension.size() > 10) return false;
    std::string folded;
    for (char c : extension) folded += lower(c);
    return partial.contains(folded);
}

std::vector<JunkCategory> AutoCleanRules::defaultJunk(const std::vector<JunkCategory>& categories) {
    std::vector<JunkCategory> kept;
    for (const auto& category : categories) {
        if (category.enabled && !category.admin && category.name != junk::trash) kept.push_back(category);
    }
    return kept;
}

bool AutoCleanRules::isOld(const ItemDates& dates, double cutoff) {
    if (!dates.complete) return false;
    bool any = false;
    for (const auto& date : {dates.added, dates.newestInside, dates.lastUsed}) {
        if (!date) continue;
        if (!std::isfinite(*date) || !(*date < cutoff)) return false;
        any = true;
    }
    return any;
}

}  // namespace brimstell
