#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/PlistFileStore.hpp"

namespace {

using quorv::PlistFileStore;
using quorv::Value;

TEST(SettingsStore, EveryTypeSurvivesTheFile) {
    testing_support::TempDir dir;
    const std::string file = dir / "prefs/com.quorv.brimstell.plist";
    const std::vector<std::pair<std::string, Value>> values = {
        {"bool.true", true},
        {"bool.false", false},
        {"int.zero", 0},
        {"int.negative", std::int64_t{-42}},
        {"int.max", std::int64_t{INT64_MAX}},
        {"int.min", std::int64_t{INT64_MIN}},
        {"double.time", 1'790'000'000.123456},
        {"double.tiny", 1e-300},
        {"string.plain", "weekly"},
        {"string.hostile", std::string("a\nb\tc <&> \"quoted\" ünïcode →")},
        {"string.empty", ""},
        {"date.whole", quorv::Date{1'790'000'000}},
        {"date.before2001", quorv::Date{86400}},
        {"array.strings", Value::strings({"/Users/ann/Library/LaunchAgents/a.plist", "b"})},
        {"array.empty", Value::strings({})},
        {"dict", Value(Value::Dict{{"k", 1}, {"nested", Value::strings({"x"})}})},
        {"data", Value(Value::Data{0, 1, 2, 255})},
    };
    {
        PlistFileStore store(file);
        for (const auto& [k, v] : values) ASSERT_TRUE(store.set(k, v)) << k;
    }
    PlistFileStore reread(file);  // a second process opening the domain
    for (const auto& [k, v] : values) {
        auto got = reread.object(k);
        ASSERT_TRUE(got.has_value()) << k;
        EXPECT_EQ(*got, v) << k << ": " << got->text();
        EXPECT_EQ(got->typeName(), v.typeName()) << k;
    }
    EXPECT_TRUE(reread.date("date.whole").has_value()) << "a date stays a date";
    EXPECT_FALSE(reread.date("double.time").has_value()) << "a double is not a date";
}

TEST(SettingsStore, TypedReadsConvertLikeUserDefaults) {
    testing_support::TempDir dir;
    PlistFileStore store(dir / "s.plist");
    store.set("b.true", true);
    store.set("b.false", false);
    store.set("i.7", 7);
    store.set("d.2.9", 2.9);
    store.set("d.neg", -2.9);
    store.set("s.no", "no");
    store.set("s.yes", "YES");
    store.set("s.12abc", "12abc");
    store.set("s.empty", "");
    store.set("a", Value::strings({"x"}));
    const struct {
        const char* key;
        bool plain;
        bool unlessFalse;
        std::int64_t integer;
        double number;
    } cases[] = {
        {"absent", false, true, 0, 0},
        {"b.true", true, true, 1, 1},
        {"b.false", false, false, 0, 0},
        {"i.7", true, true, 7, 7},
        {"d.2.9", true, true, 2, 2.9},
        {"d.neg", true, true, -2, -2.9},
        {"s.no", false, true, 0, 0},
        {"s.yes", true, true, 0, 0},
        {"s.12abc", true, true, 12, 12},
        {"s.empty", false, true, 0, 0},
        {"a", false, true, 0, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(store.boolean(c.key), c.plain) << c.key;
        EXPECT_EQ(store.unlessFalse(c.key), c.unlessFalse) << c.key;
        EXPECT_EQ(store.integer(c.key), c.integer) << c.key;
        EXPECT_DOUBLE_EQ(store.number(c.key), c.number) << c.key;
    }
    EXPECT_EQ(store.string("i.7"), "7");
    EXPECT_EQ(store.string("s.no"), "no");
    EXPECT_EQ(store.string("a"), std::nullopt);
    EXPECT_EQ(store.stringArray("a"), std::vector<std::string>{"x"});
    EXPECT_EQ(store.stringArray("s.no"), std::nullopt);
}

TEST(SettingsStore, RemoveAndKeys) {
    testing_support::TempDir dir;
    PlistFileStore store(dir / "s.plist");
    store.set("a", 1);
    store.set("b", 2);
    EXPECT_TRUE(store.remove("a"));
    EXPECT_TRUE(store.remove("never-there"));
    EXPECT_EQ(store.keys(), std::vector<std::string>{"b"});
    PlistFileStore other(dir / "s.plist");
    EXPECT_FALSE(other.object("a").has_value());
}

TEST(SettingsStore, AnotherProcessesWritesAppearAfterSynchronize) {
    testing_support::TempDir dir;
    PlistFileStore app(dir / "s.plist");
    PlistFileStore agent(dir / "s.plist");
    EXPECT_FALSE(agent.object("autoClean.enabled").has_value());
    app.set("autoClean.enabled", true);
    agent.synchronize();
    EXPECT_TRUE(agent.boolean("autoClean.enabled"));
    // The agent's own write keeps what the app wrote in the meantime.
    app.set("warnLowDiskGB", 25);
    agent.set("agent.alarm.lowDisk", true);
    PlistFileStore fresh(dir / "s.plist");
    EXPECT_EQ(fresh.integer("warnLowDiskGB"), 25);
    EXPECT_TRUE(fresh.boolean("agent.alarm.lowDisk"));
}

TEST(SettingsStore, UnreadableFileIsKeptAsideNotOverwrittenUnseen) {
    testing_support::TempDir dir;
    const std::string file = dir / "s.plist";
    quorv::files::writeAtomically(file, "<?xml version=\"1.0\"?><plist><dict><key>half", 0644);
    PlistFileStore store(file);
    EXPECT_FALSE(store.object("half").has_value());
    EXPECT_TRUE(store.set("warnLowDisk", false));
    EXPECT_EQ(testing_support::readText(file + ".corrupt"), "<?xml version=\"1.0\"?><plist><dict><key>half");
    PlistFileStore reread(file);
    EXPECT_FALSE(reread.unlessFalse("warnLowDisk"));
}

TEST(SettingsStore, TwoProcessesWritingDifferentKeysLoseNothing) {
    testing_support::TempDir dir;
    const std::string file = dir / "s.plist";
    constexpr int perProcess = 120;
    std::vector<pid_t> children;
    for (int p = 0; p < 2; ++p) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            PlistFileStore store(file);
            bool ok = true;
            for (int i = 0; i < perProcess; ++i) ok &= store.set("p" + std::to_string(p) + ".k" + std::to_string(i), i);
            ::_exit(ok ? 0 : 1);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    PlistFileStore store(file);
    EXPECT_EQ(store.keys().size(), 2u * perProcess);
    for (int p = 0; p < 2; ++p) {
        for (int i = 0; i < perProcess; ++i) {
            EXPECT_EQ(store.integer("p" + std::to_string(p) + ".k" + std::to_string(i)), i);
        }
    }
    // No temporary files left behind.
    int entries = 0;
    for (auto& e : std::filesystem::directory_iterator(dir.path())) {
        (void)e;
        ++entries;
    }
    EXPECT_EQ(entries, 2) << "the list and its lock file only";
}

}  // namespace
