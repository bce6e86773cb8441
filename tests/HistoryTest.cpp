// The cleaning history: its file (pruning, atomic saves, corrupt files), restoring entries, and
// round trips of hostile names through the mover, the file and restore.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include <atomic>
#include <random>
#include <thread>

#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "support/FakeTrash.hpp"
#include "support/FileTree.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/text/Uuid.hpp"

namespace {

using brimstell::EntryStatus;
using brimstell::FS;
using brimstell::History;
using brimstell::HistoryEntry;
using testing_support::readText;
using Strings = std::vector<std::string>;

constexpr double now = 1'790'000'000;

// A sandbox Mac whose Trash is a FakeTrash at ~/.Trash, installed as this thread's host.
struct HistorySandbox {
    testing_support::SandboxHost s{now};
    std::shared_ptr<testing_support::FakeTrash> trash = std::make_shared<testing_support::FakeTrash>(s.mac.home() + "/.Trash");
    quorv::HostScope scope{(s.host->trash = trash, s.host)};

    std::string historyFile() const { return s.mac.home() + "/Library/Application Support/Brimstell/history/history.json"; }
    std::string doc(const std::string& name) const { return s.mac.home() + "/Documents/" + name; }
    std::string write(const std::string& name, const std::string& text) const {
        const std::string p = doc(name);
        quorv::files::writeAtomically(p, text);
        return p;
    }
    // Moves one path with the mover and gives back its history entry.
    HistoryEntry trashOne(const std::string& path) const {
        const auto r = FS::trash(std::vector<std::string>{path}, {}, std::string("Test"));
        EXPECT_EQ(r.moved.size(), 1u) << path;
        for (const auto& e : History::shared().entries()) {
            if (e.original == path && !e.restoredTo && r.moved.size() == 1 && e.trashed == r.moved[0].trashed) return e;
        }
        ADD_FAILURE() << "no entry for " << path;
        return {};
    }
};

HistoryEntry entryAt(double date, const std::string& original = "/Users/ann/Library/Caches/x") {
    return {quorv::newUuid(), original, "/Users/ann/.Trash/x", 1000, date, quorv::newUuid(), {}, {}, {}, {}};
}

Strings idsOf(const std::vector<HistoryEntry>& list) {
    Strings ids;
    for (const auto& e : list) ids.push_back(e.id);
    return ids;
}

TEST(HistoryPruning, KeepsWhatIsLessThanNinetyDaysOld) {
    const struct {
        const char* what;
        double age;
        bool kept;
    } cases[] = {
        {"just moved", 0, true}, {"one second short of 90 days", 7'775'999, true},
        {"a tenth of a second short", 7'775'999.9, true}, {"exactly 90 days", 7'776'000, false},
        {"90 days and one second", 7'776'001, false}, {"dated an hour ahead (a clock set back)", -3600, true},
    };
    std::vector<HistoryEntry> all;
    Strings expected;
    for (const auto& c : cases) {
        all.push_back(entryAt(now - c.age, c.what));
        if (c.kept) expected.push_back(all.back().id);
    }
    // Pruned at the next save: an old entry read from the file is gone once anything changes.
    HistorySandbox h;
    ASSERT_TRUE(quorv::files::writeAtomically(h.historyFile(), brimstell::encodeHistory(all)));
    History history(h.historyFile());
    EXPECT_EQ(history.entries().size(), all.size()) << "reading alone prunes nothing";
    const HistoryEntry added = entryAt(now);
    history.add({added});
    expected.push_back(added.id);
    EXPECT_EQ(idsOf(History(h.historyFile()).entries()), expected);
}

TEST(HistoryPruning, TheTwentyThousandAndFirstEntryDropsTheOldest) {
    HistorySandbox h;
    std::vector<HistoryEntry> full;
    for (int i = 0; i < 20'000; ++i) full.push_back(entryAt(now - 20'000 + i));
    // The oldest by date stands in the middle of the list in the second case.
    for (const bool oldestInTheMiddle : {false, true}) {
        auto list = full;
        std::string oldest = list.front().id;
        if (oldestInTheMiddle) {
            list[5000].date = now - 50'000;
            oldest = list[5000].id;
        }
        ASSERT_TRUE(quorv::files::writeAtomically(h.historyFile(), brimstell::encodeHistory(list)));
        History history(h.historyFile());
        history.add({entryAt(now)});
        const auto kept = History(h.historyFile()).entries();
        ASSERT_EQ(kept.size(), 20'000u);
        for (const auto& e : kept) EXPECT_NE(e.id, oldest);
        EXPECT_EQ(kept.back().date, now);
        EXPECT_EQ(kept.front().id, oldestInTheMiddle ? list[0].id : list[1].id) << "the rest keep their order";
    }
}

TEST(HistoryFile, JsonKeysInOrderOptionalsLeftOutBytesKept) {
    const std::string id = "6F1C2B7E-1111-4222-8333-444455556666", session = "0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF";
    const HistoryEntry full{id, "/Users/ann/Documents/report.pdf", "/Users/ann/.Trash/report.pdf", 4096, 1790000000.5,
                            session, "User Caches", "/Users/ann/Documents/report (restored).pdf",
                            brimstell::FileID{16777232, 18446744073709551615ull}, false};
    EXPECT_EQ(full.toJson().dump(),
              R"({"id":"6F1C2B7E-1111-4222-8333-444455556666","original":"/Users/ann/Documents/report.pdf",)"
              R"("trashed":"/Users/ann/.Trash/report.pdf","size":4096,"date":1790000000.5,)"
              R"("session":"0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF","source":"User Caches",)"
              R"("restored":"/Users/ann/Documents/report (restored).pdf",)"
              R"("fileID":{"volume":16777232,"file":18446744073709551615},"root":false})");

    const HistoryEntry minimal{id, "/Library/Caches/x", {}, -1, 0, session, {}, {}, {}, {}};
    EXPECT_EQ(minimal.toJson().dump(),
              R"({"id":"6F1C2B7E-1111-4222-8333-444455556666","original":"/Library/Caches/x","size":-1,"date":0.0,)"
              R"("session":"0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF"})");

    const HistoryEntry bytes{id, "/tmp/bad\xff\xfe name", "/tmp/.Trash/line\nfeed\ttab", -1, 0, session, {}, {},
                             brimstell::FileID{-1, 0}, {}};
    EXPECT_EQ(bytes.toJson().dump(),
              "{\"id\":\"6F1C2B7E-1111-4222-8333-444455556666\",\"original\":\"/tmp/bad\xEF\xBF\xBD\xEF\xBF\xBD name\","
              "\"trashed\":\"/tmp/.Trash/line\\nfeed\\ttab\",\"size\":-1,\"date\":0.0,"
              "\"session\":\"0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF\",\"fileID\":{\"volume\":-1,\"file\":0},"
              "\"originalBytes\":\"L3RtcC9iYWT//iBuYW1l\"}");

    const std::vector<HistoryEntry> list{full, minimal, bytes};
    EXPECT_EQ(brimstell::decodeHistory(brimstell::encodeHistory(list)), list);
}

TEST(HistoryFile, CorruptFileIsMovedAsideAndTheHistoryStartsEmpty) {
    const std::string good = R"({"id":"6F1C2B7E-1111-4222-8333-444455556666","original":"/x","size":1,"date":1790000000,)"
                             R"("session":"0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF"})";
    const struct {
        const char* what;
        std::string text;
    } cases[] = {
        // What the reader turns away is HistoryText's table; these are the ways a file goes bad.
        {"cut short mid-write", "[" + good.substr(0, 40)}, {"empty", ""}, {"an object, not a list", "{}"},
        {"something after the list", "[" + good + "] x"},
        {"an entry without id", R"([{"original":"/x","size":1,"date":1,"session":"0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF"}])"},
        {"an id that is no UUID", "[" + std::string(good).replace(7, 8, "not-uuid") + "]"},
        {"size as text", R"([{"id":"6F1C2B7E-1111-4222-8333-444455556666","original":"/x","size":"1","date":1,)"
                         R"("session":"0E8A9B10-AAAA-4BBB-8CCC-DDDDEEEEFFFF"}])"},
        {"a negative inode", "[" + good.substr(0, good.size() - 1) + R"(,"fileID":{"volume":1,"file":-1}}])"},
        {"invalid UTF-8", "[\"\xff\"]"},
        {"cut short after a whole entry", "[" + good + ","}, {"a comma before the end", "[" + good + ",]"},
        {"a lone surrogate escape", "[" + std::string(good).replace(good.find("/x"), 2, "\\ud800") + "]"},
        {"a raw tab in a path", "[" + std::string(good).replace(good.find("/x"), 2, "/\tx") + "]"},
        {"a fractional size", "[" + std::string(good).replace(good.find("\"size\":1"), 8, "\"size\":1.5") + "]"},
        {"a size beyond 64 bits", "[" + std::string(good).replace(good.find("\"size\":1"), 8, "\"size\":9223372036854775808") + "]"},
        {"a leading zero", "[" + std::string(good).replace(good.find("\"size\":1"), 8, "\"size\":01") + "]"},
        {"NaN", "[" + std::string(good).replace(good.find("1790000000"), 10, "NaN") + "]"},
        {"a list in a list 600 deep", std::string(600, '[') + std::string(600, ']')},
        {"a NUL after the list", "[" + good + "]" + std::string(1, '\0')},
    };
    for (const auto& c : cases) {
        HistorySandbox h;
        ASSERT_TRUE(quorv::files::writeAtomically(h.historyFile(), c.text));
        History history(h.historyFile());
        EXPECT_TRUE(history.entries().empty()) << c.what;
        EXPECT_EQ(::access(h.historyFile().c_str(), F_OK), -1) << c.what;
        EXPECT_EQ(readText(h.historyFile() + ".1790000000"), c.text) << c.what << ": set aside whole, never deleted";
        const HistoryEntry e = entryAt(now);
        history.add({e});
        EXPECT_EQ(History(h.historyFile()).entries(), std::vector<HistoryEntry>{e}) << c.what;
    }

    // A second bad file in the same second doesn't replace the first one set aside.
    HistorySandbox h;
    ASSERT_TRUE(quorv::files::writeAtomically(h.historyFile(), "first"));
    EXPECT_TRUE(History(h.historyFile()).entries().empty());
    ASSERT_TRUE(quorv::files::writeAtomically(h.historyFile(), "second"));
    EXPECT_TRUE(History(h.historyFile()).entries().empty());
    EXPECT_EQ(readText(h.historyFile() + ".1790000000"), "first");
    EXPECT_EQ(readText(h.historyFile() + ".1790000000.2"), "second");
}

// A process killed at any moment of a save leaves the file as it was or as it was going to be.
TEST(HistoryFile, KillNineDuringSaveLeavesTheOldOrTheNewFileWhole) {
    testing_support::TempDir dir;
    const std::string file = dir / "history/history.json";
    auto host = quorv::hostFromEnvironment({});
    host->clock = [] { return now; };
    quorv::HostScope scope(host);

    // Version k holds the first k entries; long paths make each save take a while.
    std::vector<HistoryEntry> all;
    for (int i = 0; i < 120; ++i) {
        HistoryEntry e = entryAt(now - i, "/Users/ann/" + std::string(3000, static_cast<char>('a' + i % 26)));
        e.id = fmt::format("00000000-0000-4000-8000-{:012}", i);
        all.push_back(e);
    }
    std::mt19937 rng(20260921);
    int seenVersions = 0;
    for (int round = 0; round < 40; ++round) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            History history(file);
            for (std::size_t k = 1;; k = k % all.size() + 1) {
                history.update([&](std::vector<HistoryEntry>& list) { list.assign(all.begin(), all.begin() + static_cast<long>(k)); });
            }
        }
        ::usleep(std::uniform_int_distribution<unsigned>(2'000, 40'000)(rng));
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
        if (::access(file.c_str(), F_OK) != 0) continue;  // killed before its first save
        const auto decoded = brimstell::decodeHistory(readText(file));
        ASSERT_TRUE(decoded.has_value()) << "round " << round << ": a torn file";
        ASSERT_FALSE(decoded->empty());
        ASSERT_LE(decoded->size(), all.size());
        EXPECT_EQ(*decoded, std::vector<HistoryEntry>(all.begin(), all.begin() + static_cast<long>(decoded->size())));
        ++seenVersions;
    }
    EXPECT_GT(seenVersions, 0);
}

// Two objects over one file stand for the app and the agent: neither loses the other's entries.
TEST(HistoryFile, WritersOfOneFileKeepEachOthersEntries) {
    HistorySandbox h;
    History first(h.historyFile()), second(h.historyFile());
    std::vector<std::thread> writers;
    std::vector<Strings> ids(4);
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&, t] {
            quorv::HostScope scope(h.s.host);
            History& history = t % 2 ? first : second;
            for (int i = 0; i < 25; ++i) {
                HistoryEntry e = entryAt(now);
                ids[static_cast<std::size_t>(t)].push_back(e.id);
                history.add({e});
            }
        });
    }
    for (auto& w : writers) w.join();
    const auto kept = idsOf(History(h.historyFile()).entries());
    EXPECT_EQ(kept.size(), 100u);
    for (const auto& list : ids) {
        for (const auto& id : list) EXPECT_NE(std::find(kept.begin(), kept.end(), id), kept.end());
    }
}

TEST(HistoryRestore, FreeNameBesideATakenOneKeepsTheExtension) {
    const struct {
        const char* name;
        const char* first;
        const char* second;
    } cases[] = {
        {"report.pdf", "report (restored).pdf", "report (restored 2).pdf"},
        {"Makefile", "Makefile (restored)", "Makefile (restored 2)"},
        {".hidden", ".hidden (restored)", ".hidden (restored 2)"},
        {"archive.tar.gz", "archive.tar (restored).gz", "archive.tar (restored 2).gz"},
        {"line\nfeed.txt", "line\nfeed (restored).txt", "line\nfeed (restored 2).txt"},
    };
    for (const auto& c : cases) {
        HistorySandbox h;
        const std::string path = h.write(c.name, "first");
        const HistoryEntry one = h.trashOne(path);
        h.write(c.name, "second");
        const HistoryEntry two = h.trashOne(path);
        h.write(c.name, "standing");

        for (const auto& [entry, name, text] : {std::tuple(one, c.first, "first"), std::tuple(two, c.second, "second")}) {
            const auto r = History::shared().restore(entry);
            ASSERT_TRUE(r.ok()) << c.name << ": " << r.message();
            EXPECT_EQ(*r.restoredTo, h.doc(name));
            EXPECT_EQ(readText(h.doc(name)), text);
        }
        EXPECT_EQ(readText(path), "standing") << "never overwritten";
        EXPECT_EQ(History::shared().entry(one.id)->restoredTo, h.doc(c.first));
        EXPECT_EQ(h.trash->forgotten(), (Strings{*one.trashed, *two.trashed}));
    }

    // Long names are shortened, never split inside a character, never over 255 bytes.
    const std::string a251(251, 'a');
    EXPECT_EQ(History::restoredName(a251 + ".txt", 1), std::string(240, 'a') + " (restored).txt");
    EXPECT_EQ(History::restoredName(a251 + ".txt", 12), std::string(237, 'a') + " (restored 12).txt");
    std::string accents;
    for (int i = 0; i < 125; ++i) accents += "\xC3\xA9";
    EXPECT_EQ(History::restoredName(accents + ".txt", 1), accents.substr(0, 240) + " (restored).txt");
    EXPECT_EQ(History::restoredName("name.", 1), "name. (restored)");
}

TEST(HistoryRestore, RefusalsSayWhyAndLeaveTheEntryAsItWas) {
    struct Case {
        const char* what;
        std::function<HistoryEntry(HistorySandbox&)> make;
        const char* message;
    };
    auto added = [](HistoryEntry e) { return History::shared().add({e}), e; };
    auto moved = [](HistorySandbox& h) { return h.trashOne(h.write("a.txt", "a")); };
    auto root = [](HistorySandbox&) {
        History::shared().recordRoot({{"/Library/Caches/com.example", "/Users/ann/.Trash/com.example", 10}}, now);
        return History::shared().entries().back();
    };
    const Case cases[] = {
        {"not in a Trash folder",
         [&](HistorySandbox& h) {
             HistoryEntry e = moved(h);
             e.id = quorv::newUuid();
             e.trashed = h.write("elsewhere.txt", "x");
             return added(e);
         },
         "Couldn't restore: It isn't in a Trash folder."},
        {"no Trash path recorded",
         [&](HistorySandbox& h) {
             HistoryEntry e = entryAt(now, h.doc("a.txt"));
             e.trashed.reset();
             return added(e);
         },
         "Couldn't restore: It isn't in a Trash folder."},
        {"emptied from the Trash",
         [&](HistorySandbox& h) {
             const HistoryEntry e = moved(h);
             ::unlink(e.trashed->c_str());
             return e;
         },
         "Couldn't restore: It's no longer in the Trash."},
        {"another item now under its Trash name",
         [&](HistorySandbox& h) {
             const HistoryEntry e = moved(h);
             quorv::files::writeAtomically(*e.trashed, "someone else's");  // a new file renamed over it
             return e;
         },
         "Couldn't restore: It can't be told apart from other items in the Trash: use Restore in Finder."},
        {"a root entry while the helper can't be used", root,
         "Couldn't restore: putting back what it removed needs admin access"},
        {"a root entry the helper refuses",
         [&](HistorySandbox& h) {
             History::setRootRestorer([](const std::string&, const std::string&) { return std::optional<bool>(false); });
             return root(h);
         },
         "Couldn't restore: something is already in its place"},
    };
    for (const auto& c : cases) {
        HistorySandbox h;
        const HistoryEntry e = c.make(h);
        const auto before = History::shared().entries();
        const auto r = History::shared().restore(e);
        History::setRootRestorer({});
        EXPECT_FALSE(r.ok()) << c.what;
        EXPECT_EQ(r.message(), c.message) << c.what;
        EXPECT_EQ(History::shared().entries(), before) << c.what;
        EXPECT_EQ(::access(h.doc("a.txt").c_str(), F_OK), -1) << c.what << ": nothing put back";
    }
}

TEST(HistoryRestore, RootEntriesGoThroughTheHelper) {
    HistorySandbox h;
    std::vector<std::pair<std::string, std::string>> asked;
    History::setRootRestorer([&](const std::string& trashPath, const std::string& original) {
        asked.emplace_back(trashPath, original);
        return std::optional<bool>(true);
    });
    h.s.mac.writeFile("/Users/ann/.Trash/com.example", std::string(5000, 'x'));
    History::shared().recordRoot({{"/Library/Caches/com.example", "/Users/ann/.Trash/com.example", std::nullopt}}, now,
                                 std::string("System Caches"));
    const HistoryEntry e = History::shared().entries().back();
    EXPECT_EQ(e.root, true);
    EXPECT_EQ(e.size, 8192) << "measured in the sandbox's Trash";
    EXPECT_TRUE(e.fileID.has_value());
    EXPECT_EQ(History::shared().status(e), EntryStatus::inTrash);
    const auto r = History::shared().restore(e);
    History::setRootRestorer({});
    EXPECT_TRUE(r.ok());
    EXPECT_EQ(asked, (std::vector<std::pair<std::string, std::string>>{
                         {"/Users/ann/.Trash/com.example", "/Library/Caches/com.example"}}));
    EXPECT_EQ(History::shared().entry(e.id)->restoredTo, "/Library/Caches/com.example");
}

TEST(HistoryRestore, FindsItsItemRenamedInTheTrashByIdentity) {
    HistorySandbox h;
    const HistoryEntry e = h.trashOne(h.write("a.txt", "mine"));
    const std::string renamed = h.trash->folder + "/a.txt renamed";
    ASSERT_EQ(::rename(e.trashed->c_str(), renamed.c_str()), 0);
    h.write("decoy", "decoy");
    h.trashOne(h.doc("decoy"));
    const auto r = History::shared().restore(e);
    ASSERT_TRUE(r.ok()) << r.message();
    EXPECT_EQ(readText(h.doc("a.txt")), "mine");
    EXPECT_EQ(h.trash->forgotten(), Strings{renamed});
}

// Hostile names go to the Trash, through the history file and back, unchanged to the byte.
void hostileRoundTrip(const std::string& folder, bool deep) {
    const std::string top = folder + "/hostile";
    const Strings names{"line\nfeed", "tab\tname", "not utf-8 \xff\xfe\xc3", std::string(255, 'n'),
                        "\xc3\xa9t\xc3\xa9", " leading space", "-dash", "quote'\"\\"};
    ASSERT_TRUE(quorv::files::makeFolders(top + "/inside", 0755));
    for (const auto& n : names) {
        // Written in place: names of 255 bytes leave no room for a temporary name beside them.
        testing_support::writeBytes(top + "/inside/" + n, "content of " + n);
        testing_support::writeBytes(folder + "/" + n, "top " + n);
    }
    ASSERT_EQ(::symlink("../nowhere\n", (top + "/inside/link").c_str()), 0);
    ::chmod((top + "/inside/" + names[0]).c_str(), 0600);
    if (deep) { ASSERT_TRUE(testing_support::makeChain(top, "d", 2000)); }

    Strings paths{top};
    for (const auto& n : names) paths.push_back(folder + "/" + n);
    std::vector<std::vector<testing_support::TreeNode>> before;
    for (const auto& p : paths) before.push_back(testing_support::snapshotTree(p));
    if (deep) { ASSERT_GT(before[0].size(), 2000u); }

    const std::int64_t topSize = FS::size(top);
    EXPECT_GT(topSize, 0);
    const auto moved = FS::trash(paths, {}, std::string("Hostile"));
    for (const auto& [path, why] : moved.reasons) ADD_FAILURE() << path << ": " << why;
    ASSERT_EQ(moved.moved.size(), paths.size());
    for (const auto& p : paths) EXPECT_EQ(::access(p.c_str(), F_OK), -1);
    EXPECT_EQ(moved.moved[0].size, topSize) << "the folder was measured before it moved";

    // Through the file: a fresh object reads what the mover recorded.
    History reread(History::defaultFile());
    const auto entries = reread.entries();
    ASSERT_EQ(entries.size(), paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) EXPECT_EQ(entries[i].original, paths[i]);
    const auto results = reread.restore(entries);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        ASSERT_TRUE(results[i].ok()) << i << ": " << results[i].message();
        EXPECT_EQ(*results[i].restoredTo, paths[i]);
        EXPECT_EQ(testing_support::snapshotTree(paths[i]), before[i]) << i;
        EXPECT_EQ(reread.status(reread.entries()[i]), EntryStatus::restored);
    }
    EXPECT_TRUE(quorv::host().trash->list().empty()) << "the Trash forgot what came back";
    if (deep) testing_support::removeTree(top);
}

TEST(HistoryRestore, HostileNamesRoundTripByteForByte) {
    {
        testing_support::SandboxHost mac(now);
        quorv::HostScope scope(mac.host);
        hostileRoundTrip(mac.mac.home() + "/Documents", false);
    }
    testing_support::LinuxTrashHost freedesktop(now);  // the freedesktop.org Trash
    quorv::HostScope scope(freedesktop.host);
    testing_support::makeFolders(freedesktop.home + "/Documents");
    hostileRoundTrip(freedesktop.home + "/Documents", true);
    EXPECT_EQ(testing_support::snapshotTree(freedesktop.trash + "/info"),
              (std::vector<testing_support::TreeNode>{{"", 'd', "", 0700}}))
        << "no .trashinfo left behind";
}

TEST(HistoryQueries, SessionsFreedAndStatus) {
    HistorySandbox h;
    const std::string a = h.write("a", std::string(10'000, 'a')), b = h.write("b", "b"), c = h.write("c", "c");
    FS::trash(std::vector<std::string>{a, b}, {{a, 100}, {b, 20}}, std::string("Old"));
    h.s.setNow(now + 60);
    FS::trash(std::vector<std::string>{c}, {{c, 3}}, std::string("New"));

    auto& history = History::shared();
    const auto sessions = history.sessions();
    ASSERT_EQ(sessions.size(), 2u);
    EXPECT_EQ(sessions[0].source, "New");
    EXPECT_EQ(sessions[0].freed, 3);
    EXPECT_EQ(sessions[0].date, now + 60);
    EXPECT_EQ(sessions[1].source, "Old");
    EXPECT_EQ(sessions[1].freed, 120);
    ASSERT_EQ(sessions[1].entries.size(), 2u);
    EXPECT_EQ(sessions[1].entries[0].original, a);
    EXPECT_EQ(sessions[1].entries[0].session, sessions[1].entries[1].session);

    EXPECT_EQ(history.freed(now - 1), 123);
    EXPECT_EQ(history.freed(now), 3) << "after the date, not at it";
    EXPECT_EQ(history.freed(now + 60), 0);

    const auto entries = history.entries();
    EXPECT_EQ(history.status(entries[0]), EntryStatus::inTrash);
    ::unlink(entries[1].trashed->c_str());
    EXPECT_EQ(history.status(entries[1]), EntryStatus::gone);
    ASSERT_TRUE(history.restore(entries[2]).ok());
    EXPECT_EQ(history.status(*history.entry(entries[2].id)), EntryStatus::restored);
}

TEST(HistoryShared, OnePerHostFile) {
    HistorySandbox first;
    History& a = History::shared();
    EXPECT_EQ(a.file(), first.historyFile());
    {
        HistorySandbox second;
        EXPECT_NE(&History::shared(), &a);
        EXPECT_EQ(History::shared().file(), second.historyFile());
    }
    EXPECT_EQ(&History::shared(), &a);
}

}  // namespace
