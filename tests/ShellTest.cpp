#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/TestSupport.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/process/Shell.hpp"

namespace {

using quorv::Shell;
using quorv::ShellOptions;
using quorv::ShellResult;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

ShellResult sh(const std::string& script, ShellOptions options = {}) { return Shell::run("/bin/sh", {"-c", script}, options); }

ShellOptions limited(std::optional<double> seconds, bool captureErrors = false) {
    ShellOptions options;
    if (seconds) options.timeLimit = *seconds;
    options.captureErrors = captureErrors;
    return options;
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
    for (const auto start = Clock::now(); !processGone(pid); std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
        if (secondsSince(start) >= within) return false;
    }
    return true;
}

// Includes the listing's own descriptor, which takes the same number each time unless one leaked.
std::vector<std::string> ourDescriptors() {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator("/proc/self/fd")) names.push_back(e.path().filename());
    return names;
}

class ShellTest : public ::testing::Test {
protected:
    std::shared_ptr<quorv::Host> host = quorv::hostFromEnvironment({{"PATH", "/usr/bin:/bin"}});
    quorv::HostScope scope{host};
};

TEST_F(ShellTest, HowARunEnds) {
    const struct {
        const char* script;
        std::optional<double> limit;  // none: the default
        int status;
        const char* output;
        bool timedOut;
    } cases[] = {
        {"exit 0", {}, 0, "", false},
        {"exit 255", {}, 255, "", false},
        {"kill -TERM $$", {}, 128 + SIGTERM, "", false},
        {"kill -KILL $$", {}, 128 + SIGKILL, "", false},
        // A tool with SIGPIPE ignored by us must still get the default, and die of it.
        {"kill -PIPE $$", {}, 128 + SIGPIPE, "", false},
        // Limits that mean no limit.
        {"echo ok; exit 4", 0.0, 4, "ok\n", false},
        {"echo ok; exit 4", -1.0, 4, "ok\n", false},
        {"echo ok; exit 4", std::nan(""), 4, "ok\n", false},
        {"echo ok; exit 4", HUGE_VAL, 4, "ok\n", false},
        {"echo ok; exit 4", 1e300, 4, "ok\n", false},
        // The limit passes: SIGTERM, or SIGKILL after the grace for a tool that ignores SIGTERM.
        {"echo started; sleep 30", 0.3, 128 + SIGTERM, "started\n", true},
        {"trap '' TERM; echo stubborn; sleep 30", 0.3, 128 + SIGKILL, "stubborn\n", true},
        // Closes its output and waits: the limit still holds.
        {"exec >&-; sleep 30", 0.3, 128 + SIGTERM, "", true},
    };
    struct sigaction ignore {}, previous {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &previous);
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.script) + ", limit " + (c.limit ? std::to_string(*c.limit) : "default"));
        const auto start = Clock::now();
        const ShellResult r = sh(c.script, limited(c.limit));
        const double took = secondsSince(start);
        EXPECT_TRUE(r.started);
        EXPECT_EQ(r.timedOut, c.timedOut);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.output, c.output);
        EXPECT_EQ(r.succeeded(), c.status == 0 && !c.timedOut);
        if (c.timedOut) {
            EXPECT_GE(took, 0.3);
            EXPECT_LT(took, 1.3);
        }
    }
    ::sigaction(SIGPIPE, &previous, nullptr);
}

// What the tool leaves running in its process group: stopped with it when it times out or when
// it still holds the output pipe; left alone, and not waited for, when its output goes elsewhere.
TEST_F(ShellTest, WhatTheToolStartedNeverHangsTheRun) {
    const struct {
        const char* script;
        double limit;
        bool timedOut;
        const char* after;  // printed after the grandchild's pid
        bool stopped;
    } cases[] = {
        {"sleep 1000 & echo $!; sleep 1000", 0.3, true, "", true},
        {"sleep 1000 & echo $!; echo done", 20, false, "done\n", true},
        {"sleep 3 >/dev/null 2>&1 & echo $!", 20, false, "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        const auto start = Clock::now();
        const ShellResult r = sh(c.script, limited(c.limit));
        EXPECT_LT(secondsSince(start), 2.0);
        EXPECT_EQ(r.timedOut, c.timedOut);
        const pid_t grandchild = std::atoi(r.output.c_str());
        ASSERT_GT(grandchild, 0);
        EXPECT_EQ(r.output, std::to_string(grandchild) + "\n" + c.after);
        if (c.stopped) {
            EXPECT_TRUE(becomesGone(grandchild, 1.0));
        }
        if (!processGone(grandchild)) ::kill(grandchild, SIGKILL);
    }
}

TEST_F(ShellTest, ArgumentsAndEnvironmentReachTheToolByteForByte) {
    std::vector<std::string> args = {"-c", "for a in \"$@\"; do printf '%s|' \"$a\"; done", "sh", "two words", "line\nfeed",
                                     "tab\there", "\xff\xfe not utf-8 \xc3", "", "*", "$HOME", "-n", "'\"\\"};
    const ShellResult r = Shell::run("/bin/sh", args);
    ASSERT_TRUE(r.started);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "two words|line\nfeed|tab\there|\xff\xfe not utf-8 \xc3||*|$HOME|-n|'\"\\|");
    // argv[0] is the program path itself.
    EXPECT_EQ(Shell::run("/bin/cat", {"/proc/self/cmdline"}).output, std::string("/bin/cat\0/proc/self/cmdline\0", 28));

    // Only the host's environment reaches the tool, never our process's own.
    ASSERT_EQ(::setenv("SHELLTEST_PROCESS_ONLY", "leak", 1), 0);
    quorv::HostScope inner(quorv::hostFromEnvironment({{"FOO", "bar"}, {"KEEP", "kept value"}}));
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
        const ShellResult env = Shell::run("/usr/bin/env", {}, options);
        ASSERT_TRUE(env.started);
        EXPECT_EQ(env.output, c.expected);
    }
    ::unsetenv("SHELLTEST_PROCESS_ONLY");
}

TEST_F(ShellTest, RefusedOrUnstartableRunsNothing) {
    testing_support::TempDir folder;
    const std::string marker = folder / "ran", tool = folder / "tool", plain = folder / "plain";
    ASSERT_TRUE(quorv::files::writeAtomically(tool, "#!/bin/sh\ntouch '" + marker + "'\n", 0755));
    ASSERT_TRUE(quorv::files::writeAtomically(plain, "#!/bin/sh\ntouch '" + marker + "'\n", 0644));
    ShellOptions inFolder, badName, missingFolder;
    inFolder.workingFolder = folder.path();
    badName.environment = {{"A=B", "x"}};
    missingFolder.workingFolder = folder / "absent";
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
        {plain, {}, {}, "not executable"},
        {folder.path(), {}, {}, "a folder"},
        {tool, {}, missingFolder, "working folder missing"},
        {tool, {std::string("a\0b", 3)}, {}, "NUL in an argument"},
        {tool, {}, badName, "= in a variable name"},
    };
    for (const auto& c : cases) {
        const ShellResult r = Shell::run(c.program, c.args, c.options);
        EXPECT_FALSE(r.started) << c.why;
        EXPECT_EQ(r.status, -1) << c.why;
        EXPECT_FALSE(fs::exists(marker)) << c.why;
    }
    // The same tool, named properly, does run, in the folder asked for.
    EXPECT_TRUE(Shell::run(tool, {}, inFolder).started);
    EXPECT_TRUE(fs::exists(marker));
    EXPECT_EQ(Shell::run("/bin/pwd", {"-P"}, inFolder).output, fs::canonical(folder.path()).string() + "\n");
}

TEST_F(ShellTest, OutputOnBothPipesComesBackWholeUpToTheCap) {
    // 20 MB on standard output after 5 MB on standard error: reading only one pipe would deadlock.
    const ShellResult r =
        sh("head -c 5000000 /dev/zero | tr '\\0' e >&2; head -c 20000000 /dev/zero | tr '\\0' o; echo END >&2",
           limited({}, true));
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

    const struct {
        const char* script;
        std::size_t cap, kept;
        bool truncated;
        int status;
    } cases[] = {
        {"head -c 1000 /dev/zero", 1000, 1000, false, 0},
        {"head -c 1001 /dev/zero", 1000, 1000, true, 0},
        {"head -c 999 /dev/zero", 1000, 999, false, 0},
        {"echo x", 0, 0, true, 0},
        {"true", 0, 0, false, 0},
        // The tool must not block on a full pipe once we stop keeping what it writes.
        {"head -c 8000000 /dev/zero; exit 7", 4096, 4096, true, 7},
    };
    for (const auto& c : cases) {
        ShellOptions options = limited(10);
        options.maxOutput = c.cap;
        const ShellResult capped = sh(c.script, options);
        EXPECT_FALSE(capped.timedOut) << c.script;
        EXPECT_EQ(capped.status, c.status) << c.script;
        EXPECT_EQ(capped.output.size(), c.kept) << c.script;
        EXPECT_EQ(capped.truncated, c.truncated) << c.script;
    }
}

TEST_F(ShellTest, ManyThreadsRunToolsAtOnce) {
    constexpr int threads = 8, runsEach = 6;
    std::vector<std::string> failures(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            quorv::HostScope inner(host);  // the host is per thread
            for (int i = 0; i < runsEach; ++i) {
                const std::string tag = "t" + std::to_string(t) + "-" + std::to_string(i);
                const ShellResult r = Shell::run("/bin/sh", {"-c", "head -c 100000 /dev/zero >/dev/null; echo \"$1\"; exit \"$2\"",
                                                             "sh", tag, std::to_string(t)});
                if (r.output != tag + "\n" || r.status != t) failures[t] += tag + " got " + r.output + "; ";
            }
        });
    }
    for (auto& th : pool) th.join();
    for (int t = 0; t < threads; ++t) EXPECT_EQ(failures[t], "") << t;
}

TEST_F(ShellTest, ToolSeesOnlyTheStandardDescriptorsAndNoneLeak) {
    // A descriptor opened carelessly elsewhere in the process (no close-on-exec) must not reach it.
    const int careless = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(careless, 3);
    for (bool capture : {false, true}) EXPECT_EQ(sh("ls /proc/$$/fd", limited({}, capture)).output, "0\n1\n2\n") << capture;
    ::close(careless);
    // Standard input is empty.
    const ShellResult cat = Shell::run("/bin/cat", {});
    EXPECT_EQ(cat.status, 0);
    EXPECT_EQ(cat.output, "");

    const auto before = ourDescriptors();
    sh("echo hi");
    sh("sleep 5", limited(0.1, true));
    Shell::run("/nonexistent/tool", {});
    Shell::run("relative", {});
    ShellOptions badFolder;
    badFolder.workingFolder = "/nonexistent/folder";
    Shell::run("/bin/true", {}, badFolder);
    EXPECT_EQ(ourDescriptors(), before);
}

}  // namespace
