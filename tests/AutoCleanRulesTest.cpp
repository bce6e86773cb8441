// Auto Clean's rules: the schedule, what it may clean, the age test over real folders, settings.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <limits>

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
        {"daily", Frequency::daily},   {"weekly", Frequency::weekly}, {"monthly", Frequency::monthly},
        {"Daily", std::nullopt},       {"weekly ", std::nullopt},     {"", std::nullopt},
        {"fortnightly", std::nullopt}, {"month", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(AutoCleanRules::frequencyNamed(c.text), c.expected) << c.text;
    EXPECT_EQ(AutoCleanRules::name(Frequency::daily), "daily");
    EXPECT_EQ(AutoCleanRules::name(Frequency::weekly), "weekly");
    EXPECT_EQ(AutoCleanRules::name(Frequency::monthly), "monthly");
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
        {"monthly across the year end", nullptr, utc(2026, 12, 31), Frequency::monthly, utc(2027, 1, 31)},
        {"daily into March", nullptr, utc(2026, 2, 28, 23, 59), Frequency::daily, utc(2026, 3, 1, 23, 59)},
        {"weekly across the year end", nullptr, utc(2026, 12, 29), Frequency::weekly, utc(2027, 1, 5)},
        {"never ran", nullptr, 0, Frequency::daily, std::nullopt},
        {"a negative time is never", nullptr, -86400, Frequency::weekly, std::nullopt},
        {"not a number is never", nullptr, std::nan(""), Frequency::monthly, std::nullopt},
        {"the calendar can't step: last itself", nullptr, 1e300, Frequency::daily, 1e300},
        // 12:00 local on both sides, so 23 or 25 hours apart in absolute time.
        {"daily into summer time", cet, utc(2026, 3, 28, 11), Frequency::daily, utc(2026, 3, 29, 10)},
        {"weekly into summer time", cet, utc(2026, 3, 25, 11), Frequency::weekly, utc(2026, 4, 1, 10)},
        {"daily out of summer time", cet, utc(2026, 10, 24, 10), Frequency::daily, utc(2026, 10, 25, 11)},
        {"monthly into summer time", cet, utc(2026, 3, 15, 11), Frequency::monthly, utc(2026, 4, 15, 10)},
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
    auto category = [](const char* name, bool enabled, bool admin) {
        brimstell::JunkCategory c;
        c.name = name;
        c.enabled = enabled;
        c.admin = admin;
        return c;
    };
    const std::vector<brimstell::JunkCategory> scanned = {
        category("Browser Caches", true, false), category("Logs", true, true),
        category("Trash", true, false),          category("Xcode", false, false),
        category("Other App Caches", true, false), category("iOS Updates", false, true),
        category("trash", true, false),
    };
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
        {"added before", {cutoff - 1, {}, {}}, true},
        {"added exactly at the cutoff", {cutoff, {}, {}}, false},
        {"added a millisecond before", {cutoff - 0.001, {}, {}}, true},
        {"fresh inside", {cutoff - 1, cutoff + 1, {}}, false},
        {"used lately", {cutoff - 1, cutoff - 1, cutoff}, false},
        {"all three before", {cutoff - 9, cutoff - 5, cutoff - 1}, true},
        {"only the last use, before", {{}, {}, cutoff - 1}, true},
        {"not seen in full", {cutoff - 1, cutoff - 1, {}, false}, false},
        {"not a number", {std::nan(""), {}, {}}, false},
        {"minus infinity", {-std::numeric_limits<double>::infinity(), {}, {}}, false},
    };
    for (const auto& c : cases) EXPECT_EQ(AutoCleanRules::isOld(c.dates, cutoff), c.old) << c.name;
}

// ---- The age test over real folders ----

// Item dates are taken relative to a clock far ahead of the real one, so that the change time the
// kernel stamps (the real now, which no test can set) is old, and mtime/atime can be set either side
// of the cutoff.
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
    void file(const std::string& rel, std::size_t bytes = 10) const {
        testing_support::writeBytes(at(rel), std::string(bytes, 'x'));
        times(rel, stale, stale);
    }
    void mkdir(const std::string& rel) const {
        testing_support::makeFolders(at(rel));
        times(rel, stale, stale);
    }
    void link(const std::string& target, const std::string& rel) const {
        ASSERT_EQ(::symlink(target.c_str(), at(rel).c_str()), 0);
        times(rel, stale, stale);
    }
    // Sets access and modification times of the entry itself, never through a link.
    void times(const std::string& rel, double accessed, double modified) const {
        auto spec = [](double t) {
            timespec ts{};
            ts.tv_sec = static_cast<time_t>(std::floor(t));
            ts.tv_nsec = static_cast<long>(std::lround((t - std::floor(t)) * 1e9));
            return ts;
        };
        const timespec both[2] = {spec(accessed), spec(modified)};
        ASSERT_EQ(::utimensat(AT_FDCWD, (rel.empty() ? folder : at(rel)).c_str(), both, AT_SYMLINK_NOFOLLOW), 0) << rel;
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
        {"crdownload never taken in Downloads, however old",
         [](AgeFolder& f) {
             f.file("movie.mp4.crdownload");
             f.times("movie.mp4.crdownload", 0, 0);
         },
         {}, {"movie.mp4.crdownload"}},
        {"a browser's download folder in progress",
         [](AgeFolder& f) {
             f.mkdir("big.zip.download");
             f.file("big.zip.download/data");
         },
         {}, {"big.zip.download"}},
        {"folder with an old mtime but one fresh file inside",
         [](AgeFolder& f) {
             f.mkdir("project");
             f.file("project/new.txt");
             f.times("project/new.txt", f.stale, f.fresh);
             f.times("project", f.stale, f.stale);
         },
         {}, {}},
        {"a fresh file three folders down",
         [](AgeFolder& f) {
             f.mkdir("p");
             f.mkdir("p/q");
             f.mkdir("p/q/r");
             f.file("p/q/r/new");
             f.times("p/q/r/new", f.stale, f.fresh);
             for (const char* d : {"p/q/r", "p/q", "p"}) f.times(d, f.stale, f.stale);
         },
         {}, {}},
        {"a folder old all through",
         [](AgeFolder& f) {
             f.mkdir("p");
             f.mkdir("p/q");
             f.file("p/q/one", 5000);
             f.times("p/q", f.stale, f.stale);
             f.times("p", f.stale, f.stale);
         },
         {"p"}, {"p"}},
        {"modified exactly at the cutoff is not old, a millisecond before is",
         [](AgeFolder& f) {
             f.mkdir("edge");
             f.file("edge/x");
             f.times("edge/x", f.stale, f.cutoff);
             f.times("edge", f.stale, f.stale);
             f.mkdir("before");
             f.file("before/x");
             f.times("before/x", f.stale, f.cutoff - 0.001);
             f.times("before", f.stale, f.stale);
         },
         {"before"}, {"before"}},
        {"used exactly at the cutoff is not untouched, a millisecond before is",
         [](AgeFolder& f) {
             f.file("edge");
             f.times("edge", f.cutoff, f.stale);
             f.file("before");
             f.times("before", f.cutoff - 0.001, f.stale);
         },
         {"before"}, {"before", "edge"}},
        {"a file read lately inside an old folder counts as use",
         [](AgeFolder& f) {
             f.mkdir("docs");
             f.file("docs/read.pdf");
             f.times("docs/read.pdf", f.fresh, f.stale);
             f.times("docs", f.stale, f.stale);
         },
         {}, {"docs"}},
        {"a link is judged by its own dates, never its target's",
         [](AgeFolder& f) {
             testing_support::writeBytes(f.outside + "/fresh", "new");
             f.link(f.outside, "to-folder");
             f.link(f.outside + "/fresh", "to-file");
             f.link("/", "to-root");
             auto spec = timespec{static_cast<time_t>(f.fresh), 0};
             const timespec both[2] = {spec, spec};
             ASSERT_EQ(::utimensat(AT_FDCWD, (f.outside + "/fresh").c_str(), both, 0), 0);
             ASSERT_EQ(::utimensat(AT_FDCWD, f.outside.c_str(), both, 0), 0);
         },
         {"to-file", "to-folder", "to-root"}, {"to-file", "to-folder", "to-root"}},
        {"a link inside a folder is not walked through",
         [](AgeFolder& f) {
             testing_support::writeBytes(f.outside + "/fresh", "new");
             auto spec = timespec{static_cast<time_t>(f.fresh), 0};
             const timespec both[2] = {spec, spec};
             ASSERT_EQ(::utimensat(AT_FDCWD, (f.outside + "/fresh").c_str(), both, 0), 0);
             ASSERT_EQ(::utimensat(AT_FDCWD, f.outside.c_str(), both, 0), 0);
             f.mkdir("box");
             f.link(f.outside, "box/out");
             f.times("box", f.stale, f.stale);
         },
         {"box"}, {"box"}},
        {"names with line feeds, tabs and bytes that are not UTF-8",
         [](AgeFolder& f) {
             f.file("two\nlines");
             f.file("tab\there");
             f.file("\xff\xfe bytes");
             f.mkdir("dir\nname");
             f.file("dir\nname/in\nside");
             f.times("dir\nname", f.stale, f.stale);
         },
         // Sorted by bytes: 0xFF comes after every ASCII letter.
         {"dir\nname", "tab\there", "two\nlines", "\xff\xfe bytes"},
         {"dir\nname", "tab\there", "two\nlines", "\xff\xfe bytes"}},
        {"hidden entries stay",
         [](AgeFolder& f) {
             f.file(".DS_Store");
             f.file(".localized");
             f.file(".com.google.Chrome.x1y2z3");
             f.mkdir(".hidden");
         },
         {}, {}},
        {"a FIFO is nobody's download", [](AgeFolder& f) { ASSERT_EQ(::mkfifo(f.at("pipe").c_str(), 0600), 0); }, {}, {}},
        {"63 folders deep is walked to the end",
         [](AgeFolder& f) {
             f.mkdir("deep");
             ASSERT_TRUE(testing_support::makeChain(f.at("deep"), "d", 63));
         },
         {"deep"}, {"deep"}},
        {"64 folders deep is beyond the walk and never old",
         [](AgeFolder& f) {
             f.mkdir("deep");
             ASSERT_TRUE(testing_support::makeChain(f.at("deep"), "d", 64));
         },
         {}, {}},
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
    f.mkdir("p");
    f.file("p/a", 10000);
    f.file("p/b", 10000);
    ASSERT_EQ(::link(f.at("p/a").c_str(), f.at("p/hard").c_str()), 0);  // the same blocks again
    f.times("p", f.stale, f.stale);
    f.file("single\nfile", 3);
    const auto items = AutoCleanRules::old(f.folder + "//", AgeFolder::days, f.now, true);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].location, f.folder + "/p");
    EXPECT_EQ(items[0].label, "p");
    EXPECT_EQ(items[1].location, f.folder + "/single\nfile");
    EXPECT_EQ(items[1].label, "single\nfile");
    struct stat a{}, b{}, p{}, single{};
    ASSERT_EQ(::lstat(f.at("p/a").c_str(), &a), 0);
    ASSERT_EQ(::lstat(f.at("p/b").c_str(), &b), 0);
    ASSERT_EQ(::lstat(f.at("p").c_str(), &p), 0);
    ASSERT_EQ(::lstat(f.at("single\nfile").c_str(), &single), 0);
    EXPECT_EQ(items[0].size, (a.st_blocks + b.st_blocks + p.st_blocks) * 512);
    EXPECT_EQ(items[1].size, single.st_blocks * 512);
    for (const auto& item : items) {
        EXPECT_TRUE(item.selected);
        EXPECT_EQ(item.id.size(), 36u);
    }
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
    f.mkdir("locked");
    f.mkdir("locked/inner");
    f.file("locked/inner/x");
    ASSERT_EQ(::chmod(f.at("locked/inner").c_str(), 0), 0);
    f.times("locked/inner", f.stale, f.stale);
    f.times("locked", f.stale, f.stale);
    const bool ran = testing_support::withoutFileOverrides([&] { EXPECT_EQ(f.old(false), (Names{"a"})); });
    ::chmod(f.at("locked/inner").c_str(), 0755);
    if (!ran) GTEST_SKIP() << "the kernel would not let this thread give up its file overrides";
}

// ---- Settings ----

TEST(AutoCleanRules, SettingsTakeTheirDefaultsWhenAbsentOrOfAnotherType) {
    AutoCleanSettings defaults;
    defaults.enabled = false;
    defaults.frequency = Frequency::weekly;
    defaults.junk = true;
    defaults.emptyTrash = false;
    defaults.emptyTrashDays = 30;
    defaults.downloads = false;
    defaults.downloadsDays = 90;
    defaults.lastRun = 0;
    defaults.lastFreed = 0;
    defaults.ranOnce = false;

    using Change = std::function<void(AutoCleanSettings&)>;
    const Change same = [](AutoCleanSettings&) {};
    const struct {
        std::vector<std::pair<std::string, Value>> stored;
        Change expected;
    } cases[] = {
        {{}, same},
        {{{"autoClean.enabled", true}}, [](auto& s) { s.enabled = true; }},
        // The switch converts as the agent's schedule reads it.
        {{{"autoClean.enabled", "YES"}}, [](auto& s) { s.enabled = true; }},
        {{{"autoClean.enabled", 1}}, [](auto& s) { s.enabled = true; }},
        {{{"autoClean.enabled", "no"}}, same},
        {{{"autoClean.frequency", "daily"}}, [](auto& s) { s.frequency = Frequency::daily; }},
        {{{"autoClean.frequency", "monthly"}}, [](auto& s) { s.frequency = Frequency::monthly; }},
        {{{"autoClean.frequency", "fortnightly"}}, same},
        {{{"autoClean.frequency", "Monthly"}}, same},
        {{{"autoClean.frequency", 2}}, same},
        {{{"autoClean.junk", false}}, [](auto& s) { s.junk = false; }},
        {{{"autoClean.junk", "no"}}, same},
        {{{"autoClean.emptyTrash", true}, {"autoClean.emptyTrashDays", 7}}, [](auto& s) { s.emptyTrash = true; s.emptyTrashDays = 7; }},
        {{{"autoClean.emptyTrashDays", 7.0}}, [](auto& s) { s.emptyTrashDays = 7; }},
        {{{"autoClean.emptyTrashDays", 7.5}}, same},
        {{{"autoClean.emptyTrashDays", "7"}}, same},
        {{{"autoClean.emptyTrashDays", true}}, same},
        {{{"autoClean.emptyTrashDays", 0}}, same},
        {{{"autoClean.emptyTrashDays", -1}}, same},
        {{{"autoClean.downloads", true}, {"autoClean.downloadsDays", 1}}, [](auto& s) { s.downloads = true; s.downloadsDays = 1; }},
        {{{"autoClean.downloadsDays", 1e30}}, same},
        {{{"autoClean.downloadsDays", Value::strings({"90"})}}, same},
        {{{"autoClean.lastRun", 1'790'000'000.5}}, [](auto& s) { s.lastRun = 1'790'000'000.5; }},
        {{{"autoClean.lastRun", 1'790'000'000}}, [](auto& s) { s.lastRun = 1'790'000'000; }},
        {{{"autoClean.lastRun", "1790000000"}}, same},
        {{{"autoClean.lastRun", quorv::Date{1'790'000'000}}}, same},
        {{{"autoClean.lastFreed", std::int64_t{5'000'000'000}}}, [](auto& s) { s.lastFreed = 5'000'000'000; }},
        {{{"autoClean.lastFreed", 12.0}}, [](auto& s) { s.lastFreed = 12; }},
        {{{"autoClean.lastFreed", "12"}}, same},
        {{{"autoClean.ranOnce", true}}, [](auto& s) { s.ranOnce = true; }},
        {{{"autoClean.ranOnce", 1.0}}, same},
    };
    for (const auto& c : cases) {
        testing_support::SandboxHost sandbox;
        quorv::HostScope scope(sandbox.host);
        auto& store = *sandbox.host->settings;
        std::string label;
        for (const auto& [key, value] : c.stored) {
            ASSERT_TRUE(store.set(key, value));
            label += key + "=" + value.text() + " ";
        }
        AutoCleanSettings expected = defaults;
        c.expected(expected);
        EXPECT_EQ(AutoCleanRules::settingsFrom(store), expected) << label;
    }
}

}  // namespace
