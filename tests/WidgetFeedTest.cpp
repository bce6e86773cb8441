#include <gtest/gtest.h>

#include "kit/agent/WidgetFeed.hpp"
#include "shared/widget/WidgetSnapshot.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::WidgetFeed;
using brimstell::WidgetSnapshot;

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
