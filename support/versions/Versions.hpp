#pragma once
// The order of version texts, used wherever versions are ordered: the newest entry of an update
// feed, whether an update is newer than what is installed, macOS versions.
//
// A version splits into runs of numeric characters and runs of other characters; ".", "-", "_"
// and " " only separate. Runs compare one by one: numbers by value, texts by code point, a number
// outranks a text, and missing trailing zeros don't count, so 1.2 = 1.2.0 and 1.0b < 1.0 < 1.0.1.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorv {

struct Versions {
    // One piece of a version: a number (n), or a text in lower case (s).
    struct Part {
        bool isNumber = false;
        std::int64_t n = 0;
        std::string s{};

        static Part number(std::int64_t value) { return {true, value, {}}; }
        static Part text(std::string value) { return {false, 0, std::move(value)}; }
        bool operator==(const Part&) const = default;
    };
    enum class Order { ascending, same, descending };  // a older, the same, a newer

    static std::vector<Part> parts(std::string_view text);
    static Order compare(std::string_view a, std::string_view b);
    static bool less(std::string_view a, std::string_view b) { return compare(a, b) == Order::ascending; }

    // How many leading characters of a numeric run are read as its number: eighteen decimal
    // digits always fit in 64 bits.
    static constexpr std::size_t numberLength = 18;
};

// The bare version number in a text such as "macOS 14.2.1": the first space-separated word that
// starts with a numeric character; the whole text when there is none.
std::string osNumber(std::string_view text);

}  // namespace quorv
