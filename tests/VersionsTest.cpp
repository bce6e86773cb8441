#include <gtest/gtest.h>

#include "support/text/Unicode.hpp"
#include "support/versions/Versions.hpp"

namespace {

using quorv::Versions;
using Order = Versions::Order;

const char* word(Order o) { return o == Order::ascending ? "older" : o == Order::same ? "same" : "newer"; }

// Every pair is also checked the other way round, which must give the mirror answer.
TEST(Versions, Order) {
    const struct {
        const char* a;
        const char* b;
        Order expected;
    } cases[] = {
        {"2.10", "2.9", Order::descending},
        {"2.0", "2.0.0", Order::same},
        {"1.2", "1.2.0.0", Order::same},
        {"3.0-beta2", "3.0", Order::ascending},
        {"1.0 beta", "1.0", Order::ascending},
        {"3.0b2", "3.0b10", Order::ascending},
        {"1.0a", "1.0.1", Order::ascending},
        {"1.0.1", "1.0b", Order::descending},
        {"1.0.0b", "1.0", Order::ascending},
        {"1.0.0.1", "1.0", Order::descending},
        {"1.0RC1", "1.0rc1", Order::same},
        {"1.0ALPHA", "1.0beta", Order::ascending},
        {"1.0B", "1.0a", Order::descending},
        {"", "0", Order::same},
        {"", "0.0", Order::same},
        {"", "1", Order::ascending},
        {"", "a", Order::descending},
        // Separators only: no parts at all.
        {"..--__  ", "", Order::same},
        {"1..2", "1.2", Order::same},
        {"-1", "1", Order::same},
        // Long numeric runs: only the first 18 digits count.
        {"1234567890123456789", "123456789012345678", Order::same},
        {"1234567890123456789", "1234567890123456780", Order::same},
        {"999999999999999999", "999999999999999998", Order::descending},
        {"1.99999999999999999999999999999999", "1.999999999999999999", Order::same},
        // Numeric characters that are not ASCII digits read as 0, and join an ASCII run.
        {"\u0661.\u0662", "0", Order::same},
        {"1\u0663", "1", Order::ascending},
        {"\uFF11\uFF12", "0", Order::same},
        {"2\u00BD", "0", Order::same},
        {"1.\u2167", "1", Order::same},
        // Texts compare by code point, after lower-casing.
        {"1.0\u00E9", "1.0z", Order::descending},
        {"1.0\u00C9", "1.0\u00E9", Order::same},
        {"1.0Z", "1.0a", Order::descending},
        // Bytes that aren't UTF-8 are text.
        {"1.\xFF", "1", Order::ascending},
        {"1.\xFF", "1.\xFE", Order::descending},
        // Real ones.
        {"v0.64.0", "0.64.0", Order::ascending},
        {"2039.1", "2.6.4", Order::descending},
    };
    for (const auto& c : cases) {
        EXPECT_STREQ(word(Versions::compare(c.a, c.b)), word(c.expected)) << c.a << " against " << c.b;
        const Order mirror = c.expected == Order::same ? Order::same
                             : c.expected == Order::ascending ? Order::descending
                                                              : Order::ascending;
        EXPECT_STREQ(word(Versions::compare(c.b, c.a)), word(mirror)) << c.b << " against " << c.a;
        EXPECT_EQ(Versions::less(c.a, c.b), c.expected == Order::ascending) << c.a << " < " << c.b;
    }
}

TEST(Versions, Parts) {
    using P = Versions::Part;
    const struct {
        const char* text;
        std::vector<P> parts;
    } cases[] = {
        {"1.2b3", {P::number(1), P::number(2), P::text("b"), P::number(3)}},
        {"1.0RC1", {P::number(1), P::number(0), P::text("rc"), P::number(1)}},
        {"", {}},
        {" . ", {}},
        {"Ab-\u00C7D", {P::text("ab"), P::text("\u00E7d")}},
        {"12345678901234567890", {P::number(123456789012345678)}},
        {"1\u0663x", {P::number(0), P::text("x")}},
        {"\u0130", {P::text("i\u0307")}},
        {"r\xC3", {P::text("r\xC3")}},
    };
    for (const auto& c : cases) EXPECT_EQ(Versions::parts(c.text), c.parts) << c.text;
}

TEST(Versions, OsNumber) {
    const struct {
        const char* text;
        const char* number;
    } cases[] = {
        {"macOS 14.2.1", "14.2.1"},
        {"Version 13.0 (Build 22A380)", "13.0"},
        {"macOS  15", "15"},
        {"Sonoma", "Sonoma"},
        {"", ""},
        {"macOS \u0661\u0664 beta", "\u0661\u0664"},
        {" 12.7.1 ", "12.7.1"},
    };
    for (const auto& c : cases) EXPECT_EQ(quorv::osNumber(c.text), c.number) << c.text;
}

TEST(Unicode, NumericAndLowerCase) {
    for (char32_t c : {U'0', U'9', U'\u0661', U'\uFF10', U'\u00BD', U'\u2167', U'\u4E00', U'\U0001D7D8'}) {
        EXPECT_TRUE(quorv::isNumeric(c)) << static_cast<unsigned>(c);
    }
    for (char32_t c : {U'a', U'/', U':', U'\u00E9', U'\uFFFD', U'\U0010FFFF'}) {
        EXPECT_FALSE(quorv::isNumeric(c)) << static_cast<unsigned>(c);
    }
    EXPECT_EQ(quorv::lowerCased("ABC \u00C9\u0391\u0410\u0100\u0101 \xFF Z"), "abc \u00E9\u03B1\u0430\u0101\u0101 \xFF z");
}

}  // namespace
