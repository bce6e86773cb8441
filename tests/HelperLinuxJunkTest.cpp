// The root helper's junk on Linux: rotated logs (never the journal), crash reports and core dumps,
// the package manager's downloads and other accounts' caches, found under a root folder laid out
// like a Linux system; links, hostile names and the caller's own home left out; and the reply
// turned into the categories the junk list shows.

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "kit/agent/RecordedAgentService.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "kit/files/Admin.hpp"
#include "kit/files/History.hpp"
#include "kit/files/InProcessHelperTransport.hpp"
#include "shared/helper/HelperDispatch.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

namespace fs = std::filesystem;
using brimstell::HelperDispatch;
using brimstell::HelperRules;

struct LinuxRoot {
    testing_support::TempDir dir;
    std::string root = fs::canonical(dir.path()).string();

    void file(const std::string& systemPath, std::size_t bytes = 5'000) const {
        fs::create_directories(fs::path(root + systemPath).parent_path());
        std::ofstream(root + systemPath) << std::string(bytes, 'x');
    }
};

// kind, path of every line of the reply, in order.
std::vector<std::tuple<std::string, std::string>> kindsAndPaths(const std::string& reply) {
    std::vector<std::tuple<std::string, std::string>> out;
    std::size_t start = 0;
    while (start < reply.size()) {
        const auto end = reply.find('\n', start);
        const std::string line = reply.substr(start, end - start);
        const auto a = line.find('\t');
        const auto b = line.find('\t', a + 1);
        EXPECT_GT(std::stoll(line.substr(a + 1, b - a - 1)), 0) << line;
        out.emplace_back(line.substr(0, a), line.substr(b + 1));
        start = end + 1;
    }
    return out;
}

TEST(HelperLinuxJunk, FindsEachKindAndLeavesEverythingElse) {
    LinuxRoot r;
    const std::vector<std::tuple<std::string, std::string>> found = {
        {"log", "/var/log/Xorg.0.log.old"},
        {"log", "/var/log/apt/history.log.1.gz"},
        {"log", "/var/log/syslog.1"},
        {"log", "/var/log/syslog.2.gz"},
        {"log", "/var/log/wtmp.old"},
        {"core", "/var/crash/_usr_bin_tool.1000.crash"},
        {"core", "/var/lib/systemd/coredump/core.tool.1000.zst"},
        {"package", "/var/cache/apt/archives/curl_8.5_amd64.deb"},
        {"package", "/var/cache/dnf/fedora-2f1a/packages/curl-8.5.rpm"},
        {"package", "/var/cache/pacman/pkg/curl-8.5-1-x86_64.pkg.tar.zst"},
        {"user", "/home/bob/.cache/mozilla"},
        {"user", "/home/bob/.cache/thumbnails"},
    };
    for (const auto& [kind, path] : found) {
        if (path != "/home/bob/.cache/mozilla") r.file(path);
    }
    r.file("/home/bob/.cache/mozilla/firefox/cache2/x", 50'000);  // a folder item, measured whole
    // Never: live logs, the journal, deeper logs, package manager state, the caller's own cache,
    // another account's files outside its cache, and a link or a hostile name among the junk.
    for (const char* path : {"/var/log/syslog", "/var/log/journal/0a1b/system@0001.journal~",
                             "/var/log/journal/0a1b/user-1000.journal", "/var/log/a/b/deep.1",
                             "/var/cache/apt/archives/lock", "/var/cache/apt/pkgcache.bin", "/home/me/.cache/pip/x",
                             "/home/bob/Documents/report.odt", "/home/bob/.config/app.conf", "/etc/shadow",
                             "/var/log/tab\there.1", "/var/log/line\nfeed.1"}) {
        r.file(path);
    }
    fs::create_directory_symlink(r.root + "/etc", r.root + "/var/log/etc.1");
    fs::create_symlink(r.root + "/etc/shadow", r.root + "/var/crash/shadow.crash");
    fs::create_directories(r.root + "/var/crash/empty");  // takes no space of its own beyond its entry

    const auto dispatch = HelperDispatch::open(r.root, HelperRules::linux);
    ASSERT_TRUE(dispatch.has_value());
    const auto reply = dispatch->run("junk", "", {}, "/home/me");
    auto lines = kindsAndPaths(reply);
    std::erase_if(lines, [](const auto& line) { return std::get<1>(line) == "/var/crash/empty"; });
    EXPECT_EQ(lines, found) << reply;
}

TEST(HelperLinuxJunk, RepliesBecomeTheLinuxCategories) {
    testing_support::LinuxTrashHost h;
    quorv::HostScope scope(h.host);
    const auto categories = brimstell::Admin::junkCategories(
        "user\t5\t/home/bob/.cache/mozilla\n"
        "package\t40\t/var/cache/apt/archives/curl.deb\n"
        "core\t7\t/var/crash/x.crash\n"
        "log\t3\t/var/log/syslog.1\n"
        "cache\t9\t/Library/Caches/x\n"  // a Mac kind
        "user\t5\t/home/bob/.cache\n");   // too short for an account's junk
    using Row = std::tuple<std::string, std::string, std::string, std::string, std::int64_t, bool>;
    std::vector<Row> rows;
    for (const auto& c : categories) {
        for (const auto& item : c.items) {
            rows.emplace_back(c.name, c.detail, item.label, item.location, item.size, c.icon.empty());
        }
    }
    EXPECT_EQ(rows, (std::vector<Row>{
                        {"System Logs", "Rotated and compressed logs · the journal is kept", "syslog.1",
                         h.base + "/var/log/syslog.1", 3 * 1024, false},
                        {"Crash Reports", "Crash reports and core dumps", "x.crash", h.base + "/var/crash/x.crash",
                         7 * 1024, false},
                        {"Downloaded Packages", "Kept by the package manager after installing", "curl.deb",
                         h.base + "/var/cache/apt/archives/curl.deb", 40 * 1024, false},
                        {"Other Users", "Caches of other accounts", "bob · mozilla", h.base + "/home/bob/.cache/mozilla",
                         5 * 1024, false},
                    }));
}

// The junk list on Linux with the helper switched on: the helper's categories join, marked admin,
// a clean hands them to the helper, and the history brings every item back.
TEST(HelperLinuxJunk, TheListCleansThroughTheHelperAndTheHistoryRestores) {
    testing_support::LinuxTrashHost h;
    h.host->helperService = std::make_shared<brimstell::RecordedAgentService>(h.base + "/helper-state", "The helper");
    h.host->helper = std::make_shared<brimstell::InProcessHelperTransport>(h.base, "/home/someone");
    quorv::HostScope scope(h.host);
    const std::vector<std::string> items = {"/var/log/syslog.1", "/var/crash/tool.crash",
                                            "/home/bob/.cache/mozilla/cache2/x"};
    for (const auto& path : items) {
        fs::create_directories(fs::path(h.base + path).parent_path());
        std::ofstream(h.base + path) << std::string(9'000, 'x');
    }
    brimstell::JunkModel::Sources sources = brimstell::JunkModel::defaultSources();
    sources.adminEnabled = [] { return true; };
    brimstell::JunkModel model(sources);
    model.scan();
    std::vector<std::pair<std::string, bool>> shown;
    for (auto& c : model.cats) {
        shown.emplace_back(c.name, c.admin);
        c.enabled = c.admin;
    }
    EXPECT_EQ(shown, (std::vector<std::pair<std::string, bool>>{
                         {"System Logs", true}, {"Crash Reports", true}, {"Other Users", true}}));
    model.recount();
    const auto result = model.clean();
    EXPECT_EQ(result.skipped, 0u);
    for (const auto& path : items) EXPECT_FALSE(fs::exists(h.base + path)) << path;

    // What the helper moved comes back through the helper, as the command line connects it.
    brimstell::Admin::connectHistory();
    auto& history = brimstell::History::shared();
    for (const auto& r : history.restore(history.entries())) EXPECT_TRUE(r.ok()) << r.message();
    brimstell::History::setRootRestorer({});
    for (const auto& path : items) EXPECT_TRUE(fs::exists(h.base + path)) << path;
}

}  // namespace
