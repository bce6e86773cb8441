// FS: the cloud-synced test, the mover to the Trash, volumes and access, the file events.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "kit/files/FS.hpp"
#include "kit/files/FileEvents.hpp"
#include "kit/files/History.hpp"
#include "support/FakeTrash.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using brimstell::FileEvents;
using brimstell::FS;
using brimstell::History;
using testing_support::exists;
using testing_support::readText;

constexpr const char* syncedText = "It is synced to the cloud: removing it here would remove it everywhere.";

struct MoverSandbox {
    testing_support::SandboxHost s;
    std::shared_ptr<testing_support::FakeTrash> trash = std::make_shared<testing_support::FakeTrash>(s.mac.home() + "/.Trash");
    quorv::HostScope scope{(s.host->trash = trash, s.host)};

    std::string home(const std::string& rel) const { return s.mac.home() + "/" + rel; }
    std::string file(const std::string& rel, std::size_t bytes) { return s.mac.writeFileOfSize("~/" + rel, bytes); }
};

std::vector<std::string> originals(const brimstell::TrashResult& r) {
    std::vector<std::string> out;
    for (const auto& m : r.moved) out.push_back(m.original);
    return out;
}

TEST(FSCloud, SyncedPathsOfThisAndOtherAccounts) {
    testing_support::SandboxHost s;
    quorv::HostScope scope(s.host);
    const std::string home = s.mac.home(), root = s.mac.root();
    const std::pair<std::string, bool> cases[] = {
        {home + "/Library/CloudStorage", true},
        {home + "/Library/CloudStorage/Dropbox/notes.txt", true},
        {home + "/Library/Mobile Documents/com~apple~CloudDocs/a.txt", true},
        {home + "/Library/CloudStorageX/y", false},
        {home + "/Library/Caches/x", false},
        {home + "/Library/./CloudStorage/x", true},
        {home + "//Library/CloudStorage/", true},
        {home + "/Library/Caches/../CloudStorage/x", true},
        {home + "/Library/CloudStorage/../Caches/x", false},
        {root + "/Users/other/Library/Mobile Documents/x", true},
        {root + "/Users/other/Library/CloudStorage", true},
        {root + "/Users/other/Library/Caches/x", false},
        {root + "/Library/CloudStorage/x", false},
        {root + "/Volumes/Users/x/Library/CloudStorage", false},
        {"/Users/other/Library/Mobile Documents/x", true},
    };
    for (const auto& [path, synced] : cases) EXPECT_EQ(FS::isCloudSynced(path), synced) << path;
    EXPECT_EQ(FS::cloudRoots(), (std::vector<std::string>{home + "/Library/CloudStorage", home + "/Library/Mobile Documents"}));
    EXPECT_FALSE(FS::isUbiquitous(home + "/Library/Mobile Documents/com~apple~CloudDocs/a.txt"));
    // What a whole-disk scan never walks into: other disks, the system, and the system's own stores.
    EXPECT_EQ(FS::wholeDiskSkips(),
              (std::vector<std::string>{"/Volumes", "/System", "/.Spotlight-V100", "/.fseventsd", "/.DocumentRevisions-V100",
                                        "/.TemporaryItems", "/.vol", "/private/var/vm", "/private/var/db",
                                        "/private/var/run", "/home", "/net", "/MobileSoftwareUpdate",
                                        "/.PreviousSystemInformation"}));
}

TEST(FSTrash, AFolderAndWhatIsInsideItMoveOnce) {
    MoverSandbox m;
    const std::string folder = m.home("Library/Caches/app");
    m.file("Library/Caches/app/a", 50'000);
    const std::string inner = m.file("Library/Caches/app/sub/b", 70'000);
    const std::string sibling = m.file("Library/Caches/app2", 9'000);  // shares a prefix, not a folder
    const std::int64_t folderSize = FS::size(folder), siblingSize = FS::size(sibling);

    const auto r = FS::trash(std::vector<std::string>{inner, folder, folder + "/a", sibling, folder + "/", folder},
                             {}, std::string("User Caches"));
    EXPECT_EQ(originals(r), (std::vector<std::string>{folder, sibling}));
    EXPECT_TRUE(r.failed.empty());
    EXPECT_EQ(m.trash->moves(), 2);
    EXPECT_EQ(r.freed, folderSize + siblingSize);
    EXPECT_EQ(r.moved[0].trashed, m.home(".Trash/app"));
    EXPECT_EQ(readText(m.home(".Trash/app/sub/b")), std::string(70'000, 'x'));
    // One outcome per path given, in order: the held ones name the listed path they moved with.
    using Outcome = brimstell::TrashOutcome;
    EXPECT_EQ(r.outcomes, (std::vector<Outcome>{{inner, {}, 0, "", folder},
                                                {folder, m.home(".Trash/app"), folderSize, "", ""},
                                                {folder + "/a", {}, 0, "", folder},
                                                {sibling, m.home(".Trash/app2"), siblingSize, "", ""},
                                                {folder + "/", {}, 0, "", folder},
                                                {folder, {}, 0, "", folder}}));

    const auto entries = History::shared().entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].original, folder);
    EXPECT_EQ(entries[0].size, folderSize);
    EXPECT_EQ(entries[0].source, "User Caches");
    EXPECT_EQ(entries[0].session, entries[1].session);
    struct stat st{};
    ASSERT_EQ(::lstat(m.home(".Trash/app").c_str(), &st), 0);
    EXPECT_EQ(entries[0].fileID, (brimstell::FileID{static_cast<std::int64_t>(st.st_dev), st.st_ino}));
}

TEST(FSTrash, SyncedItemsStayUnlessTheyAreUnsyncedCaches) {
    MoverSandbox m;
    const std::string cache = m.home("Library/CloudStorage/Dropbox-Ann/.dropbox.cache");
    m.file("Library/CloudStorage/Dropbox-Ann/.dropbox.cache/blob", 20'000);
    const std::string beside = m.file("Library/CloudStorage/Dropbox-Ann/notes.txt", 1'000);
    const std::string debris = m.home("Library/Mobile Documents/.debris");
    m.file("Library/Mobile Documents/.debris/old", 1'000);
    const std::string icloud = m.file("Library/Mobile Documents/com~apple~CloudDocs/doc.pages", 1'000);
    const std::string other = m.s.mac.writeFile("/Users/other/Library/Mobile Documents/x", "theirs");
    const std::string plain = m.file("Documents/plain.txt", 1'000);

    const auto r = FS::trash(std::vector<std::string>{cache, beside, debris, icloud, other, plain});
    EXPECT_EQ(originals(r), (std::vector<std::string>{cache, debris, plain}));
    EXPECT_EQ(r.failed, (std::vector<std::string>{beside, icloud, other}));
    for (const auto& f : r.failed) {
        EXPECT_TRUE(exists(f)) << f << " is untouched";
        EXPECT_EQ(r.reasons.at(f), syncedText);
    }
    EXPECT_EQ(m.trash->moves(), 3) << "no attempt for a synced item";
}

TEST(FSTrash, AFailureStopsNothingAndEveryCallIsPosted) {
    MoverSandbox m;
    int posts = 0;
    auto observation = FileEvents::observe(FileEvents::sweepDidClean, [&posts] { ++posts; });

    const std::string missing = m.home("Documents/gone"), kept = m.file("Documents/kept", 100);
    const auto r = FS::trash(std::vector<std::string>{missing, kept, missing + "/inside"});
    EXPECT_EQ(originals(r), std::vector<std::string>{kept});
    EXPECT_EQ(r.failed, std::vector<std::string>{missing});
    EXPECT_EQ(r.reasons.at(missing), "It could not be moved (No such file or directory).");
    ASSERT_EQ(r.outcomes.size(), 3u);
    EXPECT_EQ(r.outcomes[0].reason, "It could not be moved (No such file or directory).");
    EXPECT_FALSE(r.outcomes[0].moved());
    EXPECT_TRUE(r.outcomes[1].moved());
    EXPECT_EQ(r.outcomes[2].movedWith, missing);
    EXPECT_EQ(r.outcomes[2].reason, "It could not be moved (No such file or directory).") << "shares its folder's fate";
    EXPECT_EQ(posts, 1);

    FS::trash(std::vector<std::string>{});
    EXPECT_EQ(posts, 2) << "posted after a call that moved nothing too";
    observation.cancel();
    FS::trash(std::vector<std::string>{});
    EXPECT_EQ(posts, 2);

    // Without a Trash, nothing moves and nothing is recorded.
    m.s.host->trash.reset();
    const std::string stays = m.file("Documents/stays", 100);
    const auto none = FS::trash(std::vector<std::string>{stays});
    EXPECT_EQ(none.failed, std::vector<std::string>{stays});
    EXPECT_EQ(none.reasons.at(stays), "There is no Trash to move it to.");
    EXPECT_EQ(History::shared().entries().size(), 1u);
}

TEST(FSTrash, ManyItemsAtOnceKeepTheirOrderAndTotals) {
    MoverSandbox m;
    std::vector<brimstell::FileItem> items(300);
    std::int64_t total = 0;
    for (int i = 0; i < 300; ++i) {
        auto& item = items[static_cast<std::size_t>(i)];
        item.location = m.file("Library/Caches/many/" + std::to_string(i), 10);
        item.label = "item " + std::to_string(i);
        total += item.size = 1000 + i;
    }
    items.push_back(items[7]);  // listed twice: the first size counts
    items.back().size = 999'999;
    const auto r = FS::trash(items, std::string("Many"));
    ASSERT_EQ(r.moved.size(), 300u);
    EXPECT_EQ(r.freed, total);
    for (std::size_t i = 0; i < 300; ++i) {
        EXPECT_EQ(r.moved[i].original, items[i].location);
        EXPECT_EQ(r.moved[i].size, items[i].size);
    }
    const auto sessions = History::shared().sessions();
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0].entries.size(), 300u);
    EXPECT_EQ(sessions[0].freed, total);
    EXPECT_EQ(sessions[0].source, "Many");
}

TEST(FSVolumes, FoldersUnderVolumesByName) {
    testing_support::SandboxHost s;
    quorv::HostScope scope(s.host);
    s.mac.makeFolder("/Volumes/Backup");
    s.mac.makeFolder("/Volumes/Archive 2");
    s.mac.makeFolder("/Volumes/.timemachine");
    s.mac.writeFile("/Volumes/stray file", "x");
    ::symlink("/", s.mac.path("/Volumes/Macintosh HD").c_str());
    EXPECT_EQ(FS::externalVolumes(), (std::vector<brimstell::ExternalVolume>{
                                         {s.mac.path("/Volumes/Archive 2"), "Archive 2"},
                                         {s.mac.path("/Volumes/Backup"), "Backup"}}));
}

TEST(FSAccess, FullDiskAccessProbeAndSettings) {
    testing_support::SandboxHost s;
    quorv::HostScope scope(s.host);
    EXPECT_FALSE(FS::hasFullDiskAccess()) << "no Safari folder to read";
    s.mac.makeFolder("~/Library/Safari");
    EXPECT_TRUE(FS::hasFullDiskAccess());
    if (::geteuid() != 0) {
        ::chmod(s.mac.path("~/Library/Safari").c_str(), 0);
        EXPECT_FALSE(FS::hasFullDiskAccess());
        ::chmod(s.mac.path("~/Library/Safari").c_str(), 0755);
    }

    EXPECT_FALSE(FS::openFullDiskAccessSettings()) << "no open tool in this Mac";
    s.mac.addFakeTool("/usr/bin/open", "exit 0");
    EXPECT_TRUE(FS::openFullDiskAccessSettings());
    EXPECT_EQ(readText(s.mac.path("/private/var/log/tools.log")),
              "/usr/bin/open x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles\n");

    auto liveLinux = quorv::hostFromEnvironment({{"HOME", s.dir.path()}, {"BRIMSTELL_PLATFORM", "linux"}});
    quorv::HostScope live(liveLinux);
    EXPECT_TRUE(FS::hasFullDiskAccess()) << "Linux has no such permission";
    EXPECT_FALSE(FS::openFullDiskAccessSettings());
}

TEST(FileEvents, ObserversByNameUntilCancelled) {
    int a = 0, b = 0;
    auto first = FileEvents::observe("one", [&a] { ++a; });
    {
        auto second = FileEvents::observe("two", [&b] { ++b; });
        FileEvents::post("one");
        FileEvents::post("two");
        FileEvents::Observation moved = std::move(second);
        FileEvents::post("two");
    }
    FileEvents::post("two");
    FileEvents::post("one");
    EXPECT_EQ(a, 2);
    EXPECT_EQ(b, 2);
}

}  // namespace
