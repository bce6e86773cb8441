// The junk, clean and autoclean commands, run as built against a sandbox Mac.

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "kit/cleaning/ProcessLock.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/PlistFileStore.hpp"

namespace {

namespace fs = std::filesystem;

struct JunkCli {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = brimstell::SandboxMac::create(dir / "mac");
    std::string cache = mac.writeFileOfSize("~/Library/Caches/com.example.app/blob", 204'800);
    std::string log = mac.writeFileOfSize("~/Library/Logs/a.log", 102'400);

    std::map<std::string, std::string> environment(const std::string& now) const {
        auto env = mac.environment();
        env["BRIMSTELL_OUTBOX"] = dir / "outbox.jsonl";
        env["TZ"] = "UTC";
        env["BRIMSTELL_NOW"] = now;
        return env;
    }
    testing_support::RunResult run(const std::vector<std::string>& args, const std::string& now = "1790000000") const {
        return testing_support::runProgram(BRIMSTELL_CLI_EXE, args, environment(now));
    }
    // What the command writes on standard error, and its status.
    testing_support::RunResult errors(const std::vector<std::string>& args, const std::string& now) const {
        std::vector<std::string> shell = {"-c", "exec \"$0\" \"$@\" 2>&1 >/dev/null", BRIMSTELL_CLI_EXE};
        shell.insert(shell.end(), args.begin(), args.end());
        return testing_support::runProgram("/bin/sh", shell, environment(now));
    }
    quorv::PlistFileStore settings() const {
        return quorv::PlistFileStore(mac.home() + "/Library/Preferences/com.quorv.brimstell.plist");
    }
};

TEST(JunkCli, ListsWhatAScanFound) {
    JunkCli s;
    auto r = s.run({"junk"});
    EXPECT_EQ(r.status, 0);
    // The folder's own block counts with its file: 204,800 + 4,096 bytes.
    EXPECT_EQ(r.output,
              "  [x] Other App Caches     205 kB  1 item\n"
              "  [x] Logs                 102 kB  1 item\n"
              "Ticked: 307 kB. `brimstell clean` moves it to the Trash; `brimstell history` puts it back.\n");

    r = s.run({"junk", "--json", "--items"});
    ASSERT_EQ(r.status, 0);
    const auto j = nlohmann::json::parse(r.output);
    EXPECT_EQ(j["tickedBytes"], 307'200);
    ASSERT_EQ(j["categories"].size(), 2u);
    const auto& logs = j["categories"][1];
    EXPECT_EQ(logs["name"], "Logs");
    EXPECT_EQ(logs["icon"], "doc.text");
    EXPECT_EQ(logs["note"], "Logs and crash reports");
    EXPECT_EQ(logs["enabled"], true);
    EXPECT_EQ(logs["admin"], false);
    EXPECT_EQ(logs["bytes"], 102'400);
    EXPECT_EQ(logs["itemCount"], 1);
    EXPECT_EQ(logs["items"][0]["path"], s.log);
    EXPECT_EQ(logs["items"][0]["label"], "a.log");
}

TEST(JunkCli, CleanAsksChoosesAndMoves) {
    JunkCli s;
    const struct {
        std::vector<std::string> args;
        int status;
        const char* lastLine;  // of standard output; "" for none
    } refusals[] = {
        {{"clean"}, 2, "  [x] Logs                 102 kB  1 item"},  // no terminal to ask on, no --yes
        {{"clean", "--category", "Nope"}, 2, ""},
        {{"clean", "--dry-run", "--category", "Logs"}, 0, "Would move 1 item (102 kB) to the Trash."},
    };
    for (const auto& c : refusals) {
        const auto r = s.run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args.back();
        std::string last = r.output;
        if (!last.empty()) last.pop_back();
        last = last.substr(last.rfind('\n') == std::string::npos ? 0 : last.rfind('\n') + 1);
        EXPECT_EQ(last, c.lastLine) << c.args.back();
        EXPECT_TRUE(fs::exists(s.cache) && fs::exists(s.log)) << "nothing moved by " << c.args.back();
    }

    auto r = s.run({"clean", "--yes", "--category", "Logs"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "  [x] Logs     102 kB  1 item\nMoved 102 kB to the Trash\n");
    EXPECT_FALSE(fs::exists(s.log));
    EXPECT_TRUE(fs::exists(s.cache)) << "only the chosen category";
    EXPECT_EQ(s.settings().integer("widget.lastFreed"), 102'400);

    r = s.run({"clean", "--yes", "--json"});
    ASSERT_EQ(r.status, 0);
    const auto j = nlohmann::json::parse(r.output);
    EXPECT_EQ(j["freedBytes"], 204'800);
    EXPECT_EQ(j["message"], "Moved 205 kB to the Trash");
    EXPECT_FALSE(fs::exists(s.cache));
}

TEST(JunkCli, AutoCleanSwitchesRunsAndPreviews) {
    JunkCli s;
    auto r = s.run({"autoclean", "on", "--frequency", "monthly", "--downloads-days", "60"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output,
              "Auto Clean: on, monthly\n"
              "  Junk ticked by default: moved to the Trash\n"
              "  Trash: left alone\n"
              "  Downloads untouched for 60 days: moved to the Trash\n"
              "Last run: never\n"
              "Next run: 2026-10-21 14:13\n");
    auto settings = s.settings();
    EXPECT_TRUE(settings.boolean("autoClean.enabled"));
    EXPECT_EQ(settings.number("autoClean.lastRun"), 1'790'000'000.0);
    EXPECT_EQ(settings.integer("autoClean.downloadsDays"), 60);

    r = s.run({"autoclean", "preview", "--json"});
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(nlohmann::json::parse(r.output)["junkBytes"], 307'200);
    EXPECT_TRUE(fs::exists(s.cache));

    r = s.run({"autoclean", "run"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "Freed 307 kB\nEverything it moved is in History, ready to restore (brimstell history).\n");
    EXPECT_FALSE(fs::exists(s.cache));
    EXPECT_FALSE(fs::exists(s.dir / "outbox.jsonl")) << "asked for by hand: no notification";
    EXPECT_EQ(s.run({"autoclean", "run"}).output, "Nothing to clean\n");

    r = s.run({"autoclean", "off"});
    EXPECT_EQ(r.output, "Auto Clean is off.\n");
    EXPECT_FALSE(s.settings().boolean("autoClean.enabled"));
}

// Every cleaning command while another process holds the clean lock (this test's own lock is
// another process's to the command): nothing moves or is deleted, one sentence, status 1.
TEST(JunkCli, EveryCleanWaitsWhileAnotherCleanRuns) {
    JunkCli s;
    const std::string thrown = s.mac.writeFileOfSize("~/Documents/thrown.txt", 4096);
    ASSERT_EQ(s.run({"trash", thrown}).status, 0);
    const std::string inTrash = s.mac.home() + "/.Trash/thrown.txt";
    ASSERT_TRUE(fs::exists(inTrash));
    const std::string dayLater = "1790086500";
    auto held = brimstell::ProcessLock::take(s.mac.home() + "/Library/Application Support/Brimstell/clean.lock");
    ASSERT_TRUE(held.has_value());

    const std::vector<std::string> commands[] = {
        {"clean", "--yes"},
        {"clean", "--yes", "--json", "--category", "Logs"},
        {"autoclean", "run"},
        {"trash-bin", "--empty-older-than", "0", "--yes"},
    };
    for (const auto& args : commands) {
        const auto r = s.errors(args, dayLater);
        EXPECT_EQ(r.status, 1) << args[0];
        EXPECT_EQ(r.output, "brimstell: Another clean is running. Try again when it has finished.\n") << args[0];
        EXPECT_TRUE(fs::exists(s.cache) && fs::exists(s.log) && fs::exists(inTrash)) << "nothing moved by " << args[0];
    }
    EXPECT_FALSE(s.settings().object("widget.lastClean").has_value());
    EXPECT_FALSE(s.settings().object("autoClean.lastRun").has_value());

    held.reset();
    const auto r = s.run({"trash-bin", "--empty-older-than", "0", "--yes"}, dayLater);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "Deleted 1 item for good, freed 4 kB.\n");
    EXPECT_EQ(s.run({"clean", "--yes"}).status, 0);
    EXPECT_FALSE(fs::exists(s.cache) || fs::exists(s.log));
}

}  // namespace
