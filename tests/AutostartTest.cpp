// Linux's start-up files: XDG autostart entries and systemd units, with the keys that switch them off.

#include <gtest/gtest.h>

#include <filesystem>

#include "kit/insight/Autostart.hpp"
#include "kit/insight/BackgroundItems.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::Autostart;

TEST(Autostart, DesktopEntriesAndTheKeysThatSwitchThemOff) {
    const struct {
        const char* text;
        bool listed;
        bool enabled;
        const char* name;
        const char* program;
    } cases[] = {
        {"[Desktop Entry]\nType=Application\nName=Notes\nName[de]=Notizen\nExec=/usr/bin/notes --hidden %U\n", true, true,
         "Notes", "/usr/bin/notes"},
        {"[Desktop Entry]\nName=Sync\nExec=\"/opt/My Sync/sync\" -x\nHidden=true\n", true, false, "Sync", "/opt/My Sync/sync"},
        {"[Desktop Entry]\nName=Tray\nExec=tray\nX-GNOME-Autostart-enabled=false\n", true, false, "Tray", "tray"},
        {"[Desktop Entry]\nName=Mate\nExec=m\nX-MATE-Autostart-enabled = False\n", true, false, "Mate", "m"},
        {"[Desktop Entry]\nName=On\nExec=on\nX-GNOME-Autostart-enabled=true\nHidden=false\n", true, true, "On", "on"},
        {"[Desktop Action quit]\nHidden=true\n[Desktop Entry]\nName=Late\nExec=late\n", true, true, "Late", "late"},
        {"[Desktop Entry]\nName=Link\nType=Link\nURL=https://example.com\n", false, false, "", ""},
        {"Name=No group\nExec=x\n", false, false, "", ""},
        {"[Desktop Entry]\nName=Empty\nExec=\n", true, true, "Empty", ""},
    };
    for (const auto& c : cases) {
        const auto e = Autostart::desktopEntry(c.text);
        ASSERT_EQ(e.has_value(), c.listed) << c.text;
        if (!e) continue;
        EXPECT_EQ(e->enabled, c.enabled) << c.text;
        EXPECT_EQ(e->name, c.name);
        EXPECT_EQ(e->program.value_or(""), c.program) << c.text;
    }
}

TEST(Autostart, UnitPrograms) {
    const struct {
        const char* text;
        const char* program;
    } cases[] = {
        {"[Unit]\nDescription=x\n[Service]\nExecStart=/usr/bin/syncd --user\n", "/usr/bin/syncd"},
        {"[Service]\nExecStartPre=/bin/true\nExecStart=-@/usr/lib/a/b b-name\nExecStart=/second\n", "/usr/lib/a/b"},
        {"[Service]\n# ExecStart=/commented\nExecStart = \"/opt/with space/run\"\n", "/opt/with space/run"},
        {"[Unit]\nExecStart=/not/in/service\n", ""},
        {"[Service]\nExecStart=\n", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(Autostart::unitProgram(c.text).value_or(""), c.program) << c.text;
}

}  // namespace

namespace {

TEST(Autostart, ListsUnitsAndEntriesOfALinuxHost) {
    testing_support::SandboxHost sandbox;
    sandbox.host->platform = quorv::Platform::linux;
    quorv::HostScope scope(sandbox.host);
    auto& m = sandbox.mac;
    m.writeFile("~/.config/systemd/user/syncd.service", "[Service]\nExecStart=/usr/bin/syncd\n");
    m.writeFile("~/.config/systemd/user/idle.service", "[Service]\nExecStart=/opt/idle/run\n");
    m.makeFolder("~/.config/systemd/user/default.target.wants");
    std::filesystem::create_symlink("../syncd.service", m.path("~/.config/systemd/user/default.target.wants/syncd.service"));
    m.makeFolder("/etc/systemd/user");
    std::filesystem::create_symlink("/dev/null", m.path("/etc/systemd/user/masked.service"));
    m.writeFile("/etc/systemd/system/backup.service", "[Service]\nExecStart=-/usr/sbin/backupd\n");
    m.writeFile("/etc/systemd/system/multi-user.target.wants/backup.service", "");
    m.writeFile("~/.config/autostart/notes.desktop", "[Desktop Entry]\nName=Notes\nExec=notes\nHidden=true\n");
    m.writeFile("/etc/xdg/autostart/notes.desktop", "[Desktop Entry]\nName=Notes (system)\nExec=notes\n");
    m.writeFile("/etc/xdg/autostart/tray.desktop", "[Desktop Entry]\nName=Tray\nExec=/usr/bin/tray\n");
    m.addFakeTool("/usr/bin/systemctl",
                  "case \"$1\" in --user) printf 'syncd.service loaded active running Sync\\n' ;;"
                  " *) printf 'backup.service loaded active running Backup\\n' ;; esac");

    const auto scan = brimstell::BackgroundItems::scan(std::nullopt);
    EXPECT_FALSE(scan.loginKnown);
    std::vector<std::string> rows;
    for (const auto& i : scan.items) {
        rows.push_back(i.label + " " + brimstell::BackgroundItem::scopeLabel(i.scope) + (i.enabled ? " on" : " off") +
                       (i.running ? " running " : " ") + i.program.value_or("-") + " " + i.listedName.value_or("-"));
    }
    EXPECT_EQ(rows, (std::vector<std::string>{
                        "backup.service System on running /usr/sbin/backupd -",
                        "idle.service Your account off /opt/idle/run -",
                        "masked.service All users off - -",
                        "notes.desktop Your account off notes Notes",
                        "syncd.service Your account on running /usr/bin/syncd -",
                        "tray.desktop All users on /usr/bin/tray Tray",
                    }));
}

}  // namespace
