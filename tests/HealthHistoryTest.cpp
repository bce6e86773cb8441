// The daily health history: one point a day in its JSON file, hostile files, ISO days, and the
// forecast drawn from it.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <thread>
#include <string>
#include <vector>

#include "kit/health/HealthChart.hpp"
#include "kit/health/HealthForecast.hpp"
#include "kit/health/HealthHistory.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"

namespace {

using testing_support::utc;

quorv::Calendar utcCalendar() {
    quorv::Calendar c;
    c.utc = true;
    return c;
}

brimstell::BatteryDetails reading(double health, std::int64_t cycles, std::int64_t full) {
    brimstell::BatteryDetails b;
    b.health = health;
    b.cycles = cycles;
    b.fullCapacity = full;
    return b;
}

TEST(HealthHistory, OnePointADayTheLaterReadingKept) {
    testing_support::TempDir dir;
    brimstell::HealthHistory history(dir / "Brimstell/health-history.json");
    const auto cal = utcCalendar();
    EXPECT_TRUE(history.due(utc(2026, 9, 21, 8), cal)) << "no file: due";
    ASSERT_TRUE(history.record(reading(0.9, 300, 4500), utc(2026, 9, 21, 8), cal));
    EXPECT_FALSE(history.due(utc(2026, 9, 21, 23, 59, 59), cal));
    ASSERT_TRUE(history.record(reading(0.89, 301, 4450), utc(2026, 9, 21, 17, 30), cal));
    EXPECT_TRUE(history.due(utc(2026, 9, 22), cal)) << "the next day starts at midnight";
    ASSERT_TRUE(history.record(reading(0.95, 200, 4750), utc(2026, 9, 19, 12), cal)) << "a clock set back";

    EXPECT_EQ(testing_support::readText(history.file()),
              "[\n"
              "  {\n"
              "    \"day\": \"2026-09-19T00:00:00+00:00\",\n"
              "    \"health\": 0.95,\n"
              "    \"cycles\": 200,\n"
              "    \"fullCapacity\": 4750\n"
              "  },\n"
              "  {\n"
              "    \"day\": \"2026-09-21T00:00:00+00:00\",\n"
              "    \"health\": 0.89,\n"
              "    \"cycles\": 301,\n"
              "    \"fullCapacity\": 4450\n"
              "  }\n"
              "]\n");
    const auto points = history.load();
    ASSERT_EQ(points.size(), 2u);
    EXPECT_EQ(points[0].day, utc(2026, 9, 19));
    EXPECT_EQ(points[1].day, utc(2026, 9, 21));
    EXPECT_EQ(points[1].cycles, 301);
    struct stat st{};
    ASSERT_EQ(::stat(history.file().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// The app's page and the agent record through objects of their own: only the file lock keeps one
// from writing over the other's point.
TEST(HealthHistory, WritersOfTheSameFileLoseNoPoint) {
    testing_support::TempDir dir;
    const auto cal = utcCalendar();
    constexpr int writers = 8;
    std::vector<std::unique_ptr<brimstell::HealthHistory>> histories;
    for (int i = 0; i < writers; ++i) histories.push_back(std::make_unique<brimstell::HealthHistory>(dir / "health-history.json"));
    std::vector<std::thread> threads;
    for (int i = 0; i < writers; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 5; ++round) {
                histories[i]->record(reading(0.9, i, 4000 + round), utc(2026, 9, 1 + i, 8), cal);
            }
        });
    }
    for (auto& t : threads) t.join();
    const auto points = histories[0]->load();
    ASSERT_EQ(points.size(), static_cast<std::size_t>(writers));
    for (int i = 0; i < writers; ++i) {
        EXPECT_EQ(points[i].day, utc(2026, 9, 1 + i));
        EXPECT_EQ(points[i].fullCapacity, 4004) << "each day's last reading";
    }
}

TEST(HealthHistory, DecodesWhatItWroteAndNothingElse) {
    const struct {
        const char* name;
        const char* text;
        std::size_t points;  // 99: doesn't decode
    } cases[] = {
        {"empty array", "[]", 0},
        {"a zone's offset and Z", R"([{"day": "2026-09-21T00:00:00+02:00", "health": 1, "cycles": 0, "fullCapacity": 1},
                                      {"day": "2026-09-22T00:00:00Z", "health": 0.5, "cycles": 1, "fullCapacity": 2, "extra": [1]}])", 2},
        {"a key missing", R"([{"day": "2026-09-21T00:00:00Z", "health": 1, "cycles": 0}])", 99},
        {"health as text", R"([{"day": "2026-09-21T00:00:00Z", "health": "1", "cycles": 0, "fullCapacity": 1}])", 99},
        {"cycles not whole", R"([{"day": "2026-09-21T00:00:00Z", "health": 1, "cycles": 0.5, "fullCapacity": 1}])", 99},
        {"a day that isn't one", R"([{"day": "2026-02-30T00:00:00Z", "health": 1, "cycles": 0, "fullCapacity": 1}])", 99},
        {"seconds for a day", R"([{"day": 1790000000, "health": 1, "cycles": 0, "fullCapacity": 1}])", 99},
        {"an object, not an array", R"({"day": "2026-09-21T00:00:00Z"})", 99},
        {"torn", R"([{"day": "2026-09-21T00:00:00Z", "hea)", 99},
        {"invalid UTF-8", "[\"\xff\"]", 99},
    };
    for (const auto& c : cases) {
        const auto points = brimstell::decodeHealthHistory(c.text);
        if (c.points == 99) {
            EXPECT_FALSE(points) << c.name;
        } else {
            ASSERT_TRUE(points) << c.name;
            EXPECT_EQ(points->size(), c.points) << c.name;
        }
    }
    const auto offset = brimstell::decodeHealthHistory(cases[1].text);
    EXPECT_EQ((*offset)[0].day, utc(2026, 9, 20, 22));
}

TEST(HealthHistory, AHostileFileIsSetAsideNotWrittenOver) {
    testing_support::TempDir dir;
    const auto cal = utcCalendar();
    const double now = utc(2026, 9, 21, 8);
    struct Case {
        const char* name;
        std::function<void(const std::string&)> plant;
    };
    const Case cases[] = {
        {"garbage", [](const std::string& f) { quorv::files::writeAtomically(f, "{not json"); }},
        {"a FIFO", [](const std::string& f) { ::mkfifo(f.c_str(), 0600); }},
        {"a link", [&](const std::string& f) {
             quorv::files::writeAtomically(dir / "elsewhere.json", "[]");
             std::filesystem::create_symlink(dir / "elsewhere.json", f);
         }},
    };
    for (const auto& c : cases) {
        const std::string folder = dir / c.name;
        quorv::files::makeFolders(folder);
        brimstell::HealthHistory history(folder + "/health-history.json");
        c.plant(history.file());
        EXPECT_TRUE(history.load().empty()) << c.name;
        EXPECT_TRUE(history.due(now, cal)) << c.name;
        ASSERT_TRUE(history.record(reading(0.9, 1, 1), now, cal)) << c.name;
        EXPECT_EQ(history.load().size(), 1u) << c.name;
        EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(history.file() + ".1789977600"))) << c.name << ": set aside";
    }
    EXPECT_EQ(testing_support::readText(dir / "elsewhere.json"), "[]") << "a link's target is never written";
}

TEST(Calendar, IsoTextsBackToTimes) {
    const struct {
        const char* text;
        std::optional<double> time;
    } cases[] = {
        {"2026-09-21T00:00:00Z", utc(2026, 9, 21)},
        {"2026-09-21T01:30:00+01:30", utc(2026, 9, 21)},
        {"2026-09-20T19:00:00-05:00", utc(2026, 9, 21)},
        {"2024-02-29T00:00:00Z", utc(2024, 2, 29)},
        {"2026-02-29T00:00:00Z", std::nullopt},
        {"2026-13-01T00:00:00Z", std::nullopt},
        {"2026-09-21T24:00:00Z", std::nullopt},
        {"2026-09-21T00:00:00", std::nullopt},
        {"2026-09-21T00:00:00+0100", std::nullopt},
        {"2026-09-21 00:00:00Z", std::nullopt},
        {"+026-09-21T00:00:00Z", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(quorv::Calendar::parseIso(c.text), c.time) << c.text;
    EXPECT_EQ(utcCalendar().monthText(utc(2027, 3, 31, 23)), "March 2027");
}

// Points a day apart from the first day, health falling by step a day.
std::vector<brimstell::HealthPoint> line(int days, double start, double step, double from = utc(2026, 1, 1)) {
    std::vector<brimstell::HealthPoint> out;
    for (int i = 0; i < days; ++i) out.push_back({from + i * 86'400.0, start - step * i, i, 4000});
    return out;
}

TEST(HealthForecast, TheMonthTheTrendCrosses80Percent) {
    const auto cal = utcCalendar();
    const struct {
        const char* name;
        std::vector<brimstell::HealthPoint> points;
        std::optional<double> crossing;
        const char* message;
    } cases[] = {
        {"30 days falling a thousandth a day", line(31, 0.9, 0.001), utc(2026, 4, 11),
         "At this rate it falls under 80% around April 2026."},
        {"29 days", line(30, 0.9, 0.001), std::nullopt, "A forecast needs 30 days of readings."},
        {"one point", line(1, 0.9, 0), std::nullopt, "A forecast needs 30 days of readings."},
        {"flat", line(40, 0.9, 0), std::nullopt, "It isn't wearing measurably."},
        {"rising", line(40, 0.85, -0.001), std::nullopt, "It isn't wearing measurably."},
        {"already worn", line(40, 0.85, 0.002), std::nullopt, "It is already under 80%."},
        {"very slow", line(40, 0.99, 0.000001), std::nullopt, "At this rate it stays over 80% for twenty years and more."},
    };
    for (const auto& c : cases) {
        const auto f = brimstell::HealthForecast::of(c.points, cal);
        EXPECT_EQ(f.crossing, c.crossing) << c.name;
        EXPECT_EQ(f.message, c.message) << c.name;
    }
}

TEST(HealthChart, TwoPointsAtLeastAndTheLatestColumnsOnly) {
    const auto cal = utcCalendar();
    EXPECT_EQ(brimstell::HealthChart::lines(line(1, 0.9, 0), cal),
              std::vector<std::string>{"A reading is kept each day. The chart appears once there are two."});
    EXPECT_EQ(brimstell::HealthChart::lines({}, cal).size(), 1u);
    // 100 days from 1.0 down to 0.505: the scale reaches down to 50%, the last 10 days drawn, the
    // blanks at the end of a line left off.
    const auto chart = brimstell::HealthChart::lines(line(100, 1.0, 0.005), cal, 10, 2);
    EXPECT_EQ(chart, (std::vector<std::string>{
                         " 100% │",
                         "  50% │▂▁▁▁▁▁▁",
                         "       2026-04-01 2026-04-10",
                     }));
}

}  // namespace
