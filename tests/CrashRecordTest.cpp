// `brimstell trash` killed with SIGKILL in the middle of a batch: everything gone from its place
// is in the history and can be put back, and the Trash holds no empty or partial .trashinfo.

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kit/files/History.hpp"
#include "kit/files/TrashInfo.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/posix/Files.hpp"
#include "support/text/Uuid.hpp"

namespace {

using brimstell::History;
using brimstell::HistoryEntry;
using namespace testing_support;

constexpr int items = 3000;

std::string realOf(const std::string& path) { return quorv::LinkSafe::resolve(path).value_or(""); }

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> out;
    if (DIR* d = ::opendir(folder.c_str())) {
        while (const dirent* e = ::readdir(d)) {
            const std::string name = e->d_name;
            if (name != "." && name != "..") out.push_back(name);
        }
        ::closedir(d);
    }
    return out;
}

// Starts the command line with the sandbox's environment (nothing of ours that steers Brimstell).
pid_t start(const std::vector<std::string>& args, const std::map<std::string, std::string>& environment) {
    std::map<std::string, std::string> merged;
    for (char** e = environ; e && *e; ++e) {
        const std::string kv(*e);
        const auto eq = kv.find('=');
        if (eq != std::string::npos && kv.rfind("BRIMSTELL_", 0) != 0 && kv.rfind("XDG_", 0) != 0) {
            merged[kv.substr(0, eq)] = kv.substr(eq + 1);
        }
    }
    for (const auto& [k, v] : environment) merged[k] = v;
    std::vector<std::string> envStrings;
    for (const auto& [k, v] : merged) envStrings.push_back(k + "=" + v);
    std::vector<char*> envp, argv{const_cast<char*>(BRIMSTELL_CLI_EXE)};
    for (auto& s : envStrings) envp.push_back(s.data());
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    envp.push_back(nullptr);
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::freopen("/dev/null", "w", stdout);
        ::execve(BRIMSTELL_CLI_EXE, argv.data(), envp.data());
        ::_exit(127);
    }
    return pid;
}

struct CrashPlace {
    const char* name;
    std::shared_ptr<void> keep;  // the sandbox
    std::shared_ptr<quorv::Host> host;
    std::map<std::string, std::string> environment;
    std::string folder;       // where the items lie (a real path)
    std::string infoFolder;   // the Trash's info/ folder, when it has one
};

CrashPlace macPlace() {
    auto s = std::make_shared<SandboxHost>();
    auto env = s->mac.environment();
    env["TZ"] = "UTC";
    return {"sandbox Mac", s, s->host, env, realOf(s->mac.home()) + "/Junk", ""};
}

CrashPlace linuxPlace() {
    auto l = std::make_shared<LinuxTrashHost>();
    return {"freedesktop Trash", l, l->host, l->toolEnvironment(), l->home + "/junk", l->trash + "/info"};
}

TEST(CrashRecord, KilledMidBatchLosesNothingFromTheHistory) {
    for (auto make : {macPlace, linuxPlace}) {
        CrashPlace p = make();
        quorv::HostScope scope(p.host);
        makeFolders(p.folder);
        std::vector<std::string> args{"trash"};
        for (int i = 0; i < items; ++i) {
            const std::string name = (i % 500 == 7 ? "odd\nname \xff " : "item ") + std::to_string(i);
            writeBytes(p.folder + "/" + name, std::to_string(i));
            args.push_back(p.folder + "/" + name);
        }
        const pid_t pid = start(args, p.environment);
        ASSERT_GT(pid, 0);
        // Killed once a good part has moved: bounded by the number of looks, not by a clock.
        for (int look = 0; look < 200'000 && namesIn(p.folder).size() > items - 200; ++look) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        ::kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status)) << p.name << ": the batch ended before the kill";

        std::set<std::string> left;
        for (const auto& n : namesIn(p.folder)) left.insert(p.folder + "/" + n);
        std::map<std::string, HistoryEntry> recorded;
        for (const auto& e : History::shared().entries()) recorded[e.original] = e;
        std::vector<HistoryEntry> toRestore;
        for (std::size_t i = 1; i < args.size(); ++i) {
            if (left.count(args[i])) continue;
            const auto it = recorded.find(args[i]);
            EXPECT_NE(it, recorded.end()) << p.name << ": " << args[i] << " moved but isn't in the history";
            if (it != recorded.end()) toRestore.push_back(it->second);
        }
        EXPECT_GT(toRestore.size(), 100u) << p.name;
        // Every .trashinfo is whole: a path and a date.
        for (const auto& n : p.infoFolder.empty() ? std::vector<std::string>() : namesIn(p.infoFolder)) {
            if (!n.ends_with(".trashinfo")) continue;
            const auto info = brimstell::TrashInfo::parse(readText(p.infoFolder + "/" + n), p.host->calendar);
            EXPECT_TRUE(info.path && info.deletionDate) << p.name << ": " << n;
        }
        if (!p.infoFolder.empty() && ::access("/usr/bin/trash-list", X_OK) == 0) {
            const RunResult r = runProgram("/bin/sh", {"-c", "trash-list 2>&1"}, p.environment);
            EXPECT_EQ(r.output.find("Parse Error"), std::string::npos) << p.name;
        }
        for (const auto& r : History::shared().restore(toRestore)) EXPECT_TRUE(r.ok()) << p.name << ": " << r.message();
        for (const auto& e : toRestore) {
            EXPECT_EQ(readText(e.original), e.original.substr(e.original.rfind(' ') + 1)) << p.name << ": " << e.original;
        }
    }
}

// A journal as a killed mover leaves it: each id once in the history, announced items settled
// by where they are, dropped and torn lines left out; the journal is gone afterwards.
TEST(CrashRecord, LeftoverJournalIsFoldedOnceAndRemoved) {
    SandboxHost s;
    quorv::HostScope scope(s.host);
    History history(History::defaultFile());
    const std::string folder = realOf(s.mac.home()) + "/Docs";
    makeFolders(folder);
    auto entry = [&](const std::string& name) {
        HistoryEntry e;
        e.id = quorv::newUuid();
        e.session = quorv::newUuid();
        e.original = folder + "/" + name;
        e.date = s.now;
        writeBytes(e.original, name);
        struct stat st{};
        EXPECT_EQ(::lstat(e.original.c_str(), &st), 0);
        e.fileID = brimstell::FileID{static_cast<std::int64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
        return e;
    };
    const HistoryEntry kept = entry("kept"), whole = entry("whole"), stayed = entry("stayed"), moved = entry("moved"),
                       dropped = entry("dropped"), torn = entry("torn");
    history.add({kept});
    std::string error;
    HistoryEntry movedInTrash = moved;
    movedInTrash.trashed = s.host->trash->moveToTrash(moved.original, error);
    ASSERT_TRUE(movedInTrash.trashed) << error;
    HistoryEntry wholeInTrash = whole;
    wholeInTrash.trashed = s.host->trash->moveToTrash(whole.original, error);
    ASSERT_TRUE(wholeInTrash.trashed) << error;

    auto line = [](const HistoryEntry& e) { return e.toJson().dump() + "\n"; };
    const std::string tornLine = line(torn);
    writeBytes(history.journalPath(), line(kept) + line(whole) + line(wholeInTrash) + line(stayed) + line(moved) +
                                          line(dropped) + "{\"id\":\"" + dropped.id + "\",\"dropped\":true}\n" +
                                          "not json\n" + std::string(100'000, '[') + "\n{\"id\":5,\"dropped\":true}\n" +
                                          "{\"id\":\"" + whole.id + "\",\"dropped\":true} x\n" +
                                          tornLine.substr(0, tornLine.size() / 2));
    std::vector<std::string> ids;
    for (const auto& e : history.entries()) ids.push_back(e.id + " " + e.original + " " + e.trashed.value_or("-"));
    const std::vector<std::string> expected = {
        kept.id + " " + kept.original + " -",
        whole.id + " " + whole.original + " " + *wholeInTrash.trashed,
        moved.id + " " + moved.original + " " + *movedInTrash.trashed,
    };
    EXPECT_EQ(ids, expected);
    EXPECT_FALSE(exists(history.journalPath()));
    EXPECT_EQ(History(History::defaultFile()).entries().size(), 3u) << "the fold was saved to the file";
}

// Temporary .trashinfo texts are invisible to the Trash's readers; ones a killed mover left go
// after a day.
TEST(CrashRecord, LeftoverTemporaryInfoIsIgnoredThenSweptAfterADay) {
    LinuxTrashHost env;
    quorv::HostScope scope(env.host);
    makeFolders(env.trash + "/files");
    makeFolders(env.trash + "/info");
    const struct {
        const char* name;
        double age;
        bool kept;
    } cases[] = {
        {".brimstell-1-1.tmp", 86'401, false},
        {".brimstell-2-7.tmp", 86'000, true},
        {".other-1-1.tmp", 200'000, true},
        {"x.trashinfo", 200'000, true},
    };
    for (const auto& c : cases) {
        const std::string path = env.trash + "/info/" + c.name;
        writeBytes(path, "[Trash Info]\nPath=/x\nDeletionDate=2026-09-21T00:00:00\n");
        const struct timespec times[2] = {{static_cast<time_t>(1'790'000'000 - c.age), 0},
                                          {static_cast<time_t>(1'790'000'000 - c.age), 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    EXPECT_TRUE(listed().empty()) << "an info text without its item lists nothing";
    for (const auto& c : cases) EXPECT_EQ(exists(env.trash + "/info/" + c.name), c.kept) << c.name;
}

}  // namespace
