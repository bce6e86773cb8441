// The junk list's model: ticks kept across scans, the helper's categories, the clean with its
// result line, widget figures and history, and a whole real scan cleaned and put back.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "kit/files/History.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::FileItem;
using brimstell::HelperJunkCategory;
using brimstell::JunkCatalogue;
using brimstell::JunkCategory;
using brimstell::JunkModel;

struct ModelSandbox {
    testing_support::SandboxHost sh;
    quorv::HostScope scope{sh.host};
    std::vector<JunkCategory> found;  // what the fake scan finds
    std::optional<std::vector<HelperJunkCategory>> admin;
    bool adminOn = false;

    JunkModel model() {
        JunkModel::Sources s;
        s.scan = [this](const std::string&, const std::function<void(int, int)>& progress) {
            if (progress) progress(1, 1);
            return found;
        };
        s.adminEnabled = [this] { return adminOn; };
        s.adminScan = [this] { return admin; };
        return JunkModel(s);
    }
    FileItem file(const std::string& homePath, std::size_t bytes) {
        FileItem item;
        item.location = sh.mac.writeFileOfSize("~/" + homePath, bytes);
        item.size = static_cast<std::int64_t>(bytes);
        item.label = homePath;
        return item;
    }
    static JunkCategory category(std::string_view name, std::vector<FileItem> items) {
        auto c = JunkCatalogue::makeCategory(*JunkCatalogue::findCategory(name));
        c.items = std::move(items);
        return c;
    }
};

const JunkCategory* named(const std::vector<JunkCategory>& cats, const std::string& name) {
    for (const auto& c : cats) {
        if (c.name == name) return &c;
    }
    return nullptr;
}

TEST(JunkModel, UserChoicesSurviveTheNextScan) {
    ModelSandbox s;
    s.found = {ModelSandbox::category("Browser Caches", {s.file("Library/Caches/Google/a", 4096)}),
               ModelSandbox::category("Website Offline Data", {s.file("w/CacheStorage", 4096)}),
               ModelSandbox::category("Logs", {s.file("Library/Logs/a.log", 4096)})};
    auto model = s.model();
    model.scan();
    ASSERT_TRUE(model.scanned);
    EXPECT_TRUE(named(model.cats, "Browser Caches")->enabled);
    EXPECT_FALSE(named(model.cats, "Website Offline Data")->enabled) << "unticked by default";

    model.cats[0].enabled = false;                 // the user unticks Browser Caches
    model.cats[1].enabled = true;                  // and ticks the offline data
    model.cats[2].items[0].selected = false;       // and one log
    model.scan();
    EXPECT_FALSE(named(model.cats, "Browser Caches")->enabled);
    EXPECT_TRUE(named(model.cats, "Website Offline Data")->enabled);
    EXPECT_FALSE(named(model.cats, "Logs")->items[0].selected);
    // The ticked categories whole (offline data and logs), and what a clean moves of them.
    EXPECT_EQ(model.total, 4096 + 4096);
    EXPECT_EQ(model.movable, 4096) << "only the offline data is ticked and selected";
}

TEST(JunkModel, TheHelpersCategoriesJoinOrTheListSaysWhy) {
    HelperJunkCategory system{"cache", "System Caches", "gearshape", "/Library/Caches · Apple's excluded", {}};
    FileItem item;
    item.location = "/Library/Caches/com.example";
    item.size = 9000;
    system.items.push_back(item);

    const struct {
        const char* name;
        bool on;
        std::optional<std::vector<HelperJunkCategory>> reply;
        std::size_t cats;
        const char* activity;
        std::size_t rootItems;
    } cases[] = {
        {"helper off", false, std::vector<HelperJunkCategory>{system}, 1, "", 0},
        {"helper answers", true, std::vector<HelperJunkCategory>{system}, 2, "", 1},
        {"helper unreachable", true, std::nullopt, 1, "Admin access unavailable", 0},
    };
    for (const auto& c : cases) {
        ModelSandbox s;
        s.found = {ModelSandbox::category("Logs", {s.file("Library/Logs/a.log", 4096)})};
        s.adminOn = c.on;
        s.admin = c.reply;
        auto model = s.model();
        std::vector<std::string> seen;
        model.onChange = [&](const JunkModel& m) {
            if (!m.activity.empty() && (seen.empty() || seen.back() != m.activity)) seen.push_back(m.activity);
        };
        model.scan();
        ASSERT_EQ(model.cats.size(), c.cats) << c.name;
        EXPECT_EQ(model.activity, c.activity) << c.name;
        EXPECT_EQ(seen.front(), "Looking for junk") << c.name;
        if (c.on) {
            EXPECT_EQ(seen.at(1), "Checking system files") << c.name;
        }
        EXPECT_EQ(model.rootItems(c.on).size(), c.rootItems) << c.name;
        if (c.cats == 2) {
            const auto& admin = model.cats[1];
            EXPECT_TRUE(admin.admin);
            EXPECT_TRUE(admin.enabled);
            EXPECT_EQ(admin.icon, "gearshape");
            EXPECT_EQ(admin.note, "/Library/Caches · Apple's excluded");
            EXPECT_EQ(model.total, 4096 + 9000);
            EXPECT_TRUE(model.rootItems(false).empty()) << "no helper, no root items";
        }
    }
}

TEST(JunkModel, ResultLineAndMatchKeys) {
    EXPECT_EQ(JunkModel::resultLine(0, 0), "Moved 0 bytes to the Trash");
    EXPECT_EQ(JunkModel::resultLine(1'200'000, 0), "Moved 1.2 MB to the Trash");
    EXPECT_EQ(JunkModel::resultLine(3'000'000'000, 2), "Moved 3 GB to the Trash, 2 skipped (in use or protected)");

    ModelSandbox s;
    const std::string root = s.sh.mac.root();
    const struct {
        std::string location;
        const char* key;
    } keys[] = {
        {root + "/var/log/x", "/private/var/log/x"},
        {root + "/private/var/log/x", "/private/var/log/x"},
        {root + "/variable/x", "/variable/x"},
        {root + "/var", "/var"},
        {root + "/Library/Caches/x", "/Library/Caches/x"},
    };
    for (const auto& k : keys) EXPECT_EQ(JunkModel::matchKey(k.location), k.key) << k.location;
}

TEST(JunkModel, CleanMovesTheTickedCountsTheSkippedAndFeedsTheWidget) {
    ModelSandbox s;
    auto gone = s.file("Library/Logs/gone.log", 100'000);
    s.found = {ModelSandbox::category("Logs", {s.file("Library/Logs/a.log", 1'000'000), gone,
                                              s.file("Library/Logs/kept.log", 50'000)}),
               ModelSandbox::category("Website Offline Data", {s.file("w/CacheStorage", 70'000)})};
    auto model = s.model();
    model.scan();
    model.cats[0].items[2].selected = false;
    std::filesystem::remove(gone.location);  // vanishes between the scan and the clean

    const auto result = model.clean("Junk");
    EXPECT_EQ(result.freed, 1'000'000);
    EXPECT_EQ(result.moved, 1u);
    EXPECT_EQ(result.skippedLocations, std::vector<std::string>{gone.location});
    EXPECT_EQ(model.message, "Moved 1 MB to the Trash, 1 skipped (in use or protected)");
    EXPECT_FALSE(std::filesystem::exists(s.sh.mac.path("~/Library/Logs/a.log")));
    EXPECT_TRUE(std::filesystem::exists(s.sh.mac.path("~/Library/Logs/kept.log"))) << "not selected";
    EXPECT_TRUE(std::filesystem::exists(s.sh.mac.path("~/w/CacheStorage"))) << "category not ticked";

    auto& settings = quorv::settings();
    EXPECT_EQ(settings.number("widget.lastClean"), s.sh.now);
    EXPECT_EQ(settings.integer("widget.lastFreed"), 1'000'000);
    ASSERT_EQ(model.cats[0].items.size(), 2u) << "the moved item is pruned, the others stay";
    EXPECT_TRUE(model.cats[0].enabled);

    const auto sessions = brimstell::History::shared().sessions();
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0].source, "Junk");
    EXPECT_EQ(sessions[0].freed, 1'000'000);

    // Nothing left to move: the widget still learns that the last clean freed nothing.
    s.sh.setNow(s.sh.now + 60);
    model.cats[0].enabled = false;
    const auto none = model.clean();
    EXPECT_EQ(none.freed, 0);
    EXPECT_EQ(model.message, "Moved 0 bytes to the Trash");
    EXPECT_EQ(settings.number("widget.lastClean"), s.sh.now);
    EXPECT_EQ(settings.integer("widget.lastFreed"), 0);
}

// A home with junk of many kinds, scanned by the real scanner, cleaned whole and put back whole.
TEST(JunkModel, AWholeScanCleanedComesBackFromTheHistory) {
    ModelSandbox s;
    const std::map<std::string, std::size_t> files = {
        {"Library/Caches/com.apple.Safari/Cache.db", 300'000},
        {"Library/Caches/com.spotify.client/Data/blob", 200'000},
        {"Library/Caches/com.example.app/x", 100'000},
        {"Library/Application Support/Google/Chrome/Default/Code Cache/js/a", 150'000},
        {"Library/Application Support/Google/Chrome/Default/Service Worker/CacheStorage/b", 120'000},
        {"Library/Logs/Example/e.log", 50'000},
        {"Library/Developer/Xcode/DerivedData/App-1/x", 400'000},
        {"Library/Developer/Xcode/Archives/A/x", 90'000},
        {"Downloads/setup.dmg", 250'000},
        {"Library/Containers/com.apple.mail/Data/Library/Mail Downloads/att.pdf", 60'000},
    };
    for (const auto& [path, size] : files) s.sh.mac.writeFileOfSize("~/" + path, size);
    s.sh.mac.writeFile("~/Library/Application Support/Google/Chrome/Default/Login Data", "secret");

    JunkModel::Sources sources = JunkModel::defaultSources();
    sources.adminEnabled = [] { return false; };
    JunkModel model(sources);
    model.scan();
    std::size_t items = 0;
    for (auto& c : model.cats) {
        c.enabled = true;
        for (auto& item : c.items) item.selected = true;
        items += c.items.size();
    }
    ASSERT_GE(items, 9u);
    const auto result = model.clean();
    EXPECT_EQ(result.skipped, 0u);
    for (const auto& [path, size] : files) EXPECT_FALSE(std::filesystem::exists(s.sh.mac.path("~/" + path))) << path;
    EXPECT_TRUE(std::filesystem::exists(s.sh.mac.path("~/Library/Application Support/Google/Chrome/Default/Login Data")));

    auto& history = brimstell::History::shared();
    const auto restored = history.restore(history.entries());
    for (const auto& r : restored) EXPECT_TRUE(r.ok()) << r.message();
    for (const auto& [path, size] : files) {
        const auto location = s.sh.mac.path("~/" + path);
        ASSERT_TRUE(std::filesystem::exists(location)) << path;
        EXPECT_EQ(std::filesystem::file_size(location), size) << path;
    }
}

}  // namespace
