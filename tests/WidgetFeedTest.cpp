#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/widget/WidgetFeed.hpp"
#include "shared/widget/WidgetSnapshot.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::WidgetFeed;
using brimstell::WidgetSnapshot;

// How the snapshot was read through a JSON tree: the rules the text reader must keep.
std::optional<WidgetSnapshot> treeRead(const std::string& text) {
    auto j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object()) return std::nullopt;
    WidgetSnapshot s;
    try {
        s.junk = j.at("junk").get<std::int64_t>();
        s.lastFreed = j.at("lastFreed").get<std::int64_t>();
        s.diskFailing = j.at("diskFailing").get<bool>();
        s.updated = j.at("updated").get<double>();
        if (j.contains("lastClean")) s.lastClean = j["lastClean"].get<double>();
        if (j.contains("batteryHealth")) s.batteryHealth = j["batteryHealth"].get<double>();
        if (j.contains("diskStatus")) s.diskStatus = j["diskStatus"].get<std::string>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
    return s;
}

bool same(const std::optional<WidgetSnapshot>& a, const std::optional<WidgetSnapshot>& b) {
    if (!a || !b) return a.has_value() == b.has_value();
    return a->junk == b->junk && a->lastClean == b->lastClean && a->lastFreed == b->lastFreed &&
           a->batteryHealth == b->batteryHealth && a->diskStatus == b->diskStatus && a->diskFailing == b->diskFailing &&
           a->updated == b->updated;
}

TEST(WidgetSnapshot, TextAsBeforeAndReadByTheSameRules) {
    WidgetSnapshot full;
    full.junk = 1;
    full.lastClean = 2.5;
    full.lastFreed = -3;
    full.batteryHealth = 0.9;
    full.diskStatus = "Verified \"ok\"\n\xff";
    full.updated = 1790000000;
    EXPECT_EQ(full.json(), "{\"junk\":1,\"lastClean\":2.5,\"lastFreed\":-3,\"batteryHealth\":0.9,"
                           "\"diskStatus\":\"Verified \\\"ok\\\"\\n\xEF\xBF\xBD\",\"diskFailing\":false,\"updated\":1790000000.0}");
    EXPECT_EQ(WidgetSnapshot{}.json(), R"({"junk":0,"lastFreed":0,"diskFailing":false,"updated":0.0})");
    const std::string base = R"("lastFreed":2,"diskFailing":true,"updated":3)";
    const struct {
        const char* what;
        std::string text;
        bool readable;
    } cases[] = {
        {"written whole", full.json(), true},
        {"the fewest keys", "{\"junk\":1," + base + "}", true},
        {"junk missing", "{" + base + "}", false},
        {"junk as a fraction, cut off", "{\"junk\":1.9," + base + "}", true},
        {"junk as a boolean", "{\"junk\":true," + base + "}", false},
        {"junk as text", "{\"junk\":\"1\"," + base + "}", false},
        {"junk given twice", "{\"junk\":\"x\",\"junk\":5," + base + "}", true},
        {"diskFailing as a number", R"({"junk":1,"lastFreed":2,"diskFailing":1,"updated":3})", false},
        {"a null lastClean", "{\"junk\":1,\"lastClean\":null," + base + "}", false},
        {"diskStatus as a number", "{\"junk\":1,\"diskStatus\":5," + base + "}", false},
        {"unknown keys", "{\"junk\":1,\"x\":[{}]," + base + "}", true},
        {"junk beyond 64 bits", "{\"junk\":18446744073709551615," + base + "}", true},
        {"a list", "[]", false},
        {"cut short", "{\"junk\":1," + base, false},
        {"something after", "{\"junk\":1," + base + "}x", false},
    };
    for (const auto& c : cases) {
        const auto ours = WidgetSnapshot::fromJson(c.text);
        EXPECT_EQ(ours.has_value(), c.readable) << c.what;
        EXPECT_TRUE(same(ours, treeRead(c.text))) << c.what;
    }
}

std::string widgetFile(const testing_support::SandboxHost& s) {
    return s.mac.home() + "/Library/Group Containers/K3Q8ZT2WMX.com.quorv.brimstell/widget.json";
}

TEST(WidgetFeed, FirstSnapshotWithNothingKnown) {
    testing_support::SandboxHost sandbox(1'790'000'000.5);
    quorv::HostScope scope(sandbox.host);
    auto written = WidgetFeed::update(std::nullopt, std::nullopt, std::nullopt);
    ASSERT_TRUE(written.has_value());
    EXPECT_EQ(*written, widgetFile(sandbox));
    EXPECT_EQ(testing_support::readText(*written),
              R"({"junk":0,"lastFreed":0,"diskFailing":false,"updated":1790000000.5})");
}

TEST(WidgetFeed, FiguresFromSettingsAndReadings) {
    testing_support::SandboxHost sandbox(1'790'000'000);
    quorv::HostScope scope(sandbox.host);
    sandbox.host->settings->set("widget.lastClean", 1'789'000'000.0);
    sandbox.host->settings->set("widget.lastFreed", 734'003'200);
    brimstell::BatteryDetails battery;
    battery.health = 0.87;
    brimstell::DiskHealth disk;
    disk.smart = "Failing";
    WidgetFeed::update(5'000'000'000, battery, disk);
    EXPECT_EQ(testing_support::readText(widgetFile(sandbox)),
              R"({"junk":5000000000,"lastClean":1789000000.0,"lastFreed":734003200,"batteryHealth":0.87,)"
              R"("diskStatus":"Failing","diskFailing":true,"updated":1790000000.0})");
}

TEST(WidgetFeed, UnreadFiguresKeepThePreviousSnapshots) {
    testing_support::SandboxHost sandbox(1'790'000'000);
    quorv::HostScope scope(sandbox.host);
    brimstell::BatteryDetails battery;
    battery.health = 0.91;
    brimstell::DiskHealth disk;
    disk.smart = "Verified";
    WidgetFeed::update(1234, battery, disk);
    sandbox.setNow(1'790'003'600);
    WidgetFeed::update(std::nullopt, std::nullopt, std::nullopt);
    auto s = WidgetSnapshot::read(sandbox.mac.home() + "/Library/Group Containers/K3Q8ZT2WMX.com.quorv.brimstell");
    ASSERT_TRUE(s.has_value());
    EXPECT_EQ(s->junk, 1234);
    EXPECT_EQ(s->batteryHealth, 0.91);
    EXPECT_EQ(s->diskStatus, "Verified");
    EXPECT_FALSE(s->diskFailing);
    EXPECT_EQ(s->updated, 1'790'003'600);
    EXPECT_FALSE(s->lastClean.has_value()) << "widget.lastClean 0 is left out";
}

TEST(WidgetSnapshot, UnreadableFilesReadAsNone) {
    testing_support::TempDir dir;
    EXPECT_FALSE(WidgetSnapshot::read(dir.path()).has_value());
    const char* bad[] = {"", "{", "[]", R"({"junk":"many"})", R"({"junk":1})", "\xff\xfe"};
    for (const char* text : bad) {
        quorv::files::writeAtomically(dir / "widget.json", text);
        EXPECT_FALSE(WidgetSnapshot::read(dir.path()).has_value()) << text;
    }
    WidgetSnapshot s;
    s.diskStatus = std::string("Fail\xff");  // a tool's bytes that aren't UTF-8
    EXPECT_TRUE(s.write(dir.path()));
    EXPECT_TRUE(WidgetSnapshot::read(dir.path()).has_value());
}

}  // namespace
