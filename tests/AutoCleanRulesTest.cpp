// Auto Clean's rules: the schedule, what it may clean, the age test over real folders, settings.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <limits>
#include <tuple>

#include "kit/cleaning/AutoCleanRules.hpp"
#include "support/FileTree.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/host/Calendar.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::AutoCleanRules;
using brimstell::AutoCleanSettings;
using Frequency = brimstell::AutoCleanRules::Frequency;
using quorv::Value;

using testing_support::utc;

TEST(AutoCleanRules, FrequencyNames) {
    const struct {
        const char* text;
        std::optional<Frequency> expected;
    } cases[] = {
        {"daily", Frequency::daily}, {"weekly", Frequency::weekly}, {"monthly", Frequency::monthly},
        {"Daily", std::nullopt},     {"weekly ", std::nullopt},     {"month", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(AutoCleanRules::frequencyNamed(c.text), c.expected) << c.text;
        if (c.expected) {
            EXPECT_EQ(AutoCleanRules::name(*c.expected), c.text);
        }
    }
}

TEST(AutoCleanRules, NextRunAddsOneCalendarUnit) {
    // Central European time with its summer time written out, so no zone database is needed:
    // summer time starts 29 March 2026 and ends 25 October 2026.
    constexpr const char* cet = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char* name;
        const char* zone;  // nullptr: the UTC calendar
        double last;
        Frequency frequency;
        std::optional<double> expected;
    } cases[] = {
        {"monthly from 31 January: end of February", nullptr, utc(2026, 1, 31, 9, 30), Frequency::monthly, utc(2026, 2, 28, 9, 30)},
        {"monthly from 31 January in a leap year", nullptr, utc(2028, 1, 31, 9, 30), Frequency::monthly, utc(2028, 2, 29, 9, 30)},
        {"daily into March", nullptr, utc(2026, 2, 28, 23, 59), Frequency::daily, utc(2026, 3, 1, 23, 59)},
        {"weekly across the year end", nullptr, utc(2026, 12, 29), Frequency::weekly, utc(2027, 1, 5)},
        {"never ran", nullptr, 0, Frequency::daily, std::nullopt},
        {"not a number is never", nullptr, std::nan(""), Frequency::monthly, std::nullopt},
        {"the calendar can't step: last itself", nullptr, 1e300, Frequency::daily, 1e300},
        // 12:00 local on both sides, so 23 or 25 hours apart in absolute time.
        {"daily into summer time", cet, utc(2026, 3, 28, 11), Frequency::daily, utc(2026, 3, 29, 10)},
        {"daily out of summer time", cet, utc(2026, 10, 24, 10), Frequency::daily, utc(2026, 10, 25, 11)},
    };
    for (const auto& c : cases) {
        std::optional<testing_support::TimeZoneScope> zone;
        quorv::Calendar calendar;
        if (c.zone) {
            zone.emplace(c.zone);
        } else {
            calendar.utc = true;
        }
        EXPECT_EQ(AutoCleanRules::nextRun(c.last, c.frequency, calendar), c.expected) << c.name;
    }
}

TEST(AutoCleanRules, PartialDownloads) {
    const struct {
        std::string name;
        bool partial;
    } cases[] = {
        {"movie.mp4.crdownload", true}, {"MOVIE.MP4.CRDOWNLOAD", true}, {"archive.zip.download", true},
        {"disk.iso.part", true},        {"x.Partial", true},            {"setup.opdownload", true},
        {"scratch.tmp", true},          {"\xff\xfe.part", true},        {"line\nfeed.crdownload", true},
        {"notes.tmp.txt", false},       {"crdownload", false},          {"file.crdownload.", false},
        {"report.pdf", false},          {"", false},                    {"a.crdown\nload", false},
        {"a.parts", false},             {"a.par", false},               {std::string("a.part\0x", 8), false},
    };
    for (const auto& c : cases) EXPECT_EQ(AutoCleanRules::isPartial(c.name), c.partial) << c.name;
}

TEST(AutoCleanRules, DefaultJunkKeepsTickedUserCategoriesButTheTrash) {
    std::vector<brimstell::JunkCategory> scanned;
    for (const auto& [name, enabled, admin] : {std::tuple{"Browser Caches", true, false}, {"Logs", true, true},
                                                {"Trash", true, false}, {"Xcode", false, false},
                                                {"Other App Caches", true, false}, {"iOS Updates", false, true},
                                                {"trash", true, false}}) {
        auto& c = scanned.emplace_back();
        std::tie(c.name, c.enabled, c.admin) = std::tuple(name, enabled, admin);
    }
    std::vector<std::string> kept;
    for (const auto& c : AutoCleanRules::defaultJunk(scanned)) kept.push_back(c.name);
    EXPECT_EQ(kept, (std::vector<std::string>{"Browser Caches", "Other App Caches", "trash"}));
    EXPECT_TRUE(AutoCleanRules::defaultJunk({}).empty());
}

TEST(AutoCleanRules, AnItemIsOldOnlyWhenEveryDateItHasIsBeforeTheCutoff) {
    using Dates = AutoCleanRules::ItemDates;
    constexpr double cutoff = 1'800'000'000;
    const struct {
        const char* name;
        Dates dates;
        bool old;
    } cases[] = {
        {"no date at all", {}, false},
        {"added exactly at the cutoff", {cutoff, {}, {}}, false},
        {"added a millisecond before", {cutoff - 0.001, {}, {}}, true},
        {"fresh inside", {cutoff - 1, cutoff + 1, {}}, false},
        {"used lately", {cutoff - 1, cutoff - 1, cutoff}, false},
        {"only the last use, before", {{}, {}, cutoff - 1}, true},
        {"not seen in full", {cutoff - 1, cutoff - 1, {}, false}, false},
        {"not a number", {std::nan(""), {}, {}}, false},
        {"minus infinity", {-std::numeric_limits<double>::infinity(), {}, {}}, false},
    };
    for (const auto& c : cases) EXPECT_EQ(AutoCleanRules::isOld(c.dates, cutoff), c.old) << c.name;
}

// Dates are taken relative to a clock 400 days ahead of the real one, so whatever the kernel stamps
// now (the change time above all) is old, and access/modification times can be set either side of
// the cutoff.
struct AgeFolder {
    testing_support::TempDir dir;
    std::string folder = dir / "Downloads";
    std::string outside = dir / "outside";
    double now = std::floor(static_cast<double>(::time(nullptr))) + 400 * 86400.0;
    static constexpr int days = 30;
    double cutoff = now - days * 86400.0;
    double fresh = now - 86400;
    double stale = now - 100 * 86400.0;

    AgeFolder() {
        testing_support::makeFolders(folder);
        testing_support::makeFolders(outside);
    }
    std::string at(const std::string& rel) const { return folder + "/" + rel; }
    void file(const std::string& rel, std::size_t bytes = 10) const { file(rel, stale, stale, bytes); }
    void file(const std::string& rel, double accessed, double modified, std::size_t bytes = 10) const {
        testing_support::makeFolders(at(rel).substr(0, at(rel).rfind('/')));
        testing_support::writeBytes(at(rel), std::string(bytes, 'x'));
        times(at(rel), accessed, modified);
    }
    void mkdir(const std::string& rel) const { testing_support::makeFolders(at(rel)); }
    void link(const std::string& target, const std::string& rel) const {
        ASSERT_EQ(::symlink(target.c_str(), at(rel).c_str()), 0);
        times(at(rel), stale, stale);
    }
    void chain(int depth) const {
        mkdir("deep");
        ASSERT_TRUE(testing_support::makeChain(at("deep"), "d", depth));
    }
    // A fresh file in a fresh folder outside, for links to point at.
    void freshOutside() const {
        testing_support::writeBytes(outside + "/fresh", "new");
        times(outside + "/fresh", fresh, fresh);
        times(outside, fresh, fresh);
    }
    // Sets access and modification times of the entry itself, never through a link.
    static void times(const std::string& path, double accessed, double modified) {
        auto stamp = [](double t) {
            return timespec{static_cast<time_t>(std::floor(t)), std::lround((t - std::floor(t)) * 1e9)};
        };
        const timespec both[2] = {stamp(accessed), stamp(modified)};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), both, AT_SYMLINK_NOFOLLOW), 0) << path;
    }
    std::vector<std::string> old(bool untouched) const {
        std::vector<std::string> labels;
        for (const auto& item : AutoCleanRules::old(folder, days, now, untouched)) labels.push_back(item.label);
        return labels;
    }
};

using Names = std::vector<std::string>;

TEST(AutoCleanRules, OldItemsOfAFolder) {
    const struct {
        const char* name;
        std::function<void(AgeFolder&)> make;
        Names downloads;  // with the untouched test
        Names trash;      // without it
    } cases[] = {
        {"an old file", [](AgeFolder& f) { f.file("a.pdf"); }, {"a.pdf"}, {"a.pdf"}},
        {"crdownload never taken in Downloads, however old", [](AgeFolder& f) { f.file("movie.mp4.crdownload", 0, 0); },
         {}, {"movie.mp4.crdownload"}},
        {"a browser's download folder in progress", [](AgeFolder& f) { f.file("big.zip.download/data"); },
         {}, {"big.zip.download"}},
        {"a fresh file three folders down", [](AgeFolder& f) { f.file("p/q/r/new", f.stale, f.fresh); }, {}, {}},
        {"a folder old all through", [](AgeFolder& f) { f.file("p/q/one", 5000); }, {"p"}, {"p"}},
        {"modified exactly at the cutoff is not old, a millisecond before is",
         [](AgeFolder& f) { f.file("edge/x", f.stale, f.cutoff); f.file("before/x", f.stale, f.cutoff - 0.001); },
         {"before"}, {"before"}},
        {"used exactly at the cutoff is not untouched, a millisecond before is",
         [](AgeFolder& f) { f.file("edge", f.cutoff, f.stale); f.file("before", f.cutoff - 0.001, f.stale); },
         {"before"}, {"before", "edge"}},
        {"a file read lately inside an old folder counts as use",
         [](AgeFolder& f) { f.file("docs/read.pdf", f.fresh, f.stale); }, {}, {"docs"}},
        {"a link is judged by its own dates, never its target's",
         [](AgeFolder& f) {
             f.freshOutside();
             f.link(f.outside, "to-folder");
             f.link(f.outside + "/fresh", "to-file");
             f.link("/", "to-root");
         },
         {"to-file", "to-folder", "to-root"}, {"to-file", "to-folder", "to-root"}},
        {"a link inside a folder is not walked through",
         [](AgeFolder& f) { f.freshOutside(); f.mkdir("box"); f.link(f.outside, "box/out"); },
         {"box"}, {"box"}},
        {"names with line feeds and bytes that are not UTF-8",
         [](AgeFolder& f) { f.file("two\nlines"); f.file("\xff\xfe bytes"); f.file("dir\nname/in\nside"); },
         // Sorted by bytes: 0xFF comes after every ASCII letter.
         {"dir\nname", "two\nlines", "\xff\xfe bytes"}, {"dir\nname", "two\nlines", "\xff\xfe bytes"}},
        {"hidden entries stay", [](AgeFolder& f) { f.file(".DS_Store"); f.file(".com.google.Chrome.x1y2z3"); f.mkdir(".hidden"); },
         {}, {}},
        {"a FIFO is nobody's download", [](AgeFolder& f) { ASSERT_EQ(::mkfifo(f.at("pipe").c_str(), 0600), 0); }, {}, {}},
        {"63 folders deep is walked to the end", [](AgeFolder& f) { f.chain(63); }, {"deep"}, {"deep"}},
        {"64 folders deep is beyond the walk and never old", [](AgeFolder& f) { f.chain(64); }, {}, {}},
    };
    for (const auto& c : cases) {
        AgeFolder f;
        c.make(f);
        EXPECT_EQ(f.old(true), c.downloads) << c.name;
        EXPECT_EQ(f.old(false), c.trash) << c.name;
    }
}

TEST(AutoCleanRules, OldItemsAreReadyToMove) {
    AgeFolder f;
    f.file("p/a", 10000);
    f.file("p/b", 10000);
    ASSERT_EQ(::link(f.at("p/a").c_str(), f.at("p/hard").c_str()), 0);  // the same blocks again
    f.times(f.at("p"), f.stale, f.stale);
    f.file("single\nfile", 3);
    const auto items = AutoCleanRules::old(f.folder + "//", AgeFolder::days, f.now, true);
    auto blocks = [&](const char* rel) {
        struct stat st{};
        EXPECT_EQ(::lstat(f.at(rel).c_str(), &st), 0) << rel;
        return static_cast<std::int64_t>(st.st_blocks) * 512;
    };
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(std::tie(items[0].location, items[0].label, items[0].size, items[0].selected),
              std::tuple(f.folder + "/p", "p", blocks("p/a") + blocks("p/b") + blocks("p"), true));
    EXPECT_EQ(std::tie(items[1].location, items[1].label, items[1].size, items[1].selected),
              std::tuple(f.folder + "/single\nfile", "single\nfile", blocks("single\nfile"), true));
    EXPECT_EQ(items[0].id.size(), 36u);
    EXPECT_EQ(items[1].id.size(), 36u);
    EXPECT_NE(items[0].id, items[1].id);

    // Looking marks nothing as used: access times stay where they were.
    struct stat after{};
    ASSERT_EQ(::lstat(f.at("p").c_str(), &after), 0);
    EXPECT_EQ(after.st_atim.tv_sec, static_cast<time_t>(f.stale));
    EXPECT_EQ(f.old(true), (Names{"p", "single\nfile"}));
}

TEST(AutoCleanRules, OldTakesNothingItCannotVouchFor) {
    AgeFolder f;
    f.file("a");
    EXPECT_TRUE(AutoCleanRules::old(f.folder, 0, f.now, true).empty()) << "a limit under one day";
    EXPECT_TRUE(AutoCleanRules::old(f.folder, -30, f.now, false).empty()) << "a negative limit";
    EXPECT_TRUE(AutoCleanRules::old(f.dir / "missing", 30, f.now, true).empty());
    EXPECT_TRUE(AutoCleanRules::old(f.at("a"), 30, f.now, true).empty()) << "a file is no folder";
    EXPECT_TRUE(AutoCleanRules::old("", 30, f.now, true).empty());
    ASSERT_EQ(::symlink(f.folder.c_str(), (f.dir / "via-link").c_str()), 0);
    EXPECT_TRUE(AutoCleanRules::old(f.dir / "via-link", 30, f.now, true).empty()) << "a link to the folder";

    // A folder with a part nobody may read is not seen in full, so it stays.
    f.file("locked/inner/x");
    ASSERT_EQ(::chmod(f.at("locked/inner").c_str(), 0), 0);
    const bool ran = testing_support::withoutFileOverrides([&] { EXPECT_EQ(f.old(false), (Names{"a"})); });
    ::chmod(f.at("locked/inner").c_str(), 0755);
    if (!ran) GTEST_SKIP() << "the kernel would not let this thread give up its file overrides";
}

// ---- Settings ----

TEST(AutoCleanRules, SettingsTakeTheirDefaultsWhenAbsentOrOfAnotherType) {
    const AutoCleanSettings defaults{.enabled = false, .frequency = Frequency::weekly, .junk = true,
                                     .emptyTrash = false, .emptyTrashDays = 30, .downloads = false,
                                     .downloadsDays = 90, .lastRun = 0, .lastFreed = 0, .ranOnce = false};

    using Stored = std::vector<std::pair<std::string, Value>>;
    std::vector<std::pair<Stored, std::function<void(AutoCleanSettings&)>>> cases = {
        {{}, [](auto&) {}},
        {{{"autoClean.enabled", true}}, [](auto& s) { s.enabled = true; }},
        // The switch converts as the agent's schedule reads it.
        {{{"autoClean.enabled", "YES"}}, [](auto& s) { s.enabled = true; }},
        {{{"autoClean.enabled", 1}}, [](auto& s) { s.enabled = true; }},
        {{{"autoClean.frequency", "daily"}}, [](auto& s) { s.frequency = Frequency::daily; }},
        {{{"autoClean.junk", false}}, [](auto& s) { s.junk = false; }},
        {{{"autoClean.emptyTrash", true}, {"autoClean.emptyTrashDays", 7}}, [](auto& s) { s.emptyTrash = true; s.emptyTrashDays = 7; }},
        {{{"autoClean.emptyTrashDays", 7.0}}, [](auto& s) { s.emptyTrashDays = 7; }},
        {{{"autoClean.downloads", true}, {"autoClean.downloadsDays", 1}}, [](auto& s) { s.downloads = true; s.downloadsDays = 1; }},
        {{{"autoClean.lastRun", 1'790'000'000.5}}, [](auto& s) { s.lastRun = 1'790'000'000.5; }},
        {{{"autoClean.lastRun", 1'790'000'000}}, [](auto& s) { s.lastRun = 1'790'000'000; }},
        {{{"autoClean.lastFreed", std::int64_t{5'000'000'000}}}, [](auto& s) { s.lastFreed = 5'000'000'000; }},
        {{{"autoClean.lastFreed", 12.0}}, [](auto& s) { s.lastFreed = 12; }},
        {{{"autoClean.ranOnce", true}}, [](auto& s) { s.ranOnce = true; }},
    };
    // Each of these leaves its setting at the default.
    const std::pair<std::string, Value> ignored[] = {
        {"autoClean.enabled", "no"},        {"autoClean.frequency", "Monthly"},  {"autoClean.frequency", 2},
        {"autoClean.junk", "no"},           {"autoClean.emptyTrashDays", 7.5},   {"autoClean.emptyTrashDays", "7"},
        {"autoClean.emptyTrashDays", 0},    {"autoClean.downloadsDays", 1e30},   {"autoClean.downloadsDays", Value::strings({"90"})},
        {"autoClean.lastRun", quorv::Date{1'790'000'000}}, {"autoClean.ranOnce", 1.0},
    };
    for (const auto& stored : ignored) cases.push_back({{stored}, [](auto&) {}});
    for (const auto& [stored, change] : cases) {
        testing_support::SandboxHost sandbox;
        quorv::HostScope scope(sandbox.host);
        auto& store = *sandbox.host->settings;
        std::string label;
        for (const auto& [key, value] : stored) {
            ASSERT_TRUE(store.set(key, value));
            label += key + "=" + value.text() + " ";
        }
        AutoCleanSettings expected = defaults;
        change(expected);
        EXPECT_EQ(AutoCleanRules::settingsFrom(store), expected) << label;
    }
}

}  // namespace
