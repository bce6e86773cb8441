// What the mover refuses whoever asks: malformed paths, Brimstell's own state, the home's older
// sync folders, and, run as root, what the helper's rules protect. Also end to end through the CLI.

#include <gtest/gtest.h>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "kit/files/MoverGuard.hpp"
#include "kit/files/SandboxTrash.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using brimstell::MoverGuard;
using testing_support::exists;

constexpr const char* ownText = "It holds Brimstell's own records.";
constexpr const char* syncedText = "It is synced to the cloud: removing it here would remove it everywhere.";
constexpr const char* protectedText = "It is protected: the helper never touches it.";

struct Row {
    std::string path;
    std::optional<std::string> refusal;
};

void expectRefusals(const std::vector<Row>& rows) {
    for (const auto& row : rows) {
        EXPECT_EQ(MoverGuard::refusal(row.path), row.refusal) << row.path;
    }
}

// A sandbox Mac whose Trash is the sandbox one, so items really move and restore.
struct MacMover {
    testing_support::SandboxHost s;
    quorv::HostScope scope{(s.host->trash = std::make_shared<brimstell::SandboxTrash>(), s.host)};
    std::string home(const std::string& rel = "") const { return s.mac.home() + (rel.empty() ? "" : "/" + rel); }
    std::string appSupport(const std::string& rel) const { return home("Library/Application Support/Brimstell/" + rel); }
};

TEST(MoverGuard, MalformedPathsAreRefusedAndTrailingSlashesRestore) {
    MacMover m;
    const std::string folder = m.home("Documents/folder");
    m.s.mac.writeFile("~/Documents/folder/inner", "inner");
    const std::vector<Row> rows = {
        {"", "No path was given."},
        {"Documents/folder", "Its path isn't a full path."},
        {m.home("Documents/./folder"), "Its path holds \".\" or \"..\"."},
        {m.home("Documents/folder/.."), "Its path holds \".\" or \"..\"."},
        {m.home("Documents/.folder"), std::nullopt},
        {m.home("Documents//folder//"), std::nullopt},
    };
    expectRefusals(rows);

    const auto r = brimstell::FS::trash(std::vector<std::string>{"", folder + "//"});
    EXPECT_EQ(r.failed, std::vector<std::string>{""}) << "nothing of the working folder moved";
    EXPECT_EQ(r.reasons.at(""), "No path was given.");
    ASSERT_EQ(r.moved.size(), 1u);
    EXPECT_EQ(r.moved[0].original, folder) << "recorded without the slashes";

    auto entries = brimstell::History::shared().entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(brimstell::History::shared().restore(entries[0]).restoredTo, folder);
    EXPECT_EQ(testing_support::readText(folder + "/inner"), "inner");

    entries[0].restoredTo.reset();
    entries[0].original = "Documents/folder";
    EXPECT_EQ(brimstell::History::shared().restore(entries[0]).message(),
              "Couldn't restore: Its original place isn't a full path.");
}

TEST(MoverGuard, BrimstellsOwnStateAndWhatHoldsItStay) {
    MacMover m;
    const std::string root = m.s.mac.root();
    m.s.mac.writeFile("~/Library/Application Support/Brimstell/history/history.json", "[]");
    testing_support::makeFolders(m.home("Documents"));
    ASSERT_EQ(::symlink(m.appSupport("").c_str(), m.home("Documents/via").c_str()), 0);
    // The health history kept elsewhere through a link: where it leads is kept too.
    m.s.mac.writeFile("~/Documents/kept/health.json", "{}");
    ASSERT_EQ(::symlink(m.home("Documents/kept").c_str(), m.appSupport("health-history.json").c_str()), 0);
    expectRefusals({
        {m.appSupport("history"), ownText},
        {m.appSupport("history/"), ownText},
        {m.appSupport("history/history.json"), ownText},
        {m.appSupport("health-history.json"), ownText},
        {m.appSupport("clean.lock"), ownText},
        {m.home("Library/Preferences/com.quorv.brimstell.plist"), ownText},
        {m.home("Library/Group Containers/K3Q8ZT2WMX.com.quorv.brimstell/widget.json"), ownText},
        {root + "/Library/Application Support/Brimstell/helper-moved.log", ownText},
        {root + "/Library/Application Support/Brimstell/restore/stashed", ownText},
        {m.appSupport(""), ownText},
        {m.home("Library"), ownText},
        {m.home(), ownText},
        {root + "/Library", ownText},
        {root, ownText},
        {m.home("library/APPLICATION SUPPORT/brimstell/History"), ownText},  // a Mac ignores case
        {m.home("Documents/via/history"), ownText},                          // through a linked folder
        {m.home("Documents/via"), std::nullopt},                             // the link itself moves
        {m.home("Documents/kept/health.json"), ownText},                    // what a link of ours leads to
        {m.appSupport("other.txt"), std::nullopt},
        {m.home("Library/Preferences/com.example.plist"), std::nullopt},
        {m.home("Library/Caches/x"), std::nullopt},
    });

    const auto r = brimstell::FS::trash(std::vector<std::string>{m.appSupport("history"), m.home("Library")});
    EXPECT_TRUE(r.moved.empty());
    EXPECT_EQ(r.reasons.at(m.home("Library")), ownText);
    EXPECT_EQ(testing_support::readText(m.appSupport("history/history.json")), "[]");
}

TEST(MoverGuard, LinuxStateFoldersStayToo) {
    testing_support::LinuxTrashHost env;
    quorv::HostScope scope(env.host);
    expectRefusals({
        {env.home + "/.local/state/brimstell/history/history.json", ownText},
        {env.home + "/.local/state/brimstell/K3Q8ZT2WMX.com.quorv.brimstell", ownText},
        {env.home + "/.config/brimstell/settings.plist", ownText},
        {env.home + "/.local", ownText},
        {env.home + "/.Local/share/brimstell/history", std::nullopt},  // Linux names keep their case
        {env.home + "/.cache/x", std::nullopt},
    });
}

// Relative to the home, any case, on a Mac and on Linux alike.
TEST(MoverGuard, OlderSyncFoldersAreRefusedButTheirCachesMove) {
    const std::vector<std::pair<std::string, bool>> rows = {
        {"Dropbox/x", true},          {"Dropbox (Personal)/x", true}, {"dropbox", true},
        {"OneDrive - Acme/x", true},  {"Google Drive/My Drive/x", true}, {"MEGA/x", true},
        {"MEGAsync/x", true},         {"pCloud Drive/x", true},       {"Box/x", true},
        {"box", true},                {"Box Sync/x", true},           {"Sync/x", true},
        {"SYNC", true},               {"Dropbox/.dropbox.cache", false}, {"Dropbox/sub/.debris", false},
        {"Boxes/x", false},           {"Syncthing/x", false},         {"Documents/x", false},
    };
    testing_support::SandboxHost mac;
    testing_support::LinuxTrashHost onLinux;
    for (const auto& host : {mac.host, onLinux.host}) {
        quorv::HostScope scope(host);
        for (const auto& [rel, refused] : rows) {
            EXPECT_EQ(MoverGuard::refusal(host->home + "/" + rel), refused ? std::optional<std::string>(syncedText)
                                                                           : std::nullopt)
                << rel << (host->isMac() ? " on a Mac" : " on Linux");
        }
    }
}

TEST(MoverGuard, RootAppliesTheHelpersRules) {
    if (::geteuid() != 0) GTEST_SKIP() << "the helper's rules apply only to a process run as root";
    MacMover m;
    ASSERT_EQ(m.s.host->uid, 0u);
    const std::string root = m.s.mac.root();
    const std::string tool = m.s.mac.writeFile("/usr/bin/tool", "#!/bin/sh\n");
    expectRefusals({
        {tool, protectedText},
        {root + "/USR/BIN/tool", protectedText},
        {root + "/Library/Caches", protectedText},
        {root + "/Applications/Tools", protectedText},
        {root + "/Applications/Tool.app", std::nullopt},
        {root + "/usr/local/bin/tool", std::nullopt},
        {m.home("Library/Caches/x"), std::nullopt},
    });
    EXPECT_TRUE(brimstell::FS::trash(std::vector<std::string>{tool}).moved.empty());
    EXPECT_EQ(testing_support::readText(tool), "#!/bin/sh\n");

    brimstell::HistoryEntry e;
    e.id = "AAAAAAAA-0000-4000-8000-000000000001";
    e.session = "11111111-1111-4111-8111-111111111111";
    e.original = tool;
    e.trashed = m.home(".Trash/tool");
    EXPECT_EQ(brimstell::History::shared().restore(e).message(),
              "Couldn't restore: It is protected: the helper never touches it.");
}

// ---- Through the command line ----

struct Cli {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = brimstell::SandboxMac::create(dir / "mac");
    // Runs brimstell in the folder cwd; no root helper listens on the socket.
    testing_support::RunResult run(const std::string& cwd, const std::vector<std::string>& args) const {
        auto env = mac.environment();
        env.insert({{"TZ", "UTC"}, {"BRIMSTELL_NOW", "1790000000"},
                    {"BRIMSTELL_HELPER_SOCKET", mac.root() + "/no-helper.sock"}});
        std::vector<std::string> shellArgs{"-c", "cd \"$0\" && exec \"$@\"", cwd, BRIMSTELL_CLI_EXE};
        shellArgs.insert(shellArgs.end(), args.begin(), args.end());
        return testing_support::runProgram("/bin/sh", shellArgs, env);
    }
};

TEST(MoverGuardCli, EmptyRelativeAndSlashedPathsRoundTrip) {
    Cli c;
    const std::string h = c.mac.home(), work = h + "/Documents/work";
    c.mac.writeFile("~/Documents/work/rel.txt", "rel");
    c.mac.writeFile("~/Documents/work/folder/inner", "inner");

    const auto empty = c.run(work, {"trash", ""});
    EXPECT_EQ(empty.status, 1);
    EXPECT_EQ(empty.output, "\"\": not moved: No path was given.\n");
    EXPECT_TRUE(exists(work + "/rel.txt")) << "the working folder stays";

    const auto moved = c.run(work, {"trash", "rel.txt", "folder/"});
    EXPECT_EQ(moved.status, 0);
    EXPECT_EQ(moved.output.substr(0, moved.output.find("Freed ")),
              work + "/rel.txt: moved to " + h + "/.Trash/rel.txt\n" + work + "/folder: moved to " + h + "/.Trash/folder\n");

    const auto history = nlohmann::json::parse(c.run(work, {"history", "--json"}).output);
    ASSERT_EQ(history.size(), 1u);
    ASSERT_EQ(history[0]["entries"].size(), 2u);
    const std::string folderId = history[0]["entries"][1]["id"];
    const auto restored = c.run(work, {"restore", folderId});
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.output, work + "/folder: restored to " + work + "/folder\n");
    EXPECT_EQ(testing_support::readText(work + "/folder/inner"), "inner");

    const auto own = c.run(work, {"trash", "../../Library/Application Support/Brimstell/history", "../../Dropbox"});
    EXPECT_EQ(own.status, 1);
    EXPECT_EQ(own.output, h + "/Library/Application Support/Brimstell/history: not moved: " + ownText + "\n" +
                          h + "/Dropbox: not moved: " + syncedText + "\n");
}

TEST(MoverGuardCli, RootIsRefusedWhatTheHelperProtects) {
    if (::geteuid() != 0) GTEST_SKIP() << "the helper's rules apply only to a process run as root";
    Cli c;
    const std::string tool = c.mac.writeFile("/usr/bin/tool", "#!/bin/sh\n");
    const auto r = c.run(c.mac.home(), {"trash", tool});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.output, tool + ": not moved: " + protectedText + "\n");
    EXPECT_EQ(testing_support::readText(tool), "#!/bin/sh\n");
}

}  // namespace
