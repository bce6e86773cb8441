// What starts on Linux beyond its unit and autostart files: the package that owns each program,
// the user's crontab, and switching units and autostart entries off and on.

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "kit/agent/LoginItemWatch.hpp"
#include "kit/insight/Autostart.hpp"
#include "kit/insight/BackgroundModel.hpp"
#include "kit/insight/Crontab.hpp"
#include "kit/insight/Provenance.hpp"
#include "kit/sandbox/SandboxStartup.hpp"
#include "shared/helper/HelperDispatch.hpp"
#include "shared/helper/HelperLinuxService.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::Autostart;
using brimstell::BackgroundItem;
using brimstell::Crontab;
using brimstell::Provenance;
using Strings = std::vector<std::string>;

TEST(Provenance, DpkgAndRpmAnswers) {
    // As dpkg-query -S prints them (the "no path found" lines go to standard error).
    const auto owners = Provenance::fromDpkg(
        "coreutils: /bin/ls\n"
        "diversion by dash from: /bin/sh\n"
        "diversion by dash to: /bin/sh.distrib\n"
        "dash: /bin/sh\n"
        "local diversion to: /usr/bin/x.real\n"
        "libc6:amd64, libc6-dev:amd64: /usr/lib/x86_64-linux-gnu/odd: name\r\n"
        "dpkg-query: no path found matching pattern /usr/bin/ls\n"
        ": /nameless\n"
        "no colon here\n");
    EXPECT_EQ(owners, (std::map<std::string, std::string>{{"/bin/ls", "coreutils"},
                                                          {"/bin/sh", "dash"},
                                                          {"/usr/lib/x86_64-linux-gnu/odd: name", "libc6:amd64, libc6-dev:amd64"}}));
    const struct {
        const char* answer;
        std::optional<std::string> package;
    } rpm[] = {
        {"bash\n", "bash"},
        {"file /opt/tool/run is not owned by any package\n", std::nullopt},
        {"error: file /gone: No such file or directory\n", std::nullopt},
        {"filesystem\nsetup\n", "filesystem, setup"},
        {"", std::nullopt},
    };
    for (const auto& r : rpm) EXPECT_EQ(Provenance::fromRpm(r.answer), r.package) << r.answer;

    EXPECT_EQ(Provenance{"coreutils"}.summary(), "From the package coreutils");
    EXPECT_EQ(Provenance{"a, b"}.summary(), "From the packages a, b");
    EXPECT_EQ(Provenance{}.summary(), "Not from any package");
}

TEST(Provenance, NamesOnAMergedUsr) {
    EXPECT_EQ(Provenance::aliases("/usr/bin/ls", "/usr/bin/ls"), (Strings{"/usr/bin/ls", "/bin/ls"}));
    EXPECT_EQ(Provenance::aliases("/usr/bin/awk", "/usr/bin/mawk"),
              (Strings{"/usr/bin/awk", "/usr/bin/mawk", "/bin/awk", "/bin/mawk"}));
    EXPECT_EQ(Provenance::aliases("/sbin/x", "/usr/sbin/x"), (Strings{"/sbin/x", "/usr/sbin/x"}));
    EXPECT_EQ(Provenance::aliases("/opt/a/run", "/opt/a/run"), (Strings{"/opt/a/run"}));
    EXPECT_EQ(Provenance::aliases("/usr/binary", "/usr/binary"), (Strings{"/usr/binary"})) << "not /usr/bin/";
}

TEST(Crontab, CommandLinesOnly) {
    const auto lines = Crontab::parse(
        "# m h dom mon dow command\n"
        "MAILTO=\"\"\n"
        "PATH = /usr/bin:/bin\n"
        "\n"
        "@reboot /home/u/bin/sync --quiet\n"
        "  */5 * * * *\t/usr/bin/backup run\r\n"
        "0 3 * * mon-fri PYTHONPATH=x /opt/job.sh % input\n"
        "@daily\n"
        "1 2 3 4\n"
        "@hourly \"/opt/with space/run\"");
    ASSERT_EQ(lines.size(), 4u);
    const struct {
        int number;
        const char* schedule;
        const char* command;
        bool atStart;
    } expected[] = {
        {5, "@reboot", "/home/u/bin/sync --quiet", true},
        {6, "*/5 * * * *", "/usr/bin/backup run", false},
        {7, "0 3 * * mon-fri", "PYTHONPATH=x /opt/job.sh % input", false},
        {10, "@hourly", "\"/opt/with space/run\"", false},
    };
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].number, expected[i].number);
        EXPECT_EQ(lines[i].schedule, expected[i].schedule);
        EXPECT_EQ(lines[i].command, expected[i].command);
        EXPECT_EQ(lines[i].atStart(), expected[i].atStart);
    }
    const auto item = Crontab::item(lines[3]);
    EXPECT_EQ(item.label, "crontab:10");
    EXPECT_EQ(item.shownName(), "run");
    EXPECT_EQ(item.listedName, "@hourly \"/opt/with space/run\"");
    EXPECT_EQ(item.program, "/opt/with space/run");
}

TEST(Crontab, NoCrontabIsAnEmptyOne) {
    const auto answer = [](bool started, int status, const char* out, const char* errors) {
        quorv::ShellResult r;
        r.started = started;
        r.status = status;
        r.output = out;
        r.errorOutput = errors;
        return r;
    };
    EXPECT_EQ(Crontab::listed(answer(true, 1, "", "no crontab for someone\n")), "");
    EXPECT_EQ(Crontab::listed(answer(true, 1, "", "crontab: must be privileged\n")), std::nullopt);
    EXPECT_EQ(Crontab::listed(answer(false, -1, "", "")), std::nullopt);
    EXPECT_EQ(Crontab::listed(answer(true, 0, "@reboot x\n", "")), "@reboot x\n");
}

TEST(Autostart, SwitchingAnEntryRewritesOnlyItsSwitches) {
    const struct {
        const char* text;
        bool on;
        std::optional<std::string> result;
    } cases[] = {
        {"[Desktop Entry]\nName=Tray\nExec=tray\n", false, "[Desktop Entry]\nHidden=true\nName=Tray\nExec=tray\n"},
        {"# c\n[Desktop Entry]\nName=T\nHidden=false\nX-GNOME-Autostart-enabled=false\n\n[Desktop Action a]\nHidden=true\n",
         true, "# c\n[Desktop Entry]\nName=T\n\n[Desktop Action a]\nHidden=true\n"},
        {"[Desktop Entry]\nX-MATE-Autostart-enabled = true\nName=M", false, "[Desktop Entry]\nHidden=true\nName=M\n"},
        {"[Desktop Entry]\n#Hidden=true\nName=C\n", true, "[Desktop Entry]\n#Hidden=true\nName=C\n"},
        {"Name=no group\n", false, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto out = Autostart::switched(c.text, c.on);
        EXPECT_EQ(out, c.result) << c.text;
        if (out) {
            EXPECT_EQ(Autostart::desktopEntry(*out)->enabled, c.on) << *out;
        }
    }
}

TEST(Autostart, TheDesktopsAnEntryStartsIn) {
    const struct {
        const char* keys;
        const char* desktops;
        bool starts;
    } cases[] = {
        {"OnlyShowIn=GNOME;KDE;\n", "ubuntu:GNOME", true},
        {"OnlyShowIn=KDE;\n", "ubuntu:GNOME", false},
        {"OnlyShowIn=KDE;\n", "", true},
        {"NotShowIn=gnome;\n", "ubuntu:GNOME", false},
        {"NotShowIn=XFCE;\nOnlyShowIn=GNOME\n", "GNOME", true},
        {"OnlyShowIn=;\n", "GNOME", true},
    };
    for (const auto& c : cases) {
        const auto e = Autostart::desktopEntry(std::string("[Desktop Entry]\nName=N\nExec=n\n") + c.keys);
        ASSERT_TRUE(e);
        EXPECT_EQ(Autostart::startsIn(*e, c.desktops), c.starts) << c.keys << c.desktops;
    }
}

TEST(Autostart, UnitSwitchCommandsAndTheHelpersOwn) {
    using Scope = BackgroundItem::Scope;
    using Calls = std::vector<Strings>;
    EXPECT_EQ(Autostart::unitSwitch("a.service", Scope::user, false), (Calls{{"--user", "disable", "--now", "a.service"}}));
    EXPECT_EQ(Autostart::unitSwitch("a.service", Scope::user, true), (Calls{{"--user", "enable", "--now", "a.service"}}));
    EXPECT_EQ(Autostart::unitSwitch("a.service", Scope::allUsers, false), (Calls{{"--user", "mask", "--now", "a.service"}}));
    EXPECT_EQ(Autostart::unitSwitch("a.service", Scope::allUsers, true),
              (Calls{{"--user", "unmask", "a.service"}, {"--user", "enable", "--now", "a.service"}}));

    namespace svc = brimstell::HelperLinuxService;
    EXPECT_EQ(svc::arguments("disable backup.service"), (Strings{"disable", "--now", "--", "backup.service"}));
    EXPECT_EQ(svc::arguments("enable getty@tty1.service"), (Strings{"enable", "--now", "--", "getty@tty1.service"}));
    for (const char* hostile : {"stop backup.service", "disable backup.timer", "disable .service", "disable -x.service",
                                "disable a b.service", "disable ../x.service", "disable a;rm.service", "enable"})
        EXPECT_EQ(svc::arguments(hostile), std::nullopt) << hostile;
}

}  // namespace

namespace {

namespace fs = std::filesystem;

struct LinuxStartup : ::testing::Test {
    testing_support::SandboxHost sandbox;
    brimstell::SandboxMac& m = sandbox.mac;
    void SetUp() override {
        sandbox.host->platform = quorv::Platform::linux;
        for (const char* program : {"/usr/bin/tray", "/usr/bin/syncd", "/usr/bin/shared", "/opt/own/run"})
            fs::permissions(m.writeFile(program, "#!/bin/sh\n"), fs::perms::owner_all);
        m.writeFile("~/.config/systemd/user/syncd.service", "[Service]\nExecStart=/usr/bin/syncd\n");
        m.writeFile("/etc/systemd/user/shared.service", "[Service]\nExecStart=/usr/bin/shared\n");
        m.writeFile("/etc/systemd/user/default.target.wants/shared.service", "");
        // Another name of a unit elsewhere: the unit it names is read.
        m.writeFile("/lib/systemd/system/backupd.service", "[Service]\nExecStart=/usr/bin/syncd\n");
        m.writeFile("/etc/systemd/system/multi-user.target.wants/backup.service", "");
        fs::create_symlink("/lib/systemd/system/backupd.service", m.path("/etc/systemd/system/backup.service"));
        m.writeFile("/etc/xdg/autostart/tray.desktop", "[Desktop Entry]\nName=Tray\nExec=tray --min\n");
        m.addFakeTool("/usr/bin/dpkg-query", "printf 'traypkg: /usr/bin/tray\\nsyncd: /usr/bin/syncd\\n'; exit 1");
        m.addFakeTool("/usr/bin/crontab", "printf '# mine\\nMAILTO=me\\n@reboot /opt/own/run --x\\n'");
        m.addFakeTool("/usr/bin/systemctl", "exit 0");
    }
    std::string tools() const { return testing_support::readText(m.path("/private/var/log/tools.log")); }
};

TEST_F(LinuxStartup, PackagesCrontabAndWhatDeservesALook) {
    quorv::HostScope scope(sandbox.host);
    brimstell::BackgroundModel model;
    model.load();
    std::vector<std::string> rows;
    for (const auto& i : model.scan.items)
        rows.push_back(i.label + " " + (i.provenance ? i.provenance->summary() : "-") + (i.enabled ? " on" : " off"));
    EXPECT_EQ(rows, (Strings{"backup.service From the package syncd on", "crontab:3 Not from any package on",
                             "shared.service Not from any package on", "syncd.service From the package syncd off",
                             "tray.desktop From the package traypkg on"}));
    EXPECT_EQ(model.find("crontab:3")->shownName(), "run");
    EXPECT_NE(tools().find("/usr/bin/dpkg-query --search "), std::string::npos);
    EXPECT_EQ(tools().find("/usr/bin/dpkg-query", tools().find("dpkg-query") + 1), std::string::npos) << "one call for all";
    sandbox.setNow(static_cast<double>(::time(nullptr)) + 8 * 86400);
    EXPECT_EQ(model.worthALook(), 2u) << "the crontab's program and the shared unit's belong to no package";
    EXPECT_FALSE(model.toggle(*model.find("crontab:3")));
    EXPECT_EQ(model.message, "Crontab lines are changed with crontab -e");
    fs::remove(m.path("/opt/own/run"));
    EXPECT_FALSE(model.remove(*model.find("crontab:3"))) << "its place is the whole crontab";
    EXPECT_EQ(model.message, "Crontab lines are changed with crontab -e");
    model.pruneMissing();
    EXPECT_TRUE(model.find("crontab:3")) << "a crontab line has no file to go missing";
}

TEST_F(LinuxStartup, AnAutostartEntryIsSwitchedThroughTheUsersOwn) {
    quorv::HostScope scope(sandbox.host);
    brimstell::BackgroundModel model;
    model.load();
    const auto mine = m.path("~/.config/autostart/tray.desktop");
    ASSERT_TRUE(model.toggle(*model.find("tray.desktop")));
    EXPECT_EQ(testing_support::readText(mine), "[Desktop Entry]\nHidden=true\nName=Tray\nExec=tray --min\n");
    model.load();
    const auto* tray = model.find("tray.desktop");
    EXPECT_EQ(tray->scope, BackgroundItem::Scope::user);
    EXPECT_FALSE(tray->enabled);
    ASSERT_TRUE(model.toggle(*tray));
    EXPECT_FALSE(fs::exists(mine)) << "the override is taken away again";
    model.load();
    EXPECT_EQ(model.find("tray.desktop")->scope, BackgroundItem::Scope::allUsers);

    // An override the user changed is kept, switched on.
    m.writeFile("~/.config/autostart/tray.desktop", "[Desktop Entry]\nHidden=true\nName=My tray\nExec=tray\n");
    model.load();
    ASSERT_TRUE(model.toggle(*model.find("tray.desktop")));
    EXPECT_EQ(testing_support::readText(mine), "[Desktop Entry]\nName=My tray\nExec=tray\n");
}

TEST_F(LinuxStartup, UnitsThroughSystemctlAndTheSystemsThroughTheHelper) {
    quorv::HostScope scope(sandbox.host);
    brimstell::BackgroundModel model;
    model.load();
    ASSERT_TRUE(model.toggle(*model.find("shared.service")));
    ASSERT_TRUE(model.toggle(*model.find("syncd.service")));
    EXPECT_NE(tools().find("/usr/bin/systemctl --user mask --now shared.service\n"
                           "/usr/bin/systemctl --user enable --now syncd.service\n"),
              std::string::npos)
        << tools();
    // The user's mask of a unit of all users switches it off, and is no unit of its own.
    fs::create_symlink("/dev/null", m.path("~/.config/systemd/user/shared.service"));
    model.load();
    EXPECT_FALSE(model.find("shared.service")->enabled);
    EXPECT_EQ(model.find("shared.service")->scope, BackgroundItem::Scope::allUsers);
    EXPECT_EQ(model.scan.items.size(), 5u);

    sandbox.host->helper.reset();
    EXPECT_FALSE(model.toggle(*model.find("backup.service")));
    EXPECT_EQ(model.message, "System items need admin access");
}

TEST_F(LinuxStartup, CaptionsAndTheWatchedFolders) {
    quorv::HostScope scope(sandbox.host);
    using Scope = BackgroundItem::Scope;
    EXPECT_STREQ(BackgroundItem::caption(Scope::user), "Services and programs that start for your account");
    EXPECT_STREQ(BackgroundItem::caption(Scope::allUsers), "Services and programs that start for everyone on this computer");
    EXPECT_STREQ(BackgroundItem::caption(Scope::system), "System services, run as root");
    m.writeFile("~/.config/autostart/odd.desktop.bak", "");
    m.writeFile("~/.config/autostart/a.plist", "");
    EXPECT_EQ(brimstell::LoginItemWatch::current(),
              (std::set<std::string>{m.path("~/.config/systemd/user/syncd.service"), m.path("/etc/systemd/user/shared.service"),
                                     m.path("/etc/systemd/system/backup.service"), m.path("/etc/xdg/autostart/tray.desktop")}));
    EXPECT_EQ(brimstell::LoginItemWatch::places().front(), m.path("~/.config/autostart"));
}

// The Linux helper's "svc" runs the systemctl of its root, and answers "OK" only when it worked.
TEST(HelperLinuxService, SwitchesThroughSystemctl) {
    testing_support::TempDir root;
    fs::create_directories(root / "usr/bin");
    const auto log = root / "calls.log";
    {
        std::ofstream tool(root / "usr/bin/systemctl");
        tool << "#!/bin/sh\necho \"$*\" >> '" << log << "'\n[ \"$4\" = broken.service ] && exit 1\nexit 0\n";
    }
    fs::permissions(root / "usr/bin/systemctl", fs::perms::owner_all);
    const auto dispatch = brimstell::HelperDispatch::open(root.path(), brimstell::HelperRules::linux);
    ASSERT_TRUE(dispatch.has_value());
    EXPECT_EQ(dispatch->run("svc", "disable backup.service", {}, "/home/me"), "OK\n");
    EXPECT_EQ(dispatch->run("svc", "enable broken.service", {}, "/home/me"), "");
    EXPECT_EQ(dispatch->run("svc", "disable a;b.service", {}, "/home/me"), "");
    EXPECT_EQ(testing_support::readText(log), "disable --now -- backup.service\nenable --now -- broken.service\n");
}

// A sandbox Mac whose helper can't be reached: no login items, and system items can't be switched.
TEST(StartupWithoutHelper, SaysWhatNeedsAdminAccess) {
    testing_support::SandboxHost sandbox;
    brimstell::addStartupItems(sandbox.mac);
    sandbox.host->helper.reset();
    quorv::HostScope scope(sandbox.host);
    brimstell::BackgroundModel model;
    model.load();
    EXPECT_EQ(model.loginNote, " · Listing login items needs admin access");
    EXPECT_FALSE(model.scan.loginKnown);
    EXPECT_FALSE(model.toggle(*model.find("com.example.backupd")));
    EXPECT_EQ(model.message, "System items need admin access");
    EXPECT_TRUE(model.toggle(*model.find("com.example.editor.updater"))) << "the user's own need no helper";
}

}  // namespace
