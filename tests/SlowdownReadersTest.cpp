// Reading the machine for the slowdown check: ps listings (real and hostile), sysctl and vm_stat
// output, grouping by app, and the Linux readers over a fake /proc and /sys.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "kit/insight/SlowdownReaders.hpp"
#include "kit/sandbox/SandboxMac.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"

namespace {

using brimstell::Slowdown;
namespace read = brimstell::slowdownRead;

std::string realFixture(const std::string& relative) {
    return std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/ps_sysctl/" + relative;
}

#define REQUIRE_REAL(path) \
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << (path)

TEST(SlowdownReaders, HostilePSLines) {
    struct Case { std::string line; std::size_t count; std::string path; double cpu; std::int64_t memory; };
    const Case cases[] = {
        {"  702   501  96.5  1180000 /Applications/Spotify.app/Contents/MacOS/Spotify", 1,
         "/Applications/Spotify.app/Contents/MacOS/Spotify", 96.5, 1'208'320'000},
        {"\t9\t0\t1,5\t10\t/App Name/x y  \r", 1, "/App Name/x y", 1.5, 10240},
        {"1232 502 0.0 0 (userInit)", 1, "(userInit)", 0, 0},
        {"  PID   UID  %CPU    RSS COMM", 0, "", 0, 0},
        {"12 501 1.5 100", 0, "", 0, 0},
        {"12 501 1.5 100    ", 0, "", 0, 0},
        {"-1 0 1 1 /x", 0, "", 0, 0},
        {"12 -501 1 1 /x", 0, "", 0, 0},
        {"12 501 abc 10 /x", 0, "", 0, 0},
        {"12 501 nan 10 /x", 0, "", 0, 0},
        {"12 501 1e5 10 /x", 0, "", 0, 0},
        {"99999999999 0 0 0 /x", 0, "", 0, 0},
        {"12 0 0 9223372036854775807 /x", 0, "", 0, 0},
        {"12 0 0 -5 /x", 0, "", 0, 0},
        {std::string("12 0 0 5 /a\0b", 13), 1, std::string("/a\0b", 4), 0, 5120},
        {"", 0, "", 0, 0},
    };
    for (const auto& c : cases) {
        const auto procs = Slowdown::parsePS(c.line);
        ASSERT_EQ(procs.size(), c.count) << c.line;
        if (!c.count) continue;
        EXPECT_EQ(procs[0].path, c.path);
        EXPECT_DOUBLE_EQ(procs[0].cpu, c.cpu);
        EXPECT_EQ(procs[0].memory, c.memory);
    }
    EXPECT_EQ(Slowdown::parsePS("1 0 0 0 /a\n\n2 0 0 0 /b\nrubbish\n3 0 0 0 /c").size(), 3u);
}

// The real listing was taken with other columns (user,pid,pcpu,pmem,vsz,tty,etime,command): read as
// it is, no line passes for one of ours. Laid out in our columns, every line reads back whole.
TEST(SlowdownReaders, RealListing) {
    const auto path = realFixture("glpi_ps_macos_user_pid_pcpu_etime_command.txt");
    REQUIRE_REAL(path);
    const std::string text = testing_support::readText(path);
    EXPECT_TRUE(Slowdown::parsePS(text).empty());

    static const std::regex row(R"(^(\S+)\s+(\d+)\s+([\d.]+)\s+[\d.]+\s+(\d+)\s+\S+\s+\S+ (.*)$)");
    std::istringstream lines(text);
    std::string line, ours;
    std::size_t rows = 0;
    for (std::getline(lines, line); std::getline(lines, line);) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, row)) << line;
        const std::string uid = m[1] == "root" ? "0" : m[1] == "admin" ? "501" : "502";
        ours += "  " + m[2].str() + "  " + uid + "  " + m[3].str() + "  " + m[4].str() + " " + m[5].str() + "\n";
        ++rows;
    }
    const auto procs = Slowdown::parsePS(ours);
    ASSERT_EQ(procs.size(), rows);
    EXPECT_EQ(procs.size(), 66u);
    const auto& photoshop = procs[42];
    EXPECT_EQ(photoshop.pid, 399u);
    EXPECT_DOUBLE_EQ(photoshop.cpu, 0.3);
    EXPECT_EQ(photoshop.memory, 815420LL * 1024);
    EXPECT_EQ(photoshop.path, "/Applications/Adobe Photoshop CS3/Adobe Photoshop CS3.app/Contents/MacOS/Adobe Photoshop CS3 -psn_0_254014");
    EXPECT_EQ(procs[53].path, "(userInit)");
    EXPECT_EQ(procs[0].path, "/sbin/launchd");
}

TEST(SlowdownReaders, RealSysctlOutput) {
    const auto dump = realFixture("ansible_sysctl_darwin_m1pro_macos14.txt");
    REQUIRE_REAL(dump);
    const auto values = read::sysctlValues(testing_support::readText(dump));
    EXPECT_EQ(values.at("hw.memsize"), "34359738368");
    EXPECT_EQ(read::bootTime(values.at("kern.boottime")), 1711644864.0);
    EXPECT_EQ(values.count("kern.memorystatus_vm_pressure_level"), 0u);
    EXPECT_EQ(read::pressureLevel(""), Slowdown::MemoryPressure::normal);

    const struct { const char* file; std::int64_t used; } swaps[] = {
        {"sysctl_vm_swapusage_px_issue80.txt", 2'876'768'256},       // 2743.50M
        {"sysctl_vm_swapusage_comma_locale_p9k_pr1108.txt", 397'672'448},  // 379,25M
        {"sysctl_vm_swapusage_zero_fastfetch_pr245.txt", 0},
    };
    for (const auto& s : swaps) {
        const auto v = read::sysctlValues(testing_support::readText(realFixture(s.file)));
        EXPECT_EQ(read::swapUsed(v.at("vm.swapusage")), s.used) << s.file;
    }
}

TEST(SlowdownReaders, SmallMacOutputs) {
    EXPECT_EQ(read::swapUsed("total = 2.00G  used = 1.50G  free = 0.50G"), 1'610'612'736);
    EXPECT_EQ(read::swapUsed("total = 0.00M  free = 0.00M"), std::nullopt);
    EXPECT_EQ(read::bootTime("{ usec = 393940 }"), std::nullopt);
    EXPECT_EQ(read::bootTime("{ sec = 99999999999999999999999, usec = 0 }"), std::nullopt);
    EXPECT_EQ(read::pressureLevel("4"), Slowdown::MemoryPressure::critical);
    EXPECT_EQ(read::pressureLevel("2"), Slowdown::MemoryPressure::warning);
    EXPECT_EQ(read::pressureLevel("1"), Slowdown::MemoryPressure::normal);
    const auto [used, compressed] = read::vmStatUsage(
        "Mach Virtual Memory Statistics: (page size of 16384 bytes)\nPages active:  10.\nPages wired down:  5.\n"
        "Pages occupied by compressor:  1.\nPages free: 99.\n");
    EXPECT_EQ(used, 16 * 16384);
    EXPECT_EQ(compressed, 16384);
    EXPECT_EQ(read::vmStatUsage("Pages active: 10.\n"), (std::pair<std::int64_t, std::int64_t>{0, 0}));
    EXPECT_TRUE(read::tmutilRunning("Backup session status:\n{\n    Running = 1;\n}\n"));
    EXPECT_FALSE(read::tmutilRunning("{\n    Running = 0;\n    NotRunning = 1;\n}\n"));
    EXPECT_EQ(read::processInfoRecord("thermalState: serious\nlowPowerMode: 1\n"),
              (std::pair<Slowdown::Thermal, bool>{Slowdown::Thermal::serious, true}));
    EXPECT_EQ(read::processInfoRecord("thermalState: hot\n"), (std::pair<Slowdown::Thermal, bool>{Slowdown::Thermal::nominal, false}));
}

TEST(SlowdownReaders, GroupsAnAppWithItsHelpers) {
    testing_support::SandboxHost s;
    quorv::HostScope scope(s.host);
    s.mac.addApp("/Applications/Web Browser.app", {.bundleID = "com.example.browser", .name = "Web Browser"});
    const std::string app = "/Applications/Web Browser.app/Contents/";
    const auto loads = Slowdown::group({{1, 501, 10, 100, app + "MacOS/Web Browser"},
                                        {2, 501, 30.5, 200, app + "Frameworks/H.framework/Helpers/Web Helper (GPU).app/Contents/MacOS/Web Helper (GPU)"},
                                        {3, 0, 50, 300, "/usr/sbin/cupsd"},
                                        {4, 502, 1, 400, app + "MacOS/Web Browser"},
                                        {5, 501, 1, 1, "/x.app"}},
                                       501);
    ASSERT_EQ(loads.size(), 3u);
    EXPECT_EQ(loads[0].name, "cupsd");
    EXPECT_EQ(loads[1].name, "Web Browser");
    EXPECT_EQ(loads[1].bundle, "com.example.browser");
    EXPECT_EQ(loads[1].path, "/Applications/Web Browser.app");
    EXPECT_EQ(loads[1].pids, (std::vector<std::uint32_t>{1, 2, 4}));
    EXPECT_EQ(loads[1].uids, (std::set<std::uint32_t>{501, 502}));
    EXPECT_DOUBLE_EQ(loads[1].cpu, 41.5);
    EXPECT_EQ(loads[1].memory, 700);
    EXPECT_EQ(loads[2].name, "x.app");
}

// A Linux host over a folder.
struct FakeLinux {
    testing_support::TempDir dir;
    std::shared_ptr<quorv::Host> host = [this] {
        auto h = std::make_shared<quorv::Host>();
        h->platform = quorv::Platform::linux;
        h->root = dir.path();
        h->sandbox = true;
        h->uid = 1000;
        h->clock = [] { return 1'790'000'000.0; };
        return h;
    }();
    void write(const std::string& systemPath, const std::string& text) { quorv::files::writeAtomically(dir.path() + systemPath, text); }
    void zone(int n, const std::string& temp, const std::vector<std::pair<std::string, std::string>>& trips) {
        const std::string z = "/sys/class/thermal/thermal_zone" + std::to_string(n) + "/";
        write(z + "temp", temp + "\n");
        for (std::size_t i = 0; i < trips.size(); ++i) {
            write(z + "trip_point_" + std::to_string(i) + "_type", trips[i].first + "\n");
            write(z + "trip_point_" + std::to_string(i) + "_temp", trips[i].second + "\n");
        }
    }
};

TEST(SlowdownLinux, MemoryPressureAndHeat) {
    const auto m = read::meminfo("MemTotal:       16318664 kB\nMemFree:  100 kB\nMemAvailable:    8000000 kB\n"
                                 "SwapTotal:       2097148 kB\nSwapFree:         1048574 kB\nZswap:  1024 kB\n");
    EXPECT_EQ(m.total, 16318664LL * 1024);
    EXPECT_EQ(m.used, (16318664LL - 8000000) * 1024);
    EXPECT_EQ(m.swap, 1048574LL * 1024);
    EXPECT_EQ(m.compressed, 1024 * 1024);
    EXPECT_EQ(read::meminfo("MemTotal: -5 kB\nSwapTotal: 1 kB\nSwapFree: 9 kB\n").swap, 0);

    struct Psi { const char* text; Slowdown::MemoryPressure pressure; };
    const Psi psi[] = {
        {"some avg10=9.99 avg60=50.00 avg300=0.00 total=0\nfull avg10=9.99 avg60=0.00 avg300=0.00 total=0\n", Slowdown::MemoryPressure::normal},
        {"some avg10=10.00 avg60=0.00 avg300=0.00 total=0\nfull avg10=0.00 avg60=0.00 avg300=0.00 total=0\n", Slowdown::MemoryPressure::warning},
        {"some avg10=40.00 avg60=0.00 avg300=0.00 total=0\nfull avg10=10.00 avg60=0.00 avg300=0.00 total=0\n", Slowdown::MemoryPressure::critical},
        {"", Slowdown::MemoryPressure::normal},
        {"some avg10=inf\n", Slowdown::MemoryPressure::normal},
    };
    for (const auto& p : psi) EXPECT_EQ(read::pressureStall(p.text), p.pressure) << p.text;

    using Zone = read::Zone;
    struct Heat { std::vector<Zone> zones; Slowdown::Thermal state; };
    const Heat heat[] = {
        {{Zone{69999, {{"active", 70000}, {"passive", 90000}}}}, Slowdown::Thermal::nominal},
        {{Zone{70000, {{"active", 70000}, {"passive", 90000}}}}, Slowdown::Thermal::fair},
        {{Zone{45000, {{"passive", 0}}}, Zone{91000, {{"active", 70000}, {"passive", 90000}}}}, Slowdown::Thermal::serious},
        {{Zone{105000, {{"hot", 100000}, {"critical", 110000}}}}, Slowdown::Thermal::critical},
        {{Zone{30000, {{"critical", -273000}}}}, Slowdown::Thermal::nominal},
    };
    for (const auto& h : heat) EXPECT_EQ(read::thermalState(h.zones), h.state);
    EXPECT_EQ(read::uptime("6713.04 11672.45\n"), 6713.04);
    EXPECT_EQ(read::uptime("-1 2"), std::nullopt);
    EXPECT_EQ(read::uptime("up"), std::nullopt);
}

TEST(SlowdownLinux, ProgramPaths) {
    struct Case { std::string comm; std::optional<std::string> exe; std::string path; };
    const Case cases[] = {
        {"firefox", "/usr/lib/firefox/firefox", "/usr/lib/firefox/firefox"},
        {"tracker-miner-f", "/usr/libexec/tracker-miner-fs-3", "/usr/libexec/tracker-miner-fs-3"},
        {"unattended-upgr", "/usr/bin/python3.11", "unattended-upgr"},
        {"Web Content", "/usr/lib/firefox/firefox", "Web Content"},
        {"gnome-shell", "/usr/bin/gnome-shell (deleted)", "/usr/bin/gnome-shell"},
        {"kworker/0:1", std::nullopt, "kworker/0:1"},
        {"x", "relative/x", "x"},
    };
    for (const auto& c : cases) EXPECT_EQ(read::linuxProgram(c.comm, c.exe), c.path) << c.comm;
}

TEST(SlowdownLinux, ReadsAFakeSystem) {
    FakeLinux f;
    quorv::HostScope scope(f.host);
    f.write("/bin/ps", "#!/bin/sh\n[ \"$*\" = '-A -o pid=,uid=,pcpu=,rss=,comm=' ] || exit 9\n"
                       "printf '  412  1000  75.0  20480 blender\\n    2     0   0.0      0 kthreadd\\n'\n");
    ::chmod((f.dir.path() + "/bin/ps").c_str(), 0755);
    quorv::files::makeFolders(f.dir.path() + "/proc/412");
    ::symlink("/opt/blender/blender", (f.dir.path() + "/proc/412/exe").c_str());
    f.write("/proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 250 kB\nSwapTotal: 100 kB\nSwapFree: 100 kB\n");
    f.write("/proc/pressure/memory", "some avg10=12.00 avg60=0 avg300=0 total=1\nfull avg10=0.00 avg60=0 avg300=0 total=0\n");
    f.write("/proc/uptime", "1209600.00 100.0\n");
    f.write("/sys/firmware/acpi/platform_profile", "low-power\n");
    f.zone(0, "95000", {{"passive", "90000"}});
    const auto r = Slowdown::read();
    ASSERT_EQ(r.procs.size(), 2u);
    EXPECT_EQ(r.procs[0].path, "/opt/blender/blender");
    EXPECT_EQ(r.procs[1].path, "kthreadd");
    EXPECT_EQ(r.me, 1000u);
    EXPECT_EQ(r.memory.total, 1024000);
    EXPECT_EQ(r.memory.used, 768000);
    EXPECT_EQ(r.memory.pressure, Slowdown::MemoryPressure::warning);
    EXPECT_EQ(r.thermal, Slowdown::Thermal::serious);
    EXPECT_TRUE(r.lowPower);
    EXPECT_DOUBLE_EQ(r.uptime, 1'209'600);
    EXPECT_GT(r.total, 0);

    // A quit in a fake tree is only written down, never sent to a real process.
    EXPECT_TRUE(Slowdown::quit(Slowdown::Quit{"blender", std::nullopt, {412, 0}}));
    EXPECT_FALSE(Slowdown::quit(std::monostate{}));
    EXPECT_EQ(testing_support::readText(f.dir.path() + read::quitLog), "412\n");
}

}  // namespace
