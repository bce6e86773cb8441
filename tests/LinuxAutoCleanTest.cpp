// Auto Clean, the agent's junk measurement and the widget on a Linux home: what the Linux rules
// tick by default goes, what they list unticked, the Trash and everything no rule names stay, and
// the share the widget shows is exactly what a run would take.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "kit/cleaning/AutoClean.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "kit/cleaning/JunkScanner.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "shared/widget/WidgetSnapshot.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/settings/PlistFileStore.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

namespace fs = std::filesystem;

struct LinuxAutoCleanHome {
    testing_support::LinuxTrashHost h;
    quorv::HostScope scope{h.host};
    LinuxAutoCleanHome() { h.host->settings = std::make_shared<quorv::PlistFileStore>(h.host->settingsFile()); }

    std::string at(const std::string& rel) const { return h.home + "/" + rel; }
    void file(const std::string& rel, std::size_t bytes) const {
        fs::create_directories(fs::path(at(rel)).parent_path());
        std::ofstream(at(rel)) << std::string(bytes, 'x');
    }
};

// Ticked by default, so Auto Clean takes it.
const std::vector<std::string> kTaken = {
    ".cache/mozilla/firefox/ab12.default/cache2/entries/A1",
    ".cache/thumbnails/large/0f.png",
    ".cache/some-app/blob",
    ".var/app/org.gimp.GIMP/cache/gegl/tile",
    ".xsession-errors",
    "Downloads/tool_1.2_amd64.deb",
    ".cache/pip/http/x",
    ".cache/go-build/00/a",
};

// Listed but not ticked by default, in the Trash, or named by no rule: Auto Clean leaves it.
const std::vector<std::string> kLeft = {
    ".m2/repository/org/example/app/1.0-SNAPSHOT/app.jar",
    ".local/share/pnpm/store/v3/files/00/x",
    ".cache/huggingface/hub/model.bin",
    ".config/google-chrome/Default/Login Data",
    ".var/app/org.gimp.GIMP/data/brushes/b.gbr",
    "Documents/report.odt",
    "Dropbox/holiday.jpg",
};

TEST(LinuxAutoClean, ARunTakesTheDefaultJunkOfTheLinuxRulesOnly) {
    LinuxAutoCleanHome l;
    for (const auto& rel : kTaken) l.file(rel, 40'000);
    for (const auto& rel : kLeft) l.file(rel, 30'000);
    l.file("Documents/thrown.txt", 10'000);
    ASSERT_EQ(brimstell::FS::trash(std::vector<std::string>{l.at("Documents/thrown.txt")}).moved.size(), 1u);

    // The agent's measurement: the share the widget shows is what the run below frees.
    const auto share = brimstell::JunkModel::autoCleanShare(brimstell::JunkScanner::scan(l.h.home));
    EXPECT_GE(share, 8 * 40'000);

    brimstell::AutoClean autoClean;
    const auto freed = autoClean.run(true);
    ASSERT_TRUE(freed.has_value());
    EXPECT_EQ(*freed, share);
    for (const auto& rel : kTaken) EXPECT_FALSE(fs::exists(l.at(rel))) << rel;
    for (const auto& rel : kLeft) EXPECT_TRUE(fs::exists(l.at(rel))) << rel;
    EXPECT_TRUE(fs::exists(l.h.trash + "/files/thrown.txt")) << "the Trash goes only by the Trash rule";
    const auto sessions = brimstell::History::shared().sessions();
    ASSERT_FALSE(sessions.empty());
    EXPECT_EQ(sessions[0].source, "Auto Clean");

    // A model scan afterwards hands the widget what is left for Auto Clean: nothing.
    brimstell::JunkModel::Sources sources = brimstell::JunkModel::defaultSources();
    sources.adminEnabled = [] { return false; };
    brimstell::JunkModel model(sources);
    model.scan();
    const auto container = brimstell::WidgetSnapshot::container();
    ASSERT_TRUE(container.has_value());
    const auto snapshot = brimstell::WidgetSnapshot::read(*container);
    ASSERT_TRUE(snapshot.has_value());
    EXPECT_EQ(snapshot->junk, 0);
    EXPECT_EQ(snapshot->lastFreed, *freed);
}

}  // namespace
