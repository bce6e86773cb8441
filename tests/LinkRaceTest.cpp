// A folder on the path of an item is swapped for a link to someone else's private folder while
// the item is moved to the Trash or put back: whatever moves, the history says where it really
// was, and nothing is ever carried into or out of a folder other than the one it lived in.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "support/FileTree.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/posix/LinkSafe.hpp"

namespace {

using brimstell::FS;
using brimstell::History;
using brimstell::HistoryEntry;
using namespace testing_support;

// A host with a Trash, and a real folder in its home for the test's folders.
struct Place {
    const char* name;
    std::unique_ptr<SandboxHost> mac;
    std::unique_ptr<LinuxTrashHost> linux;
    std::shared_ptr<quorv::Host> host;
    std::string base;
};

std::string realOf(const std::string& path) { return quorv::LinkSafe::resolve(path).value_or(""); }

Place macPlace() {
    Place p{"sandbox Mac", std::make_unique<SandboxHost>(), nullptr, nullptr, ""};
    p.host = p.mac->host;
    p.base = realOf(p.mac->mac.home()) + "/Work";
    return p;
}

Place linuxPlace() {
    Place p{"freedesktop Trash", nullptr, std::make_unique<LinuxTrashHost>(), nullptr, ""};
    p.host = p.linux->host;
    p.base = p.linux->home + "/work";
    return p;
}

// att/dir is the attacker's real folder; att/swap a link to the victim's private folder. While
// swapping, a thread exchanges the two names atomically, again and again; held() stops it with
// the real folder back at att/dir.
class Swapper {
public:
    Swapper(const std::string& att, const std::string& victim) : dir_(att + "/dir"), swap_(att + "/swap") {
        makeFolders(dir_);
        EXPECT_EQ(::symlink(victim.c_str(), swap_.c_str()), 0);
        thread_ = std::thread([this] { run(); });
    }
    ~Swapper() {
        done_ = true;
        thread_.join();
    }
    void swapping() { mode_ = 1; }
    void held() {
        mode_ = 0;
        while (!still_) std::this_thread::yield();
    }

private:
    void run() {
        bool exchanged = false;
        while (!done_) {
            if (mode_ == 0 && !exchanged) {
                still_ = true;
                std::this_thread::yield();
                continue;
            }
            still_ = false;
            if (::renameat2(AT_FDCWD, dir_.c_str(), AT_FDCWD, swap_.c_str(), RENAME_EXCHANGE) == 0) exchanged = !exchanged;
        }
        if (exchanged) ::renameat2(AT_FDCWD, dir_.c_str(), AT_FDCWD, swap_.c_str(), RENAME_EXCHANGE);
    }
    std::string dir_, swap_;
    std::atomic<int> mode_{0};
    std::atomic<bool> still_{false}, done_{false};
    std::thread thread_;
};

std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> out;
    for (const auto& node : snapshotTree(folder)) {
        if (!node.path.empty()) out.insert(node.path + "=" + node.content);
    }
    return out;
}

std::optional<HistoryEntry> newest() {
    auto all = History::shared().entries();
    if (all.empty()) return std::nullopt;
    return all.back();
}

constexpr int rounds = 150;

TEST(LinkRace, TrashRecordsWhereTheItemReallyWas) {
    for (auto make : {macPlace, linuxPlace}) {
        Place p = make();
        quorv::HostScope scope(p.host);
        const std::string victim = p.base + "/victim/private";
        makeFolders(victim);
        writeBytes(victim + "/file", "secret");
        Swapper swapper(p.base + "/att", victim);
        int moved = 0;
        for (int round = 0; round < rounds; ++round) {
            swapper.held();
            writeBytes(p.base + "/att/dir/file", "mine");
            swapper.swapping();
            const auto r = FS::trash(std::vector<std::string>{p.base + "/att/dir/file"});
            swapper.held();
            if (r.moved.empty()) {
                ASSERT_EQ(r.reasons.size(), 1u) << p.name;
                EXPECT_EQ(r.reasons.begin()->second, "Its folder changed while it was being moved.") << p.name;
                continue;
            }
            ++moved;
            const auto e = newest();
            ASSERT_TRUE(e && e->trashed) << p.name;
            if (readText(*e->trashed) == "secret") {
                // Taken through the link: recorded as the victim's, so it goes back there.
                EXPECT_EQ(e->original, victim + "/file") << p.name << " round " << round;
                ASSERT_TRUE(History::shared().restore(*e).ok()) << p.name;
                EXPECT_EQ(readText(victim + "/file"), "secret") << p.name;
            } else {
                EXPECT_EQ(e->original, p.base + "/att/dir/file") << p.name << " round " << round;
            }
        }
        EXPECT_GT(moved, 0) << p.name;
    }
}

TEST(LinkRace, RestoreNeverGoesThroughALink) {
    for (auto make : {macPlace, linuxPlace}) {
        Place p = make();
        quorv::HostScope scope(p.host);
        const std::string victim = p.base + "/victim/private";
        makeFolders(victim);
        writeBytes(victim + "/file", "secret");
        const auto victimBefore = namesIn(victim);
        Swapper swapper(p.base + "/att", victim);
        for (int round = 0; round < rounds; ++round) {
            swapper.held();
            writeBytes(p.base + "/att/dir/file", "mine " + std::to_string(round));
            const auto r = FS::trash(std::vector<std::string>{p.base + "/att/dir/file"});
            ASSERT_EQ(r.moved.size(), 1u) << p.name;
            const auto e = newest();
            ASSERT_TRUE(e) << p.name;
            ASSERT_EQ(e->original, p.base + "/att/dir/file") << p.name;
            swapper.swapping();
            const auto result = History::shared().restore(*e);
            swapper.held();
            EXPECT_EQ(namesIn(victim), victimBefore) << p.name << " round " << round;
            if (result.ok()) {
                EXPECT_EQ(*result.restoredTo, p.base + "/att/dir/file") << p.name;
                EXPECT_EQ(readText(p.base + "/att/dir/file"), "mine " + std::to_string(round)) << p.name;
            } else {
                EXPECT_EQ(result.message(), "Couldn't restore: A link now stands on the way to its original place.")
                    << p.name;
                ASSERT_EQ(::unlink(e->trashed->c_str()), 0) << p.name;
            }
            (void)::unlink((p.base + "/att/dir/file").c_str());
        }
    }
}

}  // namespace
