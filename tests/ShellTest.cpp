#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/host/Host.hpp"
#include "support/process/Shell.hpp"

namespace {

using quorv::Shell;
using quorv::ShellOptions;
using quorv::ShellResult;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

ShellResult sh(const std::string& script, ShellOptions options = {}) {
    return Shell::run("/bin/sh", {"-c", script}, options);
}

// Dead, or a zombie nobody has reaped yet (our pid 1 may never reap it).
bool processGone(pid_t pid) {
    if (::kill(pid, 0) != 0) return errno == ESRCH;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return true;
    const auto close = line.rfind(')');
    return close != std::string::npos && close + 2 < line.size() && line[close + 2] == 'Z';
}

bool becomesGone(pid_t pid, double within) {
    const auto start = Clock::now();
    while (secondsSince(start) < within) {
        if (processGone(pid)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return processGone(pid);
}

std::vector<std::string> ourDescriptors() {
    std::vector<std::string> names;
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir) return names;
    const int own = ::dirfd(dir);
    while (dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name == "." || name == ".." || name == std::to_string(own)) continue;
        names.push_back(name);
    }
    ::closedir(dir);
    return names;
}

class ShellTest : public ::testing::Test {
protected:
    std::shared_ptr<quorv::Host> host = quorv::hostFromEnvironment({{"PATH", "/usr/bin:/bin"}});
    std::unique_ptr<quorv::HostScope> scope = std::make_unique<quorv::HostScope>(host);

    std::filesystem::path tempFolder() {
        char name[] = "/tmp/shelltest.XXXXXX";
        const char* made = ::mkdtemp(name);
        EXPECT_NE(made, nullptr);
        folders_.push_back(made ? made : "");
        return folders_.back();
    }
    void TearDown() override {
        for (auto& f : folders_) {
            std::error_code ec;
            if (!f.empty()) std::filesystem::remove_all(f, ec);
        }
    }

private:
    std::vector<std::filesystem::path> folders_;
};

TEST_F(ShellTest, ExitStatusOrSignal) {
    const struct {
        const char* script;
        int status;
    } cases[] = {
        {"exit 0", 0},
        {"exit 3", 3},
        {"exit 255", 255},
        {"kill -TERM $$", 128 + SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL},
        // A tool with SIGPIPE ignored by us must still get the default, and die of it.
        {"kill -PIPE $$", 128 + SIGPIPE},
    };
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &previous);
    for (const auto& c : cases) {
        const ShellResult r = sh(c.script);
        EXPECT_TRUE(r.started) << c.script;
        EXPECT_FALSE(r.timedOut) << c.script;
        EXPECT_EQ(r.status, c.status) << c.script;
        EXPECT_EQ(r.succeeded(), c.status == 0) << c.script;
    }
    ::sigaction(SIGPIPE, &previous, nullptr);
}

TEST_F(ShellTest, ArgumentsReachTheToolByteForByte) {
    const std::vector<std::string> args = {
        "two words", "line\nfeed", "tab\there", "\xff\xfe not utf-8 \xc3", "", "*", "$HOME", "-n", "'\"\\",
    };
    std::vector<std::string> full = {"-c", "for a in \"$@\"; do printf '%s|' \"$a\"; done", "sh"};
    full.insert(full.end(), args.begin(), args.end());
    const ShellResult r = Shell::run("/bin/sh", full);
    ASSERT_TRUE(r.started);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "two words|line\nfeed|tab\there|\xff\xfe not utf-8 \xc3||*|$HOME|-n|'\"\\|");

    // argv[0] is the program path itself.
    const ShellResult cmdline = Shell::run("/bin/cat", {"/proc/self/cmdline"});
    EXPECT_EQ(cmdline.output, std::string("/bin/cat\0/proc/self/cmdline\0", 28));
}

TEST_F(ShellTest, EnvironmentIsTheHostsPlusTheExtras) {
    // Only the host's environment reaches the tool, never our process's own.
    ASSERT_EQ(::setenv("SHELLTEST_PROCESS_ONLY", "leak", 1), 0);
    auto h = quorv::hostFromEnvironment({{"FOO", "bar"}, {"KEEP", "kept value"}});
    quorv::HostScope inner(h);

    const struct {
        std::map<std::string, std::string> extra;
        const char* expected;
    } cases[] = {
        {{}, "FOO=bar\nKEEP=kept value\n"},
        {{{"FOO", "baz"}, {"NEW", "line\nfeed"}}, "FOO=baz\nKEEP=kept value\nNEW=line\nfeed\n"},
        {{{"EMPTY", ""}}, "EMPTY=\nFOO=bar\nKEEP=kept value\n"},
    };
    for (const auto& c : cases) {
        ShellOptions options;
        options.environment = c.extra;
        const ShellResult r = Shell::run("/usr/bin/env", {}, options);
        ASSERT_TRUE(r.started);
        EXPECT_EQ(r.output, c.expected);
    }
    ::unsetenv("SHELLTEST_PROCESS_ONLY");
}

TEST_F(ShellTest, RefusedOrUnstartableRunsNothing) {
    const auto folder = tempFolder();
    const auto marker = folder / "ran";
    const auto tool = folder / "tool";
    {
        std::ofstream f(tool);
        f << "#!/bin/sh\ntouch '" << marker.string() << "'\n";
    }
    ::chmod(tool.c_str(), 0755);
    const auto plain = folder / "plain";
    std::ofstream(plain) << "#!/bin/sh\ntouch '" << marker.string() << "'\n";

    ShellOptions inFolder;
    inFolder.workingFolder = folder.string();
    ShellOptions badName;
    badName.environment = {{"A=B", "x"}};
    ShellOptions missingFolder;
    missingFolder.workingFolder = (folder / "absent").string();

    const struct {
        std::string program;
        std::vector<std::string> args;
        ShellOptions options;
        const char* why;
    } cases[] = {
        {"tool", {}, inFolder, "relative name"},
        {"./tool", {}, inFolder, "relative path"},
        {"", {}, inFolder, "empty path"},
        {"/nonexistent/brimstell-no-such-tool", {}, {}, "missing program"},
        {plain.string(), {}, {}, "not executable"},
        {folder.string(), {}, {}, "a folder"},
        {tool.string(), {}, missingFolder, "working folder missing"},
        {tool.string(), {std::string("a\0b", 3)}, {}, "NUL in an argument"},
        {tool.string(), {}, badName, "= in a variable name"},
    };
    for (const auto& c : cases) {
        const ShellResult r = Shell::run(c.program, c.args, c.options);
        EXPECT_FALSE(r.started) << c.why;
        EXPECT_EQ(r.status, -1) << c.why;
        EXPECT_FALSE(std::filesystem::exists(marker)) << c.why;
    }

    // The same tool, named properly, does run, in the folder asked for.
    const ShellResult r = Shell::run(tool.string(), {}, inFolder);
    EXPECT_TRUE(r.started);
    EXPECT_TRUE(std::filesystem::exists(marker));
    const ShellResult pwd = Shell::run("/bin/pwd", {"-P"}, inFolder);
    EXPECT_EQ(pwd.output, std::filesystem::canonical(folder).string() + "\n");
}

TEST_F(ShellTest, LargeOutputOnBothPipesComesBackWhole) {
    // 20 MB on standard output after 5 MB on standard error: reading only one pipe would deadlock.
    ShellOptions options;
    options.captureErrors = true;
    const ShellResult r = sh(
        "head -c 5000000 /dev/zero | tr '\\0' e >&2; head -c 20000000 /dev/zero | tr '\\0' o; echo END >&2",
        options);
    ASSERT_TRUE(r.started);
    EXPECT_EQ(r.status, 0);
    EXPECT_FALSE(r.truncated);
    ASSERT_EQ(r.output.size(), 20'000'000u);
    EXPECT_EQ(r.output.find_first_not_of('o'), std::string::npos);
    ASSERT_EQ(r.errorOutput.size(), 5'000'004u);
    EXPECT_EQ(r.errorOutput.find_first_not_of('e'), 5'000'000u);
    EXPECT_EQ(r.errorOutput.substr(5'000'000), "END\n");

    // Without asking, standard error is dropped.
    const ShellResult quiet = sh("echo out; echo err >&2");
    EXPECT_EQ(quiet.output, "out\n");
    EXPECT_EQ(quiet.errorOutput, "");
}

TEST_F(ShellTest, OutputBeyondTheCapIsReadAndDropped) {
    const struct {
        const char* script;
        std::size_t cap;
        std::size_t kept;
        bool truncated;
    } cases[] = {
        {"head -c 1000 /dev/zero", 1000, 1000, false},
        {"head -c 1001 /dev/zero", 1000, 1000, true},
        {"head -c 999 /dev/zero", 1000, 999, false},
        {"echo x", 0, 0, true},
        {"true", 0, 0, false},
        // The tool must not block on a full pipe once we stop keeping what it writes.
        {"head -c 8000000 /dev/zero; exit 7", 4096, 4096, true},
    };
    for (const auto& c : cases) {
        ShellOptions options;
        options.maxOutput = c.cap;
        options.timeLimit = 10;
        const ShellResult r = sh(c.script, options);
        EXPECT_FALSE(r.timedOut) << c.script;
        EXPECT_EQ(r.output.size(), c.kept) << c.script;
        EXPECT_EQ(r.truncated, c.truncated) << c.script;
    }
    ShellOptions small;
    small.maxOutput = 4096;
    EXPECT_EQ(sh("head -c 8000000 /dev/zero; exit 7", small).status, 7);
}

TEST_F(ShellTest, TimeLimitStopsTheToolAndWhatItStarted) {
    const struct {
        const char* script;
        int status;
        const char* output;
    } cases[] = {
        {"echo started; sleep 30", 128 + SIGTERM, "started\n"},
        // Ignores SIGTERM: SIGKILL after the grace.
        {"trap '' TERM; echo stubborn; sleep 30", 128 + SIGKILL, "stubborn\n"},
        // Closes its output and waits: the limit still holds.
        {"exec >&-; sleep 30", 128 + SIGTERM, ""},
    };
    for (const auto& c : cases) {
        ShellOptions options;
        options.timeLimit = 0.3;
        const auto start = Clock::now();
        const ShellResult r = sh(c.script, options);
        const double took = secondsSince(start);
        EXPECT_TRUE(r.started) << c.script;
        EXPECT_TRUE(r.timedOut) << c.script;
        EXPECT_FALSE(r.succeeded()) << c.script;
        EXPECT_EQ(r.status, c.status) << c.script;
        EXPECT_EQ(r.output, c.output) << c.script;
        EXPECT_GE(took, 0.3) << c.script;
        EXPECT_LT(took, 1.3) << c.script;
    }

    // A grandchild is stopped with the tool.
    ShellOptions options;
    options.timeLimit = 0.3;
    const ShellResult r = sh("sleep 1000 & echo $!; sleep 1000", options);
    EXPECT_TRUE(r.timedOut);
    const pid_t grandchild = std::atoi(r.output.c_str());
    ASSERT_GT(grandchild, 0);
    EXPECT_TRUE(becomesGone(grandchild, 1.0));
}

TEST_F(ShellTest, LimitsThatMeanNoLimit) {
    for (double limit : {0.0, -1.0, std::nan(""), HUGE_VAL, 1e300}) {
        ShellOptions options;
        options.timeLimit = limit;
        const ShellResult r = sh("echo ok; exit 4", options);
        EXPECT_FALSE(r.timedOut) << limit;
        EXPECT_EQ(r.status, 4) << limit;
        EXPECT_EQ(r.output, "ok\n") << limit;
    }
}

TEST_F(ShellTest, GrandchildHoldingThePipeDoesNotHangTheRun) {
    ShellOptions options;
    options.timeLimit = 20;
    const auto start = Clock::now();
    const ShellResult r = sh("sleep 1000 & echo $!; echo done", options);
    const double took = secondsSince(start);
    EXPECT_TRUE(r.started);
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_LT(took, 2.0);
    const pid_t grandchild = std::atoi(r.output.c_str());
    ASSERT_GT(grandchild, 0);
    EXPECT_EQ(r.output, std::to_string(grandchild) + "\ndone\n");
    EXPECT_TRUE(becomesGone(grandchild, 1.0));
    if (!processGone(grandchild)) ::kill(grandchild, SIGKILL);
}

TEST_F(ShellTest, GrandchildWithItsOutputElsewhereIsNotWaitedFor) {
    const auto start = Clock::now();
    const ShellResult r = sh("sleep 3 >/dev/null 2>&1 & echo $!");
    EXPECT_LT(secondsSince(start), 2.0);
    EXPECT_EQ(r.status, 0);
    const pid_t grandchild = std::atoi(r.output.c_str());
    if (grandchild > 0) ::kill(grandchild, SIGKILL);
}

TEST_F(ShellTest, ManyThreadsRunToolsAtOnce) {
    constexpr int threads = 8;
    constexpr int runsEach = 6;
    std::vector<std::string> failures(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            quorv::HostScope inner(host);  // the host is per thread
            for (int i = 0; i < runsEach; ++i) {
                const std::string tag = "t" + std::to_string(t) + "-" + std::to_string(i);
                const ShellResult r = Shell::run(
                    "/bin/sh", {"-c", "head -c 100000 /dev/zero >/dev/null; echo \"$1\"; exit \"$2\"", "sh", tag,
                                std::to_string(t)});
                if (r.output != tag + "\n" || r.status != t) failures[t] += tag + " got " + r.output + "; ";
            }
        });
    }
    for (auto& th : pool) th.join();
    for (int t = 0; t < threads; ++t) EXPECT_EQ(failures[t], "") << t;
}

TEST_F(ShellTest, ToolSeesOnlyTheStandardDescriptors) {
    // A descriptor opened carelessly elsewhere in the process (no close-on-exec) must not reach it.
    const int careless = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(careless, 3);
    for (bool capture : {false, true}) {
        ShellOptions options;
        options.captureErrors = capture;
        const ShellResult r = sh("ls /proc/$$/fd", options);
        EXPECT_EQ(r.output, "0\n1\n2\n") << capture;
    }
    ::close(careless);

    // And no run leaves a descriptor behind in ours.
    const auto before = ourDescriptors();
    ShellOptions quick;
    quick.timeLimit = 0.1;
    quick.captureErrors = true;
    sh("echo hi");
    sh("sleep 5", quick);
    Shell::run("/nonexistent/tool", {});
    Shell::run("relative", {});
    ShellOptions badFolder;
    badFolder.workingFolder = "/nonexistent/folder";
    Shell::run("/bin/true", {}, badFolder);
    EXPECT_EQ(ourDescriptors(), before);
}

TEST_F(ShellTest, StandardInputIsEmpty) {
    const ShellResult r = Shell::run("/bin/cat", {});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "");
}

}  // namespace
