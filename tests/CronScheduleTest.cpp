// The agent's hourly start from cron, where there is no user systemd: one marked line in the
// user's crontab, everything else in it left alone.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <string>

#include "kit/agent/CronSchedule.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using brimstell::CronSchedule;

const std::string ours = "7 * * * * '/opt/b/brimstell-agent' # brimstell-agent, added by: brimstell agent on --cron";

TEST(CronSchedule, OurLineComesInOnceAndGoesLeavingTheRest) {
    EXPECT_EQ(CronSchedule::line("/opt/b/brimstell-agent", 7), ours);
    EXPECT_EQ(CronSchedule::line("/it's/agent", 0), "0 * * * * '/it'\\''s/agent' # brimstell-agent, added by: brimstell agent on --cron");
    const struct {
        std::string before;
        std::string with;
        std::string without;
    } cases[] = {
        {"", ours + "\n", ""},
        {"0 5 * * * backup\n", "0 5 * * * backup\n" + ours + "\n", "0 5 * * * backup\n"},
        {"0 5 * * * backup", "0 5 * * * backup\n" + ours + "\n", "0 5 * * * backup"},  // no final line feed
        {"# mine\n" + ours + "\n@reboot x\n", "# mine\n@reboot x\n" + ours + "\n", "# mine\n@reboot x\n"},
        {ours + "\n" + ours + "\n", ours + "\n", ""},  // two of ours become one
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CronSchedule::withLine(c.before, ours), c.with) << c.before;
        EXPECT_EQ(CronSchedule::withoutLine(c.before), c.without) << c.before;
        EXPECT_EQ(CronSchedule::withLine(c.with, ours), c.with) << "adding again changes nothing";
    }
}

// brimstell agent on|off on a Linux account without a user bus, with a stand-in crontab that keeps
// the table in $HOME/crontab.
struct NoUserSystemd {
    testing_support::TempDir dir;
    std::string home = dir / "home";
    std::string bin = dir / "bin";
    NoUserSystemd() {
        testing_support::makeFolders(home);
        testing_support::makeFolders(bin);
        testing_support::writeBytes(bin + "/crontab",
                                    "#!/bin/sh\n"
                                    "if [ \"$1\" = -l ]; then\n"
                                    "  [ -f \"$HOME/crontab\" ] && exec cat \"$HOME/crontab\"\n"
                                    "  echo \"no crontab for you\" >&2; exit 1\n"
                                    "fi\n"
                                    "cp \"$1\" \"$HOME/crontab\"\n");
        ::chmod((bin + "/crontab").c_str(), 0755);
    }
    testing_support::RunResult run(const std::vector<std::string>& args) const {
        return testing_support::runProgram(BRIMSTELL_CLI_EXE, args,
                                           {{"HOME", home}, {"PATH", bin + ":/usr/bin:/bin"}, {"BRIMSTELL_PLATFORM", "linux"},
                                            {"DBUS_SESSION_BUS_ADDRESS", ""}, {"XDG_RUNTIME_DIR", dir / "no-runtime"}});
    }
    std::string crontab() const { return testing_support::readText(home + "/crontab"); }
};

TEST(CronSchedule, AgentOnWithoutAUserSystemdSaysWhyAndWhatWorks) {
    NoUserSystemd s;
    const auto on = s.run({"agent", "on"});
    EXPECT_EQ(on.status, 1);
    const std::string first = on.errors.substr(0, on.errors.find('\n') + 1);
    EXPECT_EQ(first.rfind("brimstell: the agent couldn't be registered: The systemd user manager can't be reached: ", 0), 0u)
        << first;
    EXPECT_EQ(on.errors.substr(first.size()),
              "Without a user systemd, either let systemd keep your user manager running:\n"
              "  loginctl enable-linger \"$USER\"    and then: brimstell agent on\n"
              "or start the agent from cron once an hour:\n"
              "  brimstell agent on --cron\n");
}

TEST(CronSchedule, OnWithCronAddsOneLineAndOffTakesItOut) {
    NoUserSystemd s;
    testing_support::writeBytes(s.home + "/crontab", "0 5 * * * backup\n");
    for (int i = 0; i < 2; ++i) {
        const auto on = s.run({"agent", "on", "--cron"});
        EXPECT_EQ(on.status, 0) << on.errors;
        EXPECT_EQ(on.output, "Background checks are on. The agent starts from your crontab once an hour.\n");
    }
    const std::string table = s.crontab();
    EXPECT_EQ(table.rfind("0 5 * * * backup\n", 0), 0u) << table;
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 2) << table;
    EXPECT_NE(table.find("/brimstell-agent' # brimstell-agent, added by: brimstell agent on --cron\n"), std::string::npos);

    EXPECT_EQ(s.run({"agent", "off"}).status, 0);
    EXPECT_EQ(s.crontab(), "0 5 * * * backup\n");
}

}  // namespace
