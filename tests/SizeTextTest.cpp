#include <gtest/gtest.h>

#include "support/text/SizeText.hpp"

namespace {

TEST(SizeText, DecimalUnitsAsPeopleReadThem) {
    const struct {
        long long bytes;
        const char* text;
    } cases[] = {
        {0, "0 bytes"},
        {1, "1 byte"},
        {2, "2 bytes"},
        {999, "999 bytes"},
        {1000, "1 kB"},
        {1499, "1 kB"},
        {1500, "2 kB"},
        {999'499, "999 kB"},
        {999'500, "1 MB"},
        {999'999, "1 MB"},
        {1'000'000, "1 MB"},
        {1'200'000, "1.2 MB"},
        {1'250'000, "1.3 MB"},
        {5'000'000, "5 MB"},
        {5'040'000, "5 MB"},
        {999'949'999, "999.9 MB"},
        {999'950'000, "1 GB"},
        {12'345'678'901, "12.35 GB"},
        {10'100'000'000, "10.1 GB"},
        {1'000'000'000'000, "1 TB"},
        {2'345'600'000'000, "2.35 TB"},
        {-1'200'000, "-1.2 MB"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(quorv::formatSize(c.bytes), c.text) << c.bytes;
    }
}

}  // namespace
