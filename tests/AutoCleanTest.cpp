// Auto Clean's runs against sandbox Macs: what it moves and leaves, the keys it writes, its one
// notification, the lock held by another process, the schedule, and the one-click clean.

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "kit/cleaning/AutoClean.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "kit/cleaning/ProcessLock.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "kit/files/TrashBin.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/SettingsStore.hpp"
#include "support/text/SizeText.hpp"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using brimstell::AutoClean;

struct AutoCleanSandbox {
    testing_support::SandboxHost sh;
    quorv::HostScope scope{sh.host};
    quorv::SettingsStore& settings = quorv::settings();

    bool exists(const std::string& homePath) const { return fs::exists(sh.mac.path("~/" + homePath)); }
    std::string junk(const std::string& homePath, std::size_t bytes) { return sh.mac.writeFileOfSize("~/" + homePath, bytes); }
};

TEST(AutoClean, ARunMovesTheSafeJunkOnlyAndNotifiesOnce) {
    AutoCleanSandbox s;
    s.junk("Library/Caches/com.example.app/blob", 2'000'000);
    s.junk("Library/Logs/old.log", 1'000'000);
    s.junk("Library/Developer/Xcode/Archives/A/x", 500'000);                              // not selected
    s.junk("Library/Application Support/Google/Chrome/Default/Service Worker/CacheStorage/x", 300'000);  // not ticked
    s.junk(".Trash/thrown.txt", 100'000);                                                  // the Trash rule's only

    AutoClean autoClean;
    const auto freed = autoClean.run(false);
    ASSERT_TRUE(freed.has_value());
    EXPECT_GE(*freed, 3'000'000);
    EXPECT_FALSE(s.exists("Library/Caches/com.example.app"));
    EXPECT_FALSE(s.exists("Library/Logs/old.log"));
    EXPECT_TRUE(s.exists("Library/Developer/Xcode/Archives/A/x"));
    EXPECT_TRUE(s.exists("Library/Application Support/Google/Chrome/Default/Service Worker/CacheStorage/x"));
    EXPECT_TRUE(s.exists(".Trash/thrown.txt"));

    const std::string size = quorv::formatSize(*freed);
    EXPECT_EQ(autoClean.message, "Freed " + size);
    EXPECT_EQ(s.sh.notifier->sent(), (std::vector<std::pair<std::string, std::string>>{
                                         {"Auto Clean freed " + size, "Everything it moved is in History, ready to restore."}}));
    EXPECT_EQ(s.settings.number("autoClean.lastRun"), s.sh.now);
    EXPECT_EQ(s.settings.integer("autoClean.lastFreed"), *freed);
    EXPECT_TRUE(s.settings.boolean("autoClean.ranOnce"));
    EXPECT_EQ(s.settings.number("widget.lastClean"), s.sh.now);
    EXPECT_EQ(s.settings.integer("widget.lastFreed"), *freed);
    const auto sessions = brimstell::History::shared().sessions();
    ASSERT_FALSE(sessions.empty());
    EXPECT_EQ(sessions[0].source, "Auto Clean");

    // Asked for by hand: the same work, no notification.
    s.junk("Library/Logs/newer.log", 1'000'000);
    ASSERT_TRUE(autoClean.run(true).has_value());
    EXPECT_EQ(s.sh.notifier->sent().size(), 1u);
}

TEST(AutoClean, ARunThatFreesNothingStillRecordsItselfAndSendsNothing) {
    AutoCleanSandbox s;
    s.settings.set("autoClean.lastFreed", 5'000'000);
    AutoClean autoClean;
    EXPECT_EQ(autoClean.run(false), 0);
    EXPECT_EQ(autoClean.message, "Nothing to clean");
    EXPECT_FALSE(autoClean.running);
    EXPECT_TRUE(s.sh.notifier->sent().empty());
    EXPECT_EQ(s.settings.number("autoClean.lastRun"), s.sh.now);
    EXPECT_EQ(s.settings.integer("autoClean.lastFreed"), 0);
    EXPECT_TRUE(s.settings.boolean("autoClean.ranOnce"));
    EXPECT_EQ(s.settings.integer("widget.lastFreed"), 0);
}

TEST(AutoClean, OldDownloadsAndOldTrashItemsGoWhenTheirRulesAreOn) {
    AutoCleanSandbox s;
    s.settings.set("autoClean.junk", false);
    s.settings.set("autoClean.downloads", true);
    s.settings.set("autoClean.emptyTrash", true);
    const double created = s.sh.now;
    // Put something in the Trash now, and write two downloads.
    const auto thrown = s.junk("Documents/thrown.txt", 400'000);
    ASSERT_EQ(brimstell::FS::trash(std::vector<std::string>{thrown}).moved.size(), 1u);
    const auto report = s.junk("Downloads/report.pdf", 300'000);
    const auto partial = s.junk("Downloads/movie.mp4.crdownload", 300'000);
    const auto fresh = s.junk("Downloads/fresh.pdf", 300'000);

    // A hundred days on; the two old downloads were last touched on the day they came.
    const double later = created + 100 * 86'400.0;
    const double wallNow = static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(
                                                   std::chrono::system_clock::now().time_since_epoch())
                                                   .count());
    s.sh.setNow(std::max(later, wallNow + 100 * 86'400.0));  // the status-change time is the wall clock's
    const double old = s.sh.now - 100 * 86'400.0;
    brimstell::SandboxMac::setTimes(report, old);
    brimstell::SandboxMac::setTimes(partial, old);
    brimstell::SandboxMac::setTimes(fresh, s.sh.now - 86'400);

    AutoClean autoClean;
    const auto freed = autoClean.run(true);
    ASSERT_TRUE(freed.has_value());
    EXPECT_FALSE(fs::exists(report)) << "untouched for 100 days";
    EXPECT_TRUE(fs::exists(partial)) << "a download in progress is never taken";
    EXPECT_TRUE(fs::exists(fresh));
    for (const auto& item : brimstell::TrashBin::items()) {
        EXPECT_EQ(item.originalPath, report) << "only the download is in the Trash now; the old item is gone for good";
    }
    EXPECT_GE(*freed, 700'000);
}

// A real second process holds the lock: the run does nothing and leaves no trace.
TEST(AutoClean, ALockHeldByAnotherProcessMeansNothingHappens) {
    AutoCleanSandbox s;
    const auto flockTool = testing_support::findTool("flock");
    ASSERT_TRUE(flockTool.has_value()) << "util-linux's flock holds the lock from another process (scripts/setup.sh installs it)";
    s.junk("Library/Logs/old.log", 1'000'000);
    const std::string lock = AutoClean::lockFile();
    fs::create_directories(fs::path(lock).parent_path());

    pid_t pid = 0;
    // -o: the lock stays with flock itself, not with the sleep it starts.
    std::vector<std::string> args = {*flockTool, "-x", "-o", lock, "sleep", "30"};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);  // its own group, ended as one below
    const int spawned = posix_spawn(&pid, flockTool->c_str(), nullptr, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    ASSERT_EQ(spawned, 0);
    // Wait until the other process holds it.
    bool held = false;
    for (int i = 0; i < 200 && !held; ++i) {
        held = !brimstell::ProcessLock::take(lock).has_value();
        if (!held) std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    ASSERT_TRUE(held);

    AutoClean autoClean;
    EXPECT_FALSE(autoClean.run(false).has_value());
    EXPECT_FALSE(autoClean.running);
    EXPECT_TRUE(s.exists("Library/Logs/old.log"));
    EXPECT_FALSE(s.settings.object("autoClean.lastRun").has_value());
    EXPECT_FALSE(s.settings.object("autoClean.ranOnce").has_value());
    EXPECT_TRUE(brimstell::History::shared().entries().empty());
    EXPECT_TRUE(s.sh.notifier->sent().empty());

    ::kill(-pid, SIGTERM);
    int status = 0;
    ::waitpid(pid, &status, 0);
    // flock's child may still be on its way out with the lock's descriptor; it is not ours to reap.
    for (int i = 0; i < 200 && !brimstell::ProcessLock::take(lock); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    EXPECT_TRUE(autoClean.run(true).has_value()) << "free again once the other process ended";
    EXPECT_FALSE(s.exists("Library/Logs/old.log"));
}

TEST(AutoClean, TheScheduleStartsOnePeriodAfterSwitchingOn) {
    AutoCleanSandbox s;
    EXPECT_FALSE(AutoClean::nextRun().has_value()) << "off";
    s.settings.set("autoClean.enabled", true);
    s.settings.set("autoClean.lastRun", 0.0);
    EXPECT_FALSE(AutoClean::nextRun().has_value()) << "never ran";

    AutoClean::turnedOn();
    EXPECT_EQ(s.settings.number("autoClean.lastRun"), s.sh.now);
    EXPECT_EQ(AutoClean::nextRun(), s.sh.now + 7 * 86'400) << "weekly when no frequency was chosen";
    s.sh.setNow(s.sh.now + 3600);
    AutoClean::turnedOn();
    EXPECT_EQ(s.settings.number("autoClean.lastRun"), s.sh.now - 3600) << "a recorded run is kept";

    const double jan31 = 1'801'353'600;  // 2027-01-31 00:00 UTC
    s.settings.set("autoClean.lastRun", jan31);
    s.settings.set("autoClean.frequency", "monthly");
    EXPECT_EQ(AutoClean::nextRun(), jan31 + 28 * 86'400) << "the end of February";
    s.settings.set("autoClean.frequency", "daily");
    EXPECT_EQ(AutoClean::nextRun(), jan31 + 86'400);
}

TEST(AutoClean, OneClickCleanSaysWhatItDid) {
    AutoCleanSandbox s;
    auto report = AutoClean::cleanSafeJunk();
    EXPECT_EQ(report.title, "Nothing to clean");
    EXPECT_EQ(report.body, "There was no safe junk to move.");
    EXPECT_EQ(s.settings.integer("widget.lastFreed"), 0);
    EXPECT_EQ(s.settings.number("widget.lastClean"), s.sh.now);

    s.junk("Library/Caches/com.example.app/blob", 2'000'000);
    report = AutoClean::cleanSafeJunk();
    EXPECT_EQ(report.title, "Cleaned " + quorv::formatSize(report.freed));
    EXPECT_GE(report.freed, 2'000'000);
    EXPECT_EQ(report.body, "Everything moved is in Cleaning History, ready to restore.");
    EXPECT_EQ(s.settings.integer("widget.lastFreed"), report.freed);
    EXPECT_FALSE(s.exists("Library/Caches/com.example.app"));
}

// Every cleaning engine, while another clean holds the lock (a lock file description of its own,
// as another process has): nothing moves, nothing is recorded, and each says so.
TEST(AutoClean, EveryCleanMovesNothingWhileAnotherHoldsTheLock) {
    AutoCleanSandbox s;
    s.junk("Library/Caches/com.example.app/blob", 2'000'000);
    const auto thrown = s.junk("Documents/thrown.txt", 400'000);
    ASSERT_EQ(brimstell::FS::trash(std::vector<std::string>{thrown}).moved.size(), 1u);
    s.sh.setNow(s.sh.now + 2 * 86'400.0);
    auto other = brimstell::ProcessLock::take(AutoClean::lockFile());
    ASSERT_TRUE(other.has_value());

    const struct {
        const char* what;
        std::function<bool()> busy;  // runs the clean; whether it said another clean is running
    } rows[] = {
        {"one-click clean",
         [] {
             const auto report = AutoClean::cleanSafeJunk();
             return report.busy && report.freed == 0 &&
                    report.title == "Another clean is running. Try again when it has finished.";
         }},
        {"junk list",
         [] {
             auto sources = brimstell::JunkModel::defaultSources();
             sources.adminEnabled = [] { return false; };
             brimstell::JunkModel model(sources);
             model.scan();
             const auto result = model.clean("Junk");
             return result.busy && result.moved == 0 &&
                    model.message == "Another clean is running. Try again when it has finished.";
         }},
        {"old Trash items", [] { return brimstell::TrashBin::emptyOlderThan(1) == std::nullopt; }},
        {"chosen Trash items", [] { return !brimstell::TrashBin::emptyItems(brimstell::TrashBin::items()).has_value(); }},
        {"Auto Clean", [] { return !AutoClean().run(true).has_value(); }},
    };
    const auto sessions = brimstell::History::shared().sessions().size();
    for (const auto& row : rows) {
        EXPECT_TRUE(row.busy()) << row.what;
        EXPECT_TRUE(s.exists("Library/Caches/com.example.app/blob")) << row.what;
        EXPECT_EQ(brimstell::TrashBin::items().size(), 1u) << row.what;
        EXPECT_EQ(brimstell::History::shared().sessions().size(), sessions) << row.what;
        EXPECT_FALSE(s.settings.object("widget.lastClean").has_value()) << row.what;
    }

    // Once it is free, the same one-click clean moves the junk.
    other.reset();
    EXPECT_GE(AutoClean::cleanSafeJunk().freed, 2'000'000);
    EXPECT_FALSE(s.exists("Library/Caches/com.example.app"));
}

// This process holds the lock, as an Auto Clean run does while it cleans: the engines it calls
// take it again, on this thread or the background pool's, and it stays held until the last goes.
TEST(AutoClean, TheCleanLockIsTakenAgainWithinTheProcess) {
    AutoCleanSandbox s;
    s.junk("Library/Logs/old.log", 1'000'000);
    auto held = brimstell::CleanLock::take();
    ASSERT_TRUE(held.has_value());
    EXPECT_FALSE(AutoClean::cleanSafeJunk().busy);
    EXPECT_FALSE(s.exists("Library/Logs/old.log"));
    s.junk("Library/Logs/newer.log", 1'000'000);
    EXPECT_TRUE(AutoClean().run(true).has_value());
    EXPECT_FALSE(s.exists("Library/Logs/newer.log"));
    EXPECT_FALSE(brimstell::ProcessLock::take(AutoClean::lockFile()).has_value()) << "still held by the outer take";
    held.reset();
    EXPECT_TRUE(brimstell::ProcessLock::take(AutoClean::lockFile()).has_value()) << "free with the last holder";
}

TEST(AutoClean, PreviewMeasuresWithoutMoving) {
    AutoCleanSandbox s;
    s.junk("Library/Caches/com.example.app/blob", 2'000'000);
    AutoClean autoClean;
    const auto p = autoClean.computePreview();
    EXPECT_GE(p.junk, 2'000'000);
    EXPECT_EQ(p.trash, 0) << "the Trash rule is off by default";
    EXPECT_EQ(p.downloads, 0);
    EXPECT_EQ(autoClean.preview->total(), p.total());
    EXPECT_TRUE(s.exists("Library/Caches/com.example.app/blob"));
    EXPECT_TRUE(brimstell::History::shared().entries().empty());
}

}  // namespace
