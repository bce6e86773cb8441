// The files commands of the built brimstell against sandbox Macs: size, trash, history, restore.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/posix/Files.hpp"

namespace {

using testing_support::runProgram;

struct FilesCli {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = brimstell::SandboxMac::create(dir / "mac");

    // 1790000000 is 2026-09-21 14:13:20; no root helper listens on the socket.
    std::map<std::string, std::string> environment(const std::string& now = "1790000000") const {
        auto env = mac.environment();
        env.insert({{"TZ", "UTC"}, {"BRIMSTELL_NOW", now}, {"BRIMSTELL_HELPER_SOCKET", mac.root() + "/no-helper.sock"}});
        return env;
    }
    testing_support::RunResult run(const std::vector<std::string>& args, const std::string& now = "1790000000") const {
        return runProgram(BRIMSTELL_CLI_EXE, args, environment(now));
    }
    std::string home() const { return mac.home(); }
    std::string historyFile() const { return home() + "/Library/Application Support/Brimstell/history/history.json"; }
};

TEST(FilesCli, SizeLinesCountEachFileOnce) {
    FilesCli c;
    const std::string a = c.mac.writeFileOfSize("~/Documents/a", 102'400);
    const std::string empty = c.mac.writeFile("~/Documents/empty", "");
    const std::string feed = c.mac.writeFileOfSize("~/Documents/line\nfeed", 4096);
    const std::string missing = c.home() + "/Documents/missing";
    const std::string docs = c.home() + "/Documents";

    const auto several = c.run({"size", a, empty, missing, feed});
    EXPECT_EQ(several.status, 1) << "a missing path";
    EXPECT_EQ(several.output, " 102 kB  " + a + "\n" +
                                  "0 bytes  " + empty + "\n" +
                                  "   4 kB  $'" + docs + "/line\\nfeed'\n" +
                                  " 106 kB  total\n");
    EXPECT_EQ(several.errors, "brimstell: " + missing + ": no such file or folder\n");

    const auto one = c.run({"size", a});
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.output, "102 kB  " + a + "\n") << "no total for one path";

    // A folder and what lies in it, and a path given twice: each row whole, the total the union.
    const auto nested = c.run({"size", "--bytes", docs, a, a});
    EXPECT_EQ(nested.status, 0);
    const std::string folder = std::to_string(4096 + 102'400 + 4096);  // Documents itself, a, line feed
    EXPECT_EQ(nested.output, folder + "  " + docs + "\n" + "102400  " + a + "\n" + "102400  " + a + "\n" + folder +
                                 "  total\n");

    EXPECT_EQ(nlohmann::json::parse(c.run({"size", "--json", a, feed, missing}).output),
              nlohmann::json::parse(R"({"items": [{"path": ")" + a + R"(", "bytes": 102400, "unreadableFolders": 0},
                                                  {"path": ")" + docs + R"(/line\nfeed", "bytes": 4096, "unreadableFolders": 0},
                                                  {"path": ")" + missing + R"(", "error": "No such file or folder."}],
                                       "totalBytes": 106496, "unreadableFolders": 0})"));
}

TEST(FilesCli, SizeReportsFoldersItCouldNotRead) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads every folder";
    FilesCli c;
    const std::string inner = c.mac.writeFileOfSize("~/Documents/closed/inner", 8192);
    const std::string closed = c.home() + "/Documents/closed";
    ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
    const auto r = c.run({"size", "--json", c.home() + "/Documents"});
    ::chmod(closed.c_str(), 0755);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(nlohmann::json::parse(r.output)["unreadableFolders"], 1);
    EXPECT_EQ(r.errors, "brimstell: 1 folder couldn't be read in full; the sizes leave out what they hold\n");
}

// Two sessions: a clean of the user's caches and logs, and one of the helper's.
std::string sampleHistory(const std::string& home) {
    return R"([
  {"id": "AAAAAAAA-0000-4000-8000-000000000001", "original": ")" + home + R"(/Library/Caches/com.example.editor",
   "trashed": ")" + home + R"(/.Trash/com.example.editor", "size": 3000000, "date": 1789990000,
   "session": "11111111-1111-4111-8111-111111111111", "source": "User Caches"},
  {"id": "AAAAAAAA-0000-4000-8000-000000000002", "original": ")" + home + R"(/Library/Logs/old.log",
   "trashed": ")" + home + R"(/.Trash/old.log", "size": 400000, "date": 1789990000,
   "session": "11111111-1111-4111-8111-111111111111", "source": "User Caches"},
  {"id": "AAAAAAAA-0000-4000-8000-000000000003", "original": "/Library/Caches/com.example.daemon",
   "trashed": "/Users/ann/.Trash/com.example.daemon", "size": 1200000, "date": 1789999000,
   "session": "22222222-2222-4222-8222-222222222222", "restored": "/Library/Caches/com.example.daemon", "root": true},
  {"id": "AAAAAAAA-0000-4000-8000-000000000004", "original": "/Library/Logs/com.example.daemon.log",
   "trashed": "/Users/ann/.Trash/com.example.daemon.log", "size": 5000, "date": 1789999000,
   "session": "22222222-2222-4222-8222-222222222222", "root": true}
])";
}

TEST(FilesCli, HistoryLines) {
    FilesCli c;
    EXPECT_EQ(c.run({"history"}).output, "Nothing Cleaned Yet\n");
    EXPECT_EQ(nlohmann::json::parse(c.run({"history", "--json"}).output), nlohmann::json::array());

    ASSERT_TRUE(quorv::files::writeAtomically(c.historyFile(), sampleHistory(c.home())));
    c.mac.makeFolder("~/.Trash/com.example.editor");
    c.mac.writeFile("/Users/ann/.Trash/com.example.daemon.log", "x");
    const auto r = c.run({"history"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output,
              "Kept for 90 days · items stay restorable until the Trash is emptied\n"
              "\n"
              "2026-09-21 13:56 · freed 1.2 MB · session 22222222-2222-4222-8222-222222222222\n"
              "  AAAAAAAA-0000-4000-8000-000000000003  1.2 MB  restored      /Library/Caches/com.example.daemon\n"
              "  AAAAAAAA-0000-4000-8000-000000000004    5 kB  in the Trash  /Library/Logs/com.example.daemon.log\n"
              "\n"
              "2026-09-21 11:26 · User Caches · freed 3.4 MB · session 11111111-1111-4111-8111-111111111111\n"
              "  AAAAAAAA-0000-4000-8000-000000000001    3 MB  in the Trash  " + c.home() + "/Library/Caches/com.example.editor\n"
              "  AAAAAAAA-0000-4000-8000-000000000002  400 kB  gone          " + c.home() + "/Library/Logs/old.log\n");

    const auto json = nlohmann::ordered_json::parse(c.run({"history", "--json"}).output);
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["session"], "22222222-2222-4222-8222-222222222222");
    EXPECT_EQ(json[0]["freedBytes"], 1'205'000);
    EXPECT_EQ(json[0]["date"], "2026-09-21T13:56:40Z");
    EXPECT_FALSE(json[0].contains("source"));
    EXPECT_EQ(json[1]["source"], "User Caches");
    std::vector<std::string> keys;
    for (const auto& [k, v] : json[0]["entries"][0].items()) keys.push_back(k);
    EXPECT_EQ(keys, (std::vector<std::string>{"id", "originalPath", "trashPath", "bytes", "date", "restoredPath", "root", "status"}));
    EXPECT_EQ(json[0]["entries"][0]["status"], "restored");
    EXPECT_EQ(json[0]["entries"][1]["status"], "inTheTrash");
    EXPECT_EQ(json[1]["entries"][1]["status"], "gone");
}

TEST(FilesCli, RestoreLinesWithoutTheHelper) {
    FilesCli c;
    ASSERT_TRUE(quorv::files::writeAtomically(c.historyFile(), sampleHistory(c.home())));
    const auto before = testing_support::readText(c.historyFile());

    const auto root = c.run({"restore", "AAAAAAAA-0000-4000-8000-000000000004"});
    EXPECT_EQ(root.status, 1);
    EXPECT_EQ(root.output,
              "/Library/Logs/com.example.daemon.log: Couldn't restore: putting back what it removed needs admin access\n");

    const auto session = c.run({"restore", "--session", "22222222-2222-4222-8222-222222222222", "--json"});
    const auto json = nlohmann::json::parse(session.output);
    ASSERT_EQ(json.size(), 1u) << "the entry already back is left out";
    EXPECT_EQ(json[0]["id"], "AAAAAAAA-0000-4000-8000-000000000004");
    EXPECT_EQ(json[0]["restored"], false);
    EXPECT_EQ(json[0]["reason"], "putting back what it removed needs admin access");

    const auto unknown = c.run({"restore", "BBBBBBBB-0000-4000-8000-000000000001"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.output, "");
    EXPECT_EQ(c.run({"restore"}).status, 2);
    EXPECT_EQ(testing_support::readText(c.historyFile()), before) << "nothing restored, nothing written";
}

TEST(FilesCli, TrashHistoryRestoreRoundTrip) {
    FilesCli c;
    const std::string h = c.home();
    const std::string a = c.mac.writeFileOfSize("~/Library/Logs/a.log", 102'400);
    const std::string b = c.mac.writeFileOfSize("~/Library/Logs/b.log", 4096);
    const std::string notes = c.mac.writeFile("~/Library/CloudStorage/Dropbox/notes.txt", "synced");
    const std::string missing = h + "/Library/Logs/missing.log";
    const auto first = c.run({"trash", a, b, notes, missing});
    EXPECT_EQ(first.status, 1);
    EXPECT_EQ(first.output,
              a + ": moved to " + h + "/.Trash/a.log\n" +
              b + ": moved to " + h + "/.Trash/b.log\n" +
              notes + ": not moved: It is synced to the cloud: removing it here would remove it everywhere.\n" +
              missing + ": not moved: Nothing is there.\n" +
              "Freed 106 kB.\n");
    EXPECT_EQ(testing_support::readText(notes), "synced");

    const std::string app = h + "/Library/Caches/app";
    const std::string inner = c.mac.writeFile("~/Library/Caches/app/inner", "inner");
    const auto second = c.run({"trash", "--json", inner, app});
    EXPECT_EQ(second.status, 0);
    const auto moved = nlohmann::json::parse(second.output);
    EXPECT_EQ(moved["items"][0]["path"], inner);
    EXPECT_EQ(moved["items"][0]["moved"], true);
    EXPECT_EQ(moved["items"][0]["movedWithPath"], app);
    EXPECT_EQ(moved["items"][1]["trashPath"], h + "/.Trash/app");

    const auto history = nlohmann::json::parse(c.run({"history", "--json"}).output);
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0]["source"], "Command line");
    ASSERT_EQ(history[1]["entries"].size(), 2u);
    const std::string idA = history[1]["entries"][0]["id"], idB = history[1]["entries"][1]["id"];
    const std::string session = history[0]["session"];

    c.mac.writeFile("~/Library/Logs/a.log", "a new a.log");
    const auto restored = c.run({"restore", idA, idB, idA});
    EXPECT_EQ(restored.status, 1);
    EXPECT_EQ(restored.output,
              a + ": restored to " + h + "/Library/Logs/a (restored).log\n" +
              b + ": restored to " + b + "\n" +
              a + ": Couldn't restore: It's no longer in the Trash.\n");
    EXPECT_EQ(testing_support::readText(h + "/Library/Logs/a (restored).log"), std::string(102'400, 'x'));
    EXPECT_EQ(testing_support::readText(a), "a new a.log");

    const auto bySession = c.run({"restore", "--session", session});
    EXPECT_EQ(bySession.status, 0);
    EXPECT_EQ(bySession.output, app + ": restored to " + app + "\n");
    EXPECT_EQ(testing_support::readText(inner), "inner");
    EXPECT_EQ(c.run({"restore", "--session", session}).output, "Everything of that session is back already.\n");
    EXPECT_EQ(c.run({"trash-bin"}).output, "The Trash is empty.\n");
}

// Runs the command with a terminal as its standard input and output, typing `typed`.
std::string runOnTerminal(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
                          const std::string& typed) {
    std::vector<std::string> envStrings{"PATH=/usr/bin:/bin"};
    for (const auto& [k, v] : env) envStrings.push_back(k + "=" + v);
    std::vector<char*> argv{const_cast<char*>(BRIMSTELL_CLI_EXE)}, envp;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    for (auto& e : envStrings) envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    int master = -1;
    const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        ::execve(BRIMSTELL_CLI_EXE, argv.data(), envp.data());
        ::_exit(127);
    }
    if (pid < 0) return "forkpty failed";
    if (::write(master, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size())) return "write failed";
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(master, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(master);
    ::waitpid(pid, nullptr, 0);
    return out;
}

TEST(FilesCli, TrashBinListsAndEmptiesOldItems) {
    FilesCli c;
    const std::string h = c.home();
    EXPECT_EQ(c.run({"trash-bin"}).output, "The Trash is empty.\n");
    const std::string x = c.mac.writeFileOfSize("~/Library/Logs/x.log", 102'400);
    ASSERT_EQ(c.run({"trash", x}).status, 0);
    EXPECT_EQ(c.run({"trash-bin"}).output,
              "102 kB  2026-09-21 14:13  " + h + "/.Trash/x.log  from " + x + "\n" +
              "1 item · 102 kB\n");
    const auto listed = nlohmann::json::parse(c.run({"trash-bin", "--json"}).output);
    EXPECT_EQ(listed[0]["path"], h + "/.Trash/x.log");
    EXPECT_EQ(listed[0]["originalPath"], x);
    EXPECT_EQ(listed[0]["bytes"], 102'400);
    EXPECT_EQ(listed[0]["addedAt"], "2026-09-21T14:13:20Z");

    const std::string monthLater = "1792678400";  // 31 days on
    EXPECT_EQ(c.run({"trash-bin", "--empty-older-than", "31"}, monthLater).output,
              "Nothing in the Trash is older than 31 days.\n");
    const auto refused = c.run({"trash-bin", "--empty-older-than", "30"}, monthLater);
    EXPECT_EQ(refused.status, 2) << "no terminal to ask on, and no --yes";
    EXPECT_EQ(refused.output, "");
    EXPECT_TRUE(testing_support::exists(h + "/.Trash/x.log"));

    const std::string no = runOnTerminal({"trash-bin", "--empty-older-than", "30"}, c.environment(monthLater), "n\n");
    EXPECT_NE(no.find("Delete 1 item (102 kB) for good? [y/N] "), std::string::npos) << no;
    EXPECT_NE(no.find("Nothing deleted."), std::string::npos) << no;
    EXPECT_TRUE(testing_support::exists(h + "/.Trash/x.log"));

    const std::string yes = runOnTerminal({"trash-bin", "--empty-older-than", "30"}, c.environment(monthLater), "y\n");
    EXPECT_NE(yes.find("Deleted 1 item for good, freed 102 kB."), std::string::npos) << yes;
    EXPECT_FALSE(testing_support::exists(h + "/.Trash/x.log"));

    const std::string y = c.mac.writeFileOfSize("~/Library/Logs/y.log", 4096);
    ASSERT_EQ(c.run({"trash", y}).status, 0);
    EXPECT_EQ(c.run({"trash-bin", "--empty-older-than", "30", "--yes"}, monthLater).output,
              "Deleted 1 item for good, freed 4 kB.\n");
    EXPECT_EQ(c.run({"trash-bin"}).output, "The Trash is empty.\n");
}

}  // namespace
