// The slowdown rules at their boundaries, with the exact texts people read, on a Mac and on Linux.

#include <gtest/gtest.h>

#include "kit/insight/Slowdown.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::Slowdown;
using Severity = Slowdown::Severity;
using Proc = Slowdown::Proc;

constexpr std::uint32_t me = 1234;

struct Rules {
    testing_support::TempDir dir;
    std::shared_ptr<quorv::Host> host;
    std::unique_ptr<quorv::HostScope> scope;
    explicit Rules(quorv::Platform platform = quorv::Platform::mac) {
        host = std::make_shared<quorv::Host>();
        host->platform = platform;
        host->sandbox = true;
        host->root = dir.path();
        scope = std::make_unique<quorv::HostScope>(host);
    }
};

Slowdown::Reading quiet(std::vector<Proc> procs = {}) {
    Slowdown::Reading r;
    r.procs = std::move(procs);
    r.me = me;
    r.memory.total = 16LL << 30;
    r.total = 500'000'000'000;
    r.free = 300'000'000'000;
    r.uptime = 3600;
    return r;
}

std::vector<std::string> titles(const Slowdown::Reading& r) {
    std::vector<std::string> out;
    for (const auto& c : Slowdown::causes(r)) out.push_back(c.title);
    return out;
}

TEST(SlowdownRules, HotAtTheKernelTaskBoundaryOrByThermalState) {
    Rules rules;
    struct Case { Slowdown::Thermal thermal; double kernelTask; bool hot; };
    const Case cases[] = {{Slowdown::Thermal::fair, 149, false}, {Slowdown::Thermal::fair, 150, true},
                          {Slowdown::Thermal::serious, 0, true}, {Slowdown::Thermal::critical, 0, true},
                          {Slowdown::Thermal::nominal, 149.9, false}};
    for (const auto& c : cases) {
        auto r = quiet({{0, 0, c.kernelTask, 0, "kernel_task"}});
        r.thermal = c.thermal;
        const auto causes = Slowdown::causes(r);
        ASSERT_EQ(causes.size(), c.hot ? 1u : 0u) << c.kernelTask;
        if (!c.hot) continue;
        EXPECT_EQ(causes[0].title, "Your Mac is hot and has slowed itself down");
        EXPECT_EQ(causes[0].detail, "macOS slows the processor to cool it down. Quitting heavy apps, keeping the vents "
                                    "clear and keeping it off soft surfaces helps.");
        EXPECT_EQ(causes[0].icon, "thermometer.high");
        EXPECT_EQ(causes[0].severity, Severity::high);
        EXPECT_TRUE(std::holds_alternative<std::monostate>(causes[0].fix));
    }
}

TEST(SlowdownRules, BusyProgramsByShareOwnerAndFolder) {
    Rules rules;
    struct Case { std::uint32_t uid; double cpu; const char* path; std::string title; std::string detail; Severity severity; };
    const std::string mine = "% of a processor core. Quit it if you're not using it; if it keeps happening, an update may fix it.";
    const std::string root = "% of a processor core. If you don't need it, turn it off in Startup.";
    const Case cases[] = {
        {me, 59.9, "/Applications/Editor.app/Contents/MacOS/Editor", "", "", Severity::low},
        {me, 60, "/Applications/Editor.app/Contents/MacOS/Editor", "Editor is keeping the processor busy", "It's using 60" + mine, Severity::medium},
        {me, 149.99, "/Applications/Editor.app/Contents/MacOS/Editor", "Editor is keeping the processor busy", "It's using 149" + mine, Severity::medium},
        {me, 150, "/Applications/Editor.app/Contents/MacOS/Editor", "Editor is keeping the processor busy", "It's using 150" + mine, Severity::high},
        {0, 80.5, "/Library/PrivilegedHelperTools/com.example.d", "com.example.d is keeping the processor busy",
         "It runs in the background for every account, using 80" + root, Severity::medium},
        {0, 400, "/usr/sbin/cupsd", "", "", Severity::low},
        {me, 90, "/usr/bin/ruby", "", "", Severity::low},
        {502, 90, "/Applications/Editor.app/Contents/MacOS/Editor", "", "", Severity::low},
        {me, 90, "/opt/odd/mdworker_shared", "", "", Severity::low},
        {me, 90, "/opt/kernel_task", "", "", Severity::low},
    };
    for (const auto& c : cases) {
        const auto causes = Slowdown::causes(quiet({{77, c.uid, c.cpu, 1000, c.path}}));
        std::vector<Slowdown::Cause> busy;
        for (const auto& cause : causes)
            if (cause.icon == "cpu") busy.push_back(cause);
        ASSERT_EQ(busy.size(), c.title.empty() ? 0u : 1u) << c.path << " " << c.cpu;
        if (c.title.empty()) continue;
        EXPECT_EQ(busy[0].title, c.title);
        EXPECT_EQ(busy[0].detail, c.detail);
        EXPECT_EQ(busy[0].severity, c.severity);
        if (c.uid == me) EXPECT_EQ(std::get<Slowdown::Quit>(busy[0].fix), (Slowdown::Quit{"Editor", std::nullopt, {77}}));
        else EXPECT_EQ(std::get<Slowdown::OpenTool>(busy[0].fix).tool, Slowdown::Tool::startup);
    }
}

TEST(SlowdownRules, ShortOfMemoryAndWhatHoldsIt) {
    Rules rules;
    auto r = quiet({{10, me, 1, 3'000'000'000, "/Applications/A.app/Contents/MacOS/A"},
                    {11, me, 1, 600'000'000, "/Applications/D.app/Contents/MacOS/D"},
                    {12, me, 1, 2'000'000'000, "/Applications/B.app/Contents/MacOS/B"},
                    {13, me, 1, 499'999'999, "/Applications/E.app/Contents/MacOS/E"},
                    {14, me, 1, 1'000'000'000, "/Applications/C.app/Contents/MacOS/C"},
                    {15, me, 1, 9'000'000'000, "/System/Library/CoreServices/Finder.app/Contents/MacOS/Finder"},
                    {16, 65534, 0, 1000, "/usr/sbin/nobodyd"}});
    r.memory.swap = r.memory.total / 4;
    EXPECT_TRUE(titles(r).empty()) << "a quarter exactly is not short";
    r.memory.swap += 1;
    auto causes = Slowdown::causes(r);
    ASSERT_EQ(causes.size(), 4u);
    EXPECT_EQ(causes[0].title, "Your Mac is short of memory");
    EXPECT_EQ(causes[0].detail, "macOS is using 4.29 GB of disk as extra memory, which is much slower than real memory. "
                                "Quitting apps you aren't using frees it.");
    EXPECT_EQ(causes[0].icon, "memorychip");
    EXPECT_EQ(causes[1].title, "A is using 3 GB of memory");
    EXPECT_EQ(causes[1].detail, "Quitting it gives all of that back. Browsers hold on to memory for every open tab.");
    EXPECT_EQ(causes[1].severity, Severity::medium);
    EXPECT_EQ(causes[2].title, "B is using 2 GB of memory");
    EXPECT_EQ(causes[3].title, "C is using 1 GB of memory");

    // Pressure alone, without swap; and another account signed in.
    r.memory.swap = 0;
    r.memory.pressure = Slowdown::MemoryPressure::warning;
    r.procs.push_back({20, 502, 0, 1000, "/sbin/launchd"});
    causes = Slowdown::causes(r);
    EXPECT_EQ(causes[0].detail, "Apps are using nearly all of it. Quitting apps you aren't using frees it.");
    EXPECT_EQ(causes.back().title, "Another account is still signed in");
    EXPECT_EQ(causes.back().detail, "Apps left open there keep running in the background and hold on to memory. "
                                    "Logging that account out frees it.");
    EXPECT_EQ(causes.back().icon, "person.2");
    r.memory.pressure = Slowdown::MemoryPressure::normal;
    EXPECT_TRUE(titles(r).empty()) << "the other account comes only with the memory cause";
    r.memory.total = 0;
    r.memory.swap = 5'000'000'000;
    EXPECT_TRUE(titles(r).empty()) << "no total memory read";
}

TEST(SlowdownRules, DiskAlmostFull) {
    Rules rules;
    struct Case { std::int64_t total, free; bool full; };
    const Case cases[] = {{256'000'000'000, 12'000'000'000, true},  {128'000'000'000, 11'000'000'000, false},
                          {128'000'000'000, 9'999'999'999, true},   {200'000'000'000, 9'999'999'999, true},
                          {200'000'000'000, 10'000'000'000, false}, {199'999'999'999, 10'000'000'000, false},
                          {0, 0, false}};
    for (const auto& c : cases) {
        auto r = quiet();
        r.total = c.total;
        r.free = c.free;
        const auto causes = Slowdown::causes(r);
        ASSERT_EQ(causes.size(), c.full ? 1u : 0u) << c.total << " " << c.free;
        if (c.full && c.free == 12'000'000'000) {
            EXPECT_EQ(causes[0].title, "Your disk is almost full");
            EXPECT_EQ(causes[0].detail, "Only 12 GB is free. macOS needs room on the disk for memory and updates, and "
                                        "everything slows down when it runs out.");
            EXPECT_EQ(causes[0].icon, "internaldrive");
            EXPECT_EQ(std::get<Slowdown::OpenTool>(causes[0].fix).tool, Slowdown::Tool::freeUpSpace);
        }
    }
}

TEST(SlowdownRules, BackgroundWorkBackupPowerAndUptime) {
    Rules rules;
    struct Case { std::vector<Proc> procs; std::vector<std::string> titles; };
    const Case cases[] = {
        {{{1, 0, 20, 0, "/x/mds_stores"}, {2, me, 4.9, 0, "/y/mdworker_shared"}}, {}},
        {{{1, 0, 20, 0, "/x/mds_stores"}, {2, me, 5, 0, "/y/mdworker_shared"}}, {"Spotlight is indexing your files"}},
        {{{1, 0, 25, 0, "/x/syspolicyd"}}, {"macOS is checking apps for malware"}},
        {{{1, 0, 30, 0, "/x/com.apple.MobileSoftwareUpdate.UpdateBrainService"}}, {"macOS is preparing an update"}},
        {{{1, 0, 20, 0, "/x/backupd"}, {2, 0, 5, 0, "/x/backupd-helper"}}, {"A Time Machine backup is running"}},
        {{{1, 0, 70, 0, "/x/WindowServer"}}, {"Your screen is busy drawing"}},
        {{{1, 0, 59.9, 0, "/x/WindowServer"}}, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(titles(quiet(c.procs)), c.titles) << c.procs[0].path;

    auto causes = Slowdown::causes(quiet({{1, 0, 26, 0, "/x/photoanalysisd"}}));
    ASSERT_EQ(causes.size(), 1u);
    EXPECT_EQ(causes[0].title, "Photos is analysing your library");
    EXPECT_EQ(causes[0].detail, "It's finding faces and scenes, mostly while your Mac is idle. It stops on its own once the library is done.");
    EXPECT_EQ(causes[0].severity, Severity::low);

    auto r = quiet();
    r.backupRunning = true;
    r.lowPower = true;
    r.uptime = 14 * 86'400.0;
    causes = Slowdown::causes(r);
    ASSERT_EQ(causes.size(), 3u);
    EXPECT_EQ(causes[0].detail, "Copying files can slow the disk for a while. It finishes on its own.");
    EXPECT_EQ(causes[1].title, "Low Power Mode is on");
    EXPECT_EQ(causes[1].detail, "It saves energy by running the processor slower.");
    EXPECT_EQ(std::get<Slowdown::Settings>(causes[1].fix).address,
              "x-apple.systempreferences:com.apple.Battery-Settings.extension");
    EXPECT_EQ(causes[2].title, "Your Mac hasn't restarted in 14 days");
    EXPECT_EQ(causes[2].detail, "A restart clears out memory apps never gave back and finishes pending updates.");
    EXPECT_EQ(causes[2].icon, "restart");
    r = quiet();
    r.uptime = 14 * 86'400.0 - 3600;
    EXPECT_TRUE(titles(r).empty()) << "13 days and 23 hours";
}

TEST(SlowdownRules, AllInTheirOrder) {
    Rules rules;
    auto r = quiet({{0, 0, 150, 0, "kernel_task"}, {5, me, 61, 900'000'000, "/Applications/A.app/Contents/MacOS/A"},
                    {6, 0, 61, 0, "/x/WindowServer"}, {7, 0, 30, 0, "/x/cloudd"}});
    r.memory.pressure = Slowdown::MemoryPressure::critical;
    r.total = 100'000'000'000;
    r.free = 1'000'000'000;
    r.backupRunning = r.lowPower = true;
    r.uptime = 30 * 86'400.0;
    EXPECT_EQ(titles(r), (std::vector<std::string>{
                             "Your Mac is hot and has slowed itself down", "Your Mac is short of memory",
                             "A is keeping the processor busy", "Your screen is busy drawing", "A is using 900 MB of memory",
                             "Your disk is almost full", "iCloud is syncing", "A Time Machine backup is running",
                             "Low Power Mode is on", "Your Mac hasn't restarted in 30 days"}));
}

TEST(SlowdownRules, LinuxSaysWhatItMeansThere) {
    Rules rules(quorv::Platform::linux);
    auto r = quiet({{1, 0, 150, 0, "/usr/bin/Xorg"}, {2, me, 80, 0, "/usr/bin/blender"}, {3, 0, 95, 0, "kworker/0:1"},
                    {4, me, 70, 0, "unattended-upgr"}, {5, 0, 90, 0, "/usr/sbin/sshd"}, {6, 0, 30, 0, "packagekitd"}});
    r.thermal = Slowdown::Thermal::serious;
    r.memory.swap = 5LL << 30;
    r.total = 100'000'000'000;
    r.free = 5'000'000'000;
    r.lowPower = true;
    r.uptime = 20 * 86'400.0;
    const auto causes = Slowdown::causes(r);
    std::vector<std::string> got;
    for (const auto& c : causes) got.push_back(c.title + " | " + c.detail);
    EXPECT_EQ(got, (std::vector<std::string>{
        "Your computer is hot and has slowed itself down | The system slows the processor to cool it down. Quitting heavy apps, keeping the vents clear and keeping it off soft surfaces helps.",
        "Your computer is short of memory | The system is using 5.37 GB of disk as extra memory, which is much slower than real memory. Quitting apps you aren't using frees it.",
        "blender is keeping the processor busy | It's using 80% of a processor core. Quit it if you're not using it; if it keeps happening, an update may fix it.",
        "Your screen is busy drawing | Many open windows, several displays or a lot of animation keep the system busy drawing them. Closing windows you don't need helps.",
        "Your disk is almost full | Only 5 GB is free. The system needs room on the disk for memory and updates, and everything slows down when it runs out.",
        "Software is being updated | Packages are downloading or installing in the background. It stops on its own once the update is done.",
        "Power saving is on | It saves energy by running the processor slower.",
        "Your computer hasn't restarted in 20 days | A restart clears out memory apps never gave back and finishes pending updates.",
    }));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(causes[6].fix));
}

}  // namespace
