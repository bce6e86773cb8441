// Where Brimstell keeps its files on Linux (the XDG base directories), and the files an earlier
// version kept elsewhere moving over once.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include "kit/agent/FormerPlaces.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/host/Host.hpp"

namespace {

using brimstell::FormerPlaces;
using testing_support::readText;
using testing_support::TempDir;

void writeBytes(const std::string& path, const std::string& text) {
    testing_support::makeFolders(path.substr(0, path.rfind('/')));
    testing_support::writeBytes(path, text);
}

TEST(XdgPlaces, StateAndSettingsFollowTheVariablesThatMayBeTrusted) {
    const struct {
        std::map<std::string, std::string> env;
        std::string state;
        std::string settings;
    } cases[] = {
        {{{"HOME", "/home/a"}}, "/home/a/.local/state/brimstell", "/home/a/.config/brimstell/settings.plist"},
        {{{"HOME", "/home/a"}, {"XDG_STATE_HOME", "/var/st/"}, {"XDG_CONFIG_HOME", "/etc/cf"}},
         "/var/st/brimstell", "/etc/cf/brimstell/settings.plist"},
        // Relative or empty values are ignored, as the base directory rules require.
        {{{"HOME", "/home/a"}, {"XDG_STATE_HOME", "state"}, {"XDG_CONFIG_HOME", ""}},
         "/home/a/.local/state/brimstell", "/home/a/.config/brimstell/settings.plist"},
        // A sandbox Mac keeps the Mac's places.
        {{{"HOME", "/m/Users/ann"}, {"BRIMSTELL_ROOT", "/m"}, {"BRIMSTELL_PLATFORM", "mac"}, {"XDG_STATE_HOME", "/x"}},
         "/m/Users/ann/Library/Application Support/Brimstell", "/m/Users/ann/Library/Preferences/com.quorv.brimstell.plist"},
    };
    for (const auto& c : cases) {
        const auto h = quorv::hostFromEnvironment(c.env);
        EXPECT_EQ(h->appSupport(), c.state) << c.state;
        EXPECT_EQ(h->settingsFile(), c.settings) << c.state;
        EXPECT_EQ(h->appSupport().find("/Library/"), h->isMac() ? h->appSupport().find("/Library/") : std::string::npos);
    }
    const auto linux = quorv::hostFromEnvironment({{"HOME", "/home/a"}, {"BRIMSTELL_PLATFORM", "linux"}});
    EXPECT_EQ(linux->groupContainer("G.group"), "/home/a/.local/state/brimstell/G.group");
}

struct OldInstall {
    TempDir dir;
    std::string home = dir / "home";
    std::shared_ptr<quorv::Host> host =
        quorv::hostFromEnvironment({{"HOME", home}, {"BRIMSTELL_PLATFORM", "linux"}});
    quorv::HostScope scope{host};
    std::string oldData = home + "/.local/share/brimstell";
    std::string state = home + "/.local/state/brimstell";
    std::string config = home + "/.config/brimstell";
};

TEST(FormerPlaces, MoveOverOnceAndNeverOverANewerFile) {
    OldInstall o;
    writeBytes(o.oldData + "/history/history.json", "[]");
    writeBytes(o.oldData + "/K3Q8ZT2WMX.com.quorv.brimstell/widget.json", "{}");
    writeBytes(o.oldData + "/health-history.json", "old health");
    writeBytes(o.state + "/health-history.json", "newer health");
    writeBytes(o.config + "/com.quorv.brimstell.plist", "settings");

    EXPECT_EQ(FormerPlaces::moveOver(), 3u);
    EXPECT_EQ(readText(o.state + "/history/history.json"), "[]");
    EXPECT_EQ(readText(o.state + "/K3Q8ZT2WMX.com.quorv.brimstell/widget.json"), "{}");
    EXPECT_EQ(readText(o.config + "/settings.plist"), "settings");
    EXPECT_FALSE(testing_support::exists(o.config + "/com.quorv.brimstell.plist"));
    // The newer file stays, and so does the old one, which nothing overwrote.
    EXPECT_EQ(readText(o.state + "/health-history.json"), "newer health");
    EXPECT_EQ(readText(o.oldData + "/health-history.json"), "old health");

    EXPECT_EQ(FormerPlaces::moveOver(), 0u) << "a second start has nothing new to move";
    ASSERT_EQ(::unlink((o.oldData + "/health-history.json").c_str()), 0);
    EXPECT_EQ(FormerPlaces::moveOver(), 0u);
    EXPECT_FALSE(testing_support::exists(o.oldData)) << "the emptied old folder goes";
}

TEST(FormerPlaces, LinksInTheOldPlacesAreNotFollowed) {
    OldInstall o;
    const std::string elsewhere = o.dir / "elsewhere";
    writeBytes(elsewhere + "/history/history.json", "theirs");
    testing_support::makeFolders(o.home + "/.local/share");
    ASSERT_EQ(::symlink(elsewhere.c_str(), o.oldData.c_str()), 0);
    writeBytes(o.dir / "other.plist", "not ours");
    testing_support::makeFolders(o.config);
    ASSERT_EQ(::symlink((o.dir / "other.plist").c_str(), (o.config + "/com.quorv.brimstell.plist").c_str()), 0);

    EXPECT_EQ(FormerPlaces::moveOver(), 0u);
    EXPECT_EQ(readText(elsewhere + "/history/history.json"), "theirs");
    EXPECT_FALSE(testing_support::exists(o.state + "/history"));
    EXPECT_FALSE(testing_support::exists(o.config + "/settings.plist"));
}

TEST(FormerPlaces, ASandboxMacHasNone) {
    const auto mac = quorv::hostFromEnvironment({{"HOME", "/m/Users/ann"}, {"BRIMSTELL_ROOT", "/m"}, {"BRIMSTELL_PLATFORM", "mac"}});
    EXPECT_TRUE(mac->formerPlaces().empty());
}

}  // namespace
