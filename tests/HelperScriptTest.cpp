// The helper's operation table and its root script, run under bash with recording stand-ins for
// the system tools; the operations that read absolute system folders run in a chroot laid out
// like a Mac.

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "shared/helper/HelperInfo.hpp"
#include "shared/helper/HelperScript.hpp"
#include "support/TestFiles.hpp"
#include "support/TestSupport.hpp"

namespace {

using namespace std::string_literals;
namespace HelperScript = brimstell::HelperScript;
using testing_support::TempDir;
namespace fs = std::filesystem;

using testing_support::putFile;

// A stand-in tool: appends "name [arg] [arg]…" to log, then runs body.
std::string fakeTool(const std::string& name, const std::string& log, const std::string& body) {
    return "#!/bin/sh\n{ printf '%s' '" + name + "'; for a; do printf ' [%s]' \"$a\"; done; echo; } >> '" + log +
           "'\n" + body + "\n";
}

std::string readIfThere(const std::string& path) { return fs::exists(path) ? testing_support::readText(path) : ""; }

TEST(HelperScript, NamesOperationsAndFileJobs) {
#ifndef __APPLE__
    EXPECT_EQ(brimstell::HelperInfo::ownTeamID(), std::nullopt);  // Linux binaries carry no signature
#endif
    const std::set<std::string> fileJobs = {"trash", "emptytrash", "restore"};
    const std::set<std::string> all = {"junk", "large", "svc", "flushdns", "reindex", "thin", "profiles", "btm",
                                       "trash", "emptytrash", "restore"};
    for (const auto& op : all) {
        EXPECT_TRUE(HelperScript::isOperation(op)) << op;
        EXPECT_EQ(HelperScript::isFileJob(op), fileJobs.contains(op)) << op;
    }
    for (const auto& op : {"version"s, ""s, "JUNK"s, "trash "s, " trash"s, "junk\n"s, "do_junk"s, "emptyTrash"s, "trash\0x"s}) {
        EXPECT_FALSE(HelperScript::isOperation(op)) << op;
        EXPECT_FALSE(HelperScript::isFileJob(op)) << op;
    }
}

// A folder with the script, the functions and recording stand-ins for the tools that the
// script runs by name.
class ScriptBench {
public:
    ScriptBench() : bin_(dir_ / "bin"), log_(dir_ / "tools.log"), script_(dir_ / "dispatch.sh"), functions_(dir_ / "functions.sh") {
        putFile(script_, std::string(HelperScript::dispatch));
        putFile(functions_, std::string(HelperScript::functions));
        const std::string failing = "[ \"$TOOL_FAIL\" = \"$(basename \"$0\")\" ] && exit 1\necho noise\nexit 0";
        for (const char* tool : {"launchctl", "dscacheutil", "killall", "mdutil", "tmutil", "find", "stat"}) {
            putFile(bin_ + "/" + tool, fakeTool(tool, log_, failing), 0755);
        }
    }
    std::string folder() const { return fs::canonical(dir_.path()).string(); }
    std::string toolLog() const { return readIfThere(log_); }
    void clearLog() const { fs::remove(log_); }
    void tool(const std::string& name, const std::string& body) const { putFile(bin_ + "/" + name, fakeTool(name, log_, body), 0755); }

    testing_support::RunResult run(const std::string& op, const std::string& arg, const std::string& failing = "") const {
        return bash({script_, "/Users/ann", op, arg, ""}, failing);
    }
    // Sources the functions and calls one of them.
    testing_support::RunResult call(const std::vector<std::string>& args) const {
        std::vector<std::string> all = {"-c", "source \"$0\" && \"$@\"", functions_};
        all.insert(all.end(), args.begin(), args.end());
        return bash(all);
    }
    testing_support::RunResult bash(const std::vector<std::string>& args, const std::string& failing = "") const {
        return testing_support::runProgram("/bin/bash", args, {{"PATH", bin_ + ":/usr/bin:/bin"}, {"TOOL_FAIL", failing}});
    }

    TempDir dir_;
    std::string bin_, log_, script_, functions_;
};

TEST(HelperScript, FunctionsAreTheScriptWithoutItsArgumentsAndItsCase) {
    ScriptBench bench;
    const auto lines = testing_support::linesOf(bench.script_);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.front(), R"(me="$1"; op="$2"; arg="$3"; list="$4")");
    EXPECT_EQ(lines.back(), "esac");
    EXPECT_TRUE(HelperScript::dispatch.ends_with("esac\n"));

    std::size_t caseLine = lines.size();
    while (caseLine > 0 && !lines[caseLine - 1].starts_with("case ")) --caseLine;
    ASSERT_GT(caseLine, 1u) << "no final case";
    std::string expected;
    for (std::size_t i = 1; i + 1 < caseLine; ++i) expected += lines[i] + "\n";
    EXPECT_EQ(HelperScript::functions, expected);
    // The case knows every operation but the file jobs, and nothing else.
    std::set<std::string> labels;
    const std::regex label(R"(^  ([a-z]+)\))");
    for (std::size_t i = caseLine; i < lines.size(); ++i) {
        if (std::smatch m; std::regex_search(lines[i], m, label)) labels.insert(m[1]);
    }
    EXPECT_EQ(labels, (std::set<std::string>{"junk", "large", "svc", "flushdns", "reindex", "thin", "profiles", "btm"}));

    // Sourcing the functions defines the five functions, prints nothing and runs nothing.
    EXPECT_EQ(bench.bash({"-c", "source \"$0\"; echo defined; declare -F", bench.functions_}).output,
              "defined\ndeclare -f do_junk\ndeclare -f do_large\ndeclare -f do_svc\ndeclare -f emit\ndeclare -f real\n");
    EXPECT_EQ(bench.toolLog(), "");
}

TEST(HelperScript, RealAcceptsOnlyThePhysicalPath) {
    ScriptBench bench;
    const std::string base = bench.folder() + "/t";
    fs::create_directories(base + "/a/sub");
    putFile(base + "/a/b", "x");
    putFile(base + "/a/new\nline", "x");
    fs::create_directory_symlink("a", base + "/link");
    fs::create_directory_symlink(base + "/a", base + "/a/sublink");
    // Only the folder must exist; a link as the last name is itself, not followed.
    for (const std::string path : {"/a/b", "/a", "/a/sub", "/a/new\nline", "/a/not-there", "/a/sublink"}) {
        EXPECT_EQ(bench.call({"real", base + path}).status, 0) << path;
    }
    for (const std::string& path : {base + "/link/b", base + "/a/sublink/b", base + "//a/b", base + "/a//b", base + "/A/b",
                                    base + "/a/./b", base + "/a/sub/../b", base + "/missing/b", "relative/b"s, "b"s, ""s}) {
        EXPECT_NE(bench.call({"real", path}).status, 0) << path;
    }
}

TEST(HelperScript, EmitPrintsKnownSizesAboveZero) {
    ScriptBench bench;
    bench.tool("du", "case \"$2\" in\n  */big) printf '12\\t%s\\n' \"$2\" ;;\n  */zero) printf '0\\t%s\\n' \"$2\" ;;\n"
                     "  */broken) echo 'du: cannot read' >&2; exit 1 ;;\n  */words) echo 'many kilobytes' ;;\n"
                     "  *) printf '4\\t%s\\n' \"$2\" ;;\nesac");
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/p/big", "cache\t12\t/p/big\n"}, {"/p/other name", "cache\t4\t/p/other name\n"},
        {"/p/\xff\xfe", "cache\t4\t/p/\xff\xfe\n"}, {"/p/zero", ""}, {"/p/broken", ""}, {"/p/words", ""},
        {"/p/new\nline", ""}, {"/p/tab\tbed", ""}};
    for (const auto& [path, printed] : rows) {
        const auto result = bench.call({"emit", "cache", path});
        EXPECT_EQ(result.output, printed) << path;
        EXPECT_EQ(result.status, 0) << path;
    }
    // A name that could fake a line never reaches du.
    EXPECT_EQ(bench.toolLog().find("line"), std::string::npos);
    EXPECT_EQ(bench.toolLog().find("tab"), std::string::npos);
    EXPECT_NE(bench.toolLog().find("du [-skx] [/p/big]\n"), std::string::npos);
}

TEST(HelperScript, OperationsRunTheirToolsAndSayOKOnlyWhenEveryOneSucceeds) {
    ScriptBench bench;
    struct Row {
        std::string op, arg, failing, reply, log;
    };
    const std::string disable = "launchctl [disable] [system/com.example.x]\n";
    const std::string flush = "dscacheutil [-flushcache]\n";
    const std::string thin = "tmutil [thinlocalsnapshots] [/] [999999999999] [4]\n";
    std::vector<Row> rows = {
        {"svc", "enable com.example.x", "", "OK\n", "launchctl [enable] [system/com.example.x]\n"},
        {"svc", "disable com.example.x", "", "OK\n", disable + "launchctl [bootout] [system/com.example.x]\n"},
        {"svc", "disable A-b_9.x", "", "OK\n", "launchctl [disable] [system/A-b_9.x]\nlaunchctl [bootout] [system/A-b_9.x]\n"},
        {"svc", "disable com.example.x", "launchctl", "", disable},
        {"flushdns", "", "", "OK\n", flush + "killall [-HUP] [mDNSResponder]\n"},
        {"flushdns", "", "dscacheutil", "", flush},
        {"flushdns", "", "killall", "", flush + "killall [-HUP] [mDNSResponder]\n"},
        {"reindex", "", "", "OK\n", "mdutil [-E] [/]\n"},
        {"reindex", "", "mdutil", "", "mdutil [-E] [/]\n"},
        {"thin", "", "", "OK\n", thin},
        {"thin", "", "tmutil", "", thin},
    };
    // svc runs only for a verb and a plain label.
    for (const std::string arg : {"enable com.example.x;rm", "enable com.example.x rm", "enable com/example", "enable $(touch pwned)",
                                  "enable `id`", "enable c\xc3\xb6m.x", "enable com.x\nrm", "enable com.x ", " enable com.x",
                                  "enable  com.x", "enable", "enable ", "ENABLE com.x", "start com.x", "bootout com.x", ""}) {
        rows.push_back({"svc", arg, "", "", ""});
    }
    // An operation outside the case prints and runs nothing.
    for (const std::string op : {"", "trash", "restore", "emptytrash", "version", "JUNK", "do_junk", "junk;ls", "real", "*",
                                 "svc ", "flushdns\n"}) {
        rows.push_back({op, "enable com.example.x", "", "", ""});
    }
    for (const Row& row : rows) {
        bench.clearLog();
        EXPECT_EQ(bench.run(row.op, row.arg, row.failing).output, row.reply) << row.op << " " << row.arg << " " << row.failing;
        EXPECT_EQ(bench.toolLog(), row.log) << row.op << " " << row.arg << " " << row.failing;
    }
}

// The Mac's folders in <temp>/root; bash, sh and sleep copied in, the host's libraries mounted
// read-only, tools as recording stand-ins. Each run is a child in a mount namespace of its own,
// so nothing is mounted outside it.
class MacChroot {
public:
    MacChroot() : root_(dir_ / "root") {
        for (const char* folder : {"/usr/bin", "/usr/lib", "/usr/lib64", "/dev", "/fakebin", "/Library/Caches",
                                   "/Library/Logs", "/private/var/log", "/cores", "/Users", "/System/Volumes/Data"}) {
            fs::create_directories(at(folder));
        }
        for (const char* link : {"bin", "lib", "lib64"}) fs::create_directory_symlink("usr/"s + link, at("/"s + link));
        putFile(at("/dev/null"), "");
        for (auto [from, to] : {std::pair{"/usr/bin/bash", "/usr/bin/bash"}, std::pair{"/usr/bin/dash", "/usr/bin/sh"},
                                std::pair{"/usr/bin/sleep", "/usr/bin/sleep"}}) {
            fs::copy_file(from, at(to));
            ::chmod(at(to).c_str(), 0755);
        }
        putFile(at("/dispatch.sh"), std::string(HelperScript::dispatch));
    }

    std::string at(const std::string& macPath) const { return root_ + macPath; }
    void tool(const std::string& macPath, const std::string& body) const {
        putFile(at(macPath), fakeTool(fs::path(macPath).filename().string(), "/tools.log", body), 0755);
    }
    std::string toolLog() const { return readIfThere(at("/tools.log")); }

    struct Result {
        std::string output;
        bool ran = false;
        std::string why;
        double seconds = 0;
    };
    Result run(const std::string& op, const std::string& arg) const {
        int channel[2];
        if (::pipe(channel) != 0) return {"", false, "no pipe"};
        const auto start = std::chrono::steady_clock::now();
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(channel[0]);
            if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(125);
            for (const char* lib : {"/usr/lib", "/usr/lib64"}) {
                const std::string target = at(lib);
                if (::mount(lib, target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
                    ::mount(nullptr, target.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
                    ::_exit(126);
                }
            }
            if (::mount("/dev/null", at("/dev/null").c_str(), nullptr, MS_BIND, nullptr) != 0) ::_exit(126);
            if (::chroot(root_.c_str()) != 0 || ::chdir("/") != 0) ::_exit(126);
            ::dup2(channel[1], 1);
            const char* argv[] = {"bash", "/dispatch.sh", "/Users/ann", op.c_str(), arg.c_str(), "", nullptr};
            const char* envp[] = {"PATH=/fakebin:/usr/bin", nullptr};
            ::execve("/usr/bin/bash", const_cast<char**>(argv), const_cast<char**>(envp));
            ::_exit(127);
        }
        ::close(channel[1]);
        Result result;
        char buffer[4096];
        for (ssize_t n; (n = ::read(channel[0], buffer, sizeof buffer)) > 0;) result.output.append(buffer, static_cast<size_t>(n));
        ::close(channel[0]);
        int status = 0;
        ::waitpid(child, &status, 0);
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const std::map<int, std::string> why = {{125, "no private mount namespace here (unshare/mount refused)"},
                                                {126, "can't lay out a chroot here (bind mount or chroot refused)"},
                                                {127, "bash didn't start in the chroot"}};
        result.ran = !WIFEXITED(status) || !why.contains(WEXITSTATUS(status));
        if (!result.ran) result.why = why.at(WEXITSTATUS(status));
        return result;
    }

private:
    TempDir dir_;
    std::string root_;
};

class HelperScriptChroot : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "a chroot needs root";
    }
};

#define RUN_OR_SKIP(result) \
    if (!(result).ran) GTEST_SKIP() << (result).why

TEST_F(HelperScriptChroot, JunkListsSystemAndOtherAccountsJunk) {
    MacChroot mac;
    mac.tool("/fakebin/du",
             "case \"$2\" in */Acme) n=12 ;; */zero) n=0 ;; *) n=4 ;; esac\nprintf '%s\\t%s\\n' \"$n\" \"$2\"");
    const auto empty = mac.run("junk", "");
    RUN_OR_SKIP(empty);
    EXPECT_EQ(empty.output, "");
    EXPECT_EQ(mac.toolLog(), "");

    for (const char* file : {"/Library/Caches/.hidden", "/Library/Caches/Acme/data", "/Library/Caches/ColorSync/x",
                             "/Library/Caches/Desktop Pictures/x", "/Library/Caches/com.apple.Safari/x",
                             "/Library/Caches/line\nfeed", "/Library/Caches/zero", "/Library/Logs/install.log",
                             "/Library/Logs/DiagnosticReports/crash.ips", "/private/var/log/system.log",
                             "/private/var/log/system.log.0.gz", "/private/var/log/x.bz2", "/private/var/log/wifi.log.1",
                             "/private/var/log/notes.txt", "/cores/core.123", "/Users/ann/Library/Caches/mine",
                             "/Users/bob/Library/Caches/bobcache", "/Users/bob/Library/Logs/boblog",
                             "/Users/carl/Library/Logs/tab\tname", "/Users/Shared/Library/Caches/shared",
                             "/Users/eve/Documents/x", "/Users/file"}) {
        putFile(mac.at(file), "x");
    }
    // carl swapped his Caches for a link to the system's; dave's home is a link to bob's.
    fs::create_directory_symlink("/Library/Caches", mac.at("/Users/carl/Library/Caches"));
    fs::create_directory_symlink("bob", mac.at("/Users/dave"));

    EXPECT_EQ(mac.run("junk", "").output,
              "cache\t4\t/Library/Caches/.hidden\n"
              "cache\t12\t/Library/Caches/Acme\n"
              "log\t4\t/Library/Logs/install.log\n"
              "log\t4\t/Library/Logs/DiagnosticReports/crash.ips\n"
              "log\t4\t/private/var/log/system.log.0.gz\n"
              "log\t4\t/private/var/log/x.bz2\n"
              "log\t4\t/private/var/log/wifi.log.1\n"
              "log\t4\t/cores/core.123\n"
              "user\t4\t/Users/bob/Library/Caches/bobcache\n"
              "user\t4\t/Users/bob/Library/Logs/boblog\n");
    // du saw each of those, and the zero-sized one, and nothing else.
    std::string measured;
    for (const char* path : {"/Library/Caches/.hidden", "/Library/Caches/Acme", "/Library/Caches/zero", "/Library/Logs/install.log",
                             "/Library/Logs/DiagnosticReports/crash.ips", "/private/var/log/system.log.0.gz", "/private/var/log/x.bz2",
                             "/private/var/log/wifi.log.1", "/cores/core.123", "/Users/bob/Library/Caches/bobcache",
                             "/Users/bob/Library/Logs/boblog"}) {
        measured += "du [-skx] ["s + path + "]\n";
    }
    EXPECT_EQ(mac.toolLog(), measured);
}

TEST_F(HelperScriptChroot, LargeChecksItsArgumentAndEndsRecordsInNul) {
    MacChroot mac;
    mac.tool("/fakebin/find", "echo \"cwd $(pwd)\" >> /tools.log\nprintf './big file\\0./new\\nline\\0./vanished\\0./odd\\0'");
    mac.tool("/fakebin/stat",
             "case \"$3\" in './big file') echo 2048 ;; ./vanished) exit 1 ;; ./odd) echo 'n/a' ;; *) echo 16 ;; esac");
    for (const std::string arg : {"", "12a", "-1", "+5", "1 2", " 12", "12\n", "0x10", "$(touch /pwned)", "1;touch /pwned",
                                  "\xef\xbc\x91\xef\xbc\x92"}) {
        const auto refused = mac.run("large", arg);
        RUN_OR_SKIP(refused);
        EXPECT_EQ(refused.output, "") << arg;
        EXPECT_EQ(mac.toolLog(), "") << arg;
    }
    EXPECT_FALSE(fs::exists(mac.at("/pwned")));

    EXPECT_EQ(mac.run("large", "1024").output, "2048\t./big file\0"s "16\t./new\nline\0"s);
    EXPECT_EQ(mac.toolLog(),
              "find [-x] [.] [(] [-path] [./Volumes] [-o] [-path] [./System] [-o] [-path] [./.Spotlight-V100] "
              "[-o] [-path] [./.fseventsd] [-o] [-path] [./.DocumentRevisions-V100] [-o] [-path] [./private/var/vm] "
              "[-o] [-path] [./private/var/db] [-o] [-path] [./Users/*/Library/CloudStorage] [-o] [-path] "
              "[./Users/*/Library/Mobile Documents] [-o] [-name] [*.app] [)] [-prune] [-o] [-type] [f] [-size] "
              "[+1024k] [-print0]\n"
              "cwd /System/Volumes/Data\n"
              "stat [-f] [%b] [./big file]\n"
              "stat [-f] [%b] [./new\nline]\n"
              "stat [-f] [%b] [./vanished]\n"
              "stat [-f] [%b] [./odd]\n");
}

// btm's watchdog doesn't hold a quick reply open, and gives up on a hanging tool after 20 seconds.
TEST_F(HelperScriptChroot, ProfilesAndBtmPrintTheToolsOwnText) {
    MacChroot mac;
    mac.tool("/usr/bin/profiles", "echo 'There are no configuration profiles installed'\necho 'noise' >&2");
    mac.tool("/usr/bin/sfltool", "echo 'Records for UID 501'\necho 'noise' >&2");
    const auto profiles = mac.run("profiles", "");
    RUN_OR_SKIP(profiles);
    EXPECT_EQ(profiles.output, "There are no configuration profiles installed\n");
    const auto btm = mac.run("btm", "");
    EXPECT_EQ(btm.output, "Records for UID 501\n");
    EXPECT_LT(btm.seconds, 5.0);
    EXPECT_EQ(mac.toolLog(), "profiles [list] [-all]\nsfltool [dumpbtm]\n");

    mac.tool("/usr/bin/sfltool", "echo 'partial'\nexec sleep 120");
    const auto hung = mac.run("btm", "");
    EXPECT_EQ(hung.output, "partial\n");
    EXPECT_GE(hung.seconds, 19.5);
    EXPECT_LT(hung.seconds, 40.0);
}

}  // namespace
