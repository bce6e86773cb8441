// The built brimstell-helper on a socket in a temporary folder, rooted at a sandbox Mac: who it
// serves, what it does for them, and what no caller can make it do or wait for.

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "kit/agent/ProcessHost.hpp"
#include "kit/files/Admin.hpp"
#include "kit/files/History.hpp"
#include "kit/files/SocketHelperTransport.hpp"
#include "shared/helper/HelperWire.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/UniqueFd.hpp"

extern char** environ;

namespace {

using brimstell::Admin;
using testing_support::readText;
namespace fs = std::filesystem;
namespace wire = brimstell::HelperWire;
using Steady = std::chrono::steady_clock;

double since(Steady::time_point t) { return std::chrono::duration<double>(Steady::now() - t).count(); }
std::string selfExe() { return fs::canonical("/proc/self/exe").string(); }
std::string selfDir() { return fs::path(selfExe()).parent_path().string(); }

quorv::UniqueFd connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    quorv::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return {};
    return fd;
}

// Everything the helper sends until it closes (or seconds pass), or just count bytes.
std::string readAll(int fd, double seconds = 8, std::size_t count = SIZE_MAX) {
    timeval tv{static_cast<time_t>(seconds), 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    std::string got;
    char buffer[4096];
    for (ssize_t n; got.size() < count && (n = ::read(fd, buffer, std::min(sizeof buffer, count - got.size()))) > 0;) {
        got.append(buffer, static_cast<std::size_t>(n));
    }
    return got;
}

bool writeAll(int fd, const std::string& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// A request for this connection's challenge, read off the socket.
std::string answerChallenge(int fd, const wire::Request& request) {
    const std::string challenge = readAll(fd, 8, wire::challengeSize);
    EXPECT_EQ(challenge.size(), wire::challengeSize);
    wire::Nonce nonce{};
    if (challenge.size() == wire::challengeSize) std::memcpy(nonce.data(), challenge.data() + 4, nonce.size());
    return *wire::encodeRequest(nonce, request);
}

// brimstell-helper running for the duration of a test; its log goes to a file.
class Daemon {
public:
    Daemon(const std::string& folder, std::vector<std::string> args, const std::vector<std::string>& environment = {})
        : socket_(folder + "/helper.sock"), log_(folder + "/helper.log") {
        args.insert(args.begin(), {BRIMSTELL_HELPER_EXE, "--socket", socket_, "--log-stderr"});
        std::vector<std::string> env = environment;
        for (char** e = environ; e && *e; ++e) env.emplace_back(*e);  // the first of a name wins
        std::vector<char*> argv, envp;
        for (auto& a : args) argv.push_back(a.data());
        for (auto& e : env) envp.push_back(e.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, log_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        if (::posix_spawn(&pid_, args[0].c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        // Listening once a connection is accepted into its backlog.
        for (const auto began = Steady::now(); pid_ > 0 && !listening_ && since(began) < 10;) {
            listening_ = connectTo(socket_).valid();
            if (!listening_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~Daemon() {
        if (pid_ > 0 && ::kill(pid_, SIGTERM) == 0) ::waitpid(pid_, nullptr, 0);
    }
    bool listening() const { return listening_; }
    const std::string& socket() const { return socket_; }
    std::string log() const { return fs::exists(log_) ? readText(log_) : ""; }
    // The log once it holds text (the helper writes it as it goes).
    std::string logOnce(const std::string& text) const {
        for (const auto began = Steady::now(); log().find(text) == std::string::npos && since(began) < 5;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return log();
    }

private:
    std::string socket_, log_;
    pid_t pid_ = -1;
    bool listening_ = false;
};

class HelperDaemon : public ::testing::Test {
protected:
    void SetUp() override {
        const passwd* pw = ::getpwuid(::geteuid());
        name = pw && pw->pw_name ? pw->pw_name : "";
        if (name.empty()) GTEST_SKIP() << "this user has no name in the user database";
        mac.emplace(brimstell::SandboxMac::create(dir / "mac", name));
        root = fs::canonical(mac->root()).string();
        me = "/Users/" + name;
    }

    // The daemon on the sandbox Mac (or on the root args give), trusting programs in exeDir as
    // Brimstell programs and this user as an administrator.
    std::unique_ptr<Daemon> start(std::vector<std::string> args = {}, const std::vector<std::string>& environment = {},
                                  const std::string& exeDir = selfDir()) {
        if (args.empty() || args[0] != "--root") args.insert(args.begin(), {"--root", root});
        args.insert(args.end(), {"--trust-exe-dir", exeDir, "--trust-uid", std::to_string(::geteuid())});
        auto d = std::make_unique<Daemon>(dir.path(), args, environment);
        EXPECT_TRUE(d->listening()) << d->log();
        return d;
    }
    std::map<std::string, std::string> environmentFor(const Daemon& d) {
        auto env = mac->environment();
        env["BRIMSTELL_HELPER_SOCKET"] = d.socket();
        return env;
    }
    std::shared_ptr<quorv::Host> hostFor(const Daemon& d) {
        auto h = brimstell::makeHost(environmentFor(d));
        h->systemLog = [](int, const std::string&) {};
        return h;
    }

    testing_support::TempDir dir;
    std::optional<brimstell::SandboxMac> mac;
    std::string name, root, me;
};

TEST_F(HelperDaemon, HandshakeThenTrashAndRestoreEndToEnd) {
    auto daemon = start();
    quorv::HostScope scope(hostFor(*daemon));
    EXPECT_TRUE(Admin::start()) << daemon->log();
    EXPECT_TRUE(Admin::ready());

    mac->writeFile("/Library/Caches/com.example.cache/data", "cached");
    const std::string folder = root + "/Library/Caches/com.example.cache";
    const std::string movedLog = root + "/Library/Application Support/Brimstell/helper-moved.log";
    EXPECT_EQ(Admin::trash({folder, root + "/System/Library/x"}), std::set<std::string>{folder});
    const std::string inTrash = root + me + "/.Trash/com.example.cache";
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_EQ(readText(inTrash + "/data"), "cached");
    const auto log = testing_support::linesOf(movedLog);
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].rfind(me + "/.Trash/com.example.cache\t/Library/Caches/com.example.cache\t", 0), 0u) << log[0];

    // The history holds it as moved by root, with the helper's paths, and puts it back through
    // the helper.
    auto& history = brimstell::History::shared();
    const auto entries = history.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].original, "/Library/Caches/com.example.cache");
    EXPECT_EQ(entries[0].trashed, me + "/.Trash/com.example.cache");
    EXPECT_TRUE(entries[0].isRoot());
    Admin::connectHistory();
    const auto restored = history.restore(entries[0]);
    EXPECT_TRUE(restored.ok()) << restored.message();
    EXPECT_EQ(readText(folder + "/data"), "cached");
    EXPECT_EQ(testing_support::linesOf(movedLog), std::vector<std::string>{});
}

TEST_F(HelperDaemon, TheScriptSeesOnlyItsOwnEnvironmentAndArguments) {
    const std::string marker = dir / "bash-env-ran";
    mac->writeFile("/bash-env.sh", "touch '" + marker + "'\n");
    mac->addFakeTool("/usr/bin/launchctl", "exit 0");
    mac->addFakeTool("/usr/bin/tmutil", "env | sort > '" + root + "/tool-env.txt'; exit 0");
    // None of this may reach the helper's script.
    auto daemon = start({}, {"BASH_ENV=" + root + "/bash-env.sh", "BRIMSTELL_ROOT=/elsewhere", "HOME=/nowhere", "PATH=/nowhere"});
    quorv::HostScope scope(hostFor(*daemon));

    EXPECT_TRUE(Admin::setDaemon("com.example.x", false));
    EXPECT_TRUE(Admin::maintenance("thin"));
    EXPECT_EQ(testing_support::linesOf(root + "/private/var/log/tools.log"),
              (std::vector<std::string>{"/usr/bin/launchctl disable system/com.example.x",
                                        "/usr/bin/launchctl bootout system/com.example.x",
                                        "/usr/bin/tmutil thinlocalsnapshots / 999999999999 4"}));
    const std::string env = readText(root + "/tool-env.txt");
    const std::string r = root;
    EXPECT_NE(env.find("PATH=" + r + "/usr/bin:" + r + "/bin:" + r + "/usr/sbin:" + r + "/sbin:/usr/bin:/bin:/usr/sbin:/sbin\n"),
              std::string::npos) << env;
    EXPECT_NE(env.find("LC_ALL=C\n"), std::string::npos) << env;
    for (const char* absent : {"HOME=", "BRIMSTELL", "BASH_ENV"}) EXPECT_EQ(env.find(absent), std::string::npos) << absent << env;
    EXPECT_FALSE(fs::exists(marker));
}

TEST_F(HelperDaemon, AProgramThatIsNotBrimstellIsClosedOnAndNothingMoves) {
    fs::create_directories(dir / "elsewhere");
    auto daemon = start({}, {}, dir / "elsewhere");
    const std::string item = mac->writeFile("/Library/Caches/com.example.keep", "keep");
    brimstell::SocketHelperTransport transport(daemon->socket());
    EXPECT_EQ(transport.call("trash", "", {"/Library/Caches/com.example.keep"}, 5.0), std::nullopt);
    EXPECT_EQ(transport.call("version", "", {}, 5.0), std::nullopt);
    EXPECT_TRUE(fs::exists(item));
    const std::string log = daemon->logOnce("refused a caller");
    EXPECT_NE(log.find("refused a caller: its program " + selfExe() + " is not an installed Brimstell program"), std::string::npos)
        << log;
}

TEST_F(HelperDaemon, AUserOutsideTheAdminGroupsIsClosedOn) {
    if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
    fs::permissions(dir.path(), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    Daemon daemon(dir.path(), {"--root", root, "--trust-exe-dir", selfDir()});
    ASSERT_TRUE(daemon.listening()) << daemon.log();
    // The test program itself, as nobody: only raw calls between fork and exit.
    const char* path = daemon.socket().c_str();
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(3);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
        if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ::_exit(4);
        char byte = 0;
        ::_exit(::read(fd, &byte, 1) == 0 ? 0 : 1);  // closed without a challenge: end of file at once
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_NE(daemon.logOnce("is not an administrator").find("refused a caller: nobody is not an administrator"),
              std::string::npos) << daemon.log();
}

// Bytes that were written before the challenge, or by another process than the one that connected
// (a child it handed the socket to), are never taken as a request.
TEST_F(HelperDaemon, OnlyTheConnectingProcessAnsweringTheChallengeIsServed) {
    auto daemon = start();
    const std::string item = mac->writeFile("/Library/Caches/com.example.keep", "keep");
    const wire::Request trash{false, "trash", "", {"/Library/Caches/com.example.keep"}};
    {
        SCOPED_TRACE("written before the challenge");
        auto fd = connectTo(daemon->socket());
        ASSERT_TRUE(fd);
        ASSERT_TRUE(writeAll(fd.get(), *wire::encodeRequest(wire::Nonce{}, trash)));
        EXPECT_EQ(readAll(fd.get()).size(), wire::challengeSize);  // the challenge, then nothing
    }
    {
        SCOPED_TRACE("written by a child");
        auto fd = connectTo(daemon->socket());
        ASSERT_TRUE(fd);
        const std::string request = answerChallenge(fd.get(), trash);
        const pid_t child = ::fork();
        if (child == 0) ::_exit(writeAll(fd.get(), request) ? 0 : 1);
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(readAll(fd.get()), "");
    }
    EXPECT_TRUE(fs::exists(item));
    const std::string log = daemon->logOnce("written by another process");
    EXPECT_NE(log.find("its request answers another challenge"), std::string::npos) << log;
    EXPECT_NE(log.find("its request was written by another process"), std::string::npos) << log;

    // The same request, from this process, after the challenge: served.
    brimstell::SocketHelperTransport transport(daemon->socket());
    EXPECT_EQ(transport.call("trash", "", trash.list, 5.0),
              "OK\t/Library/Caches/com.example.keep\t" + me + "/.Trash/com.example.keep\n");
    EXPECT_FALSE(fs::exists(item));
}

TEST_F(HelperDaemon, AnOversizedRequestIsRefusedOnItsHeader) {
    auto daemon = start();
    auto fd = connectTo(daemon->socket());
    ASSERT_TRUE(fd);
    ASSERT_EQ(readAll(fd.get(), 8, wire::challengeSize).size(), wire::challengeSize);
    std::string header = "BRQ1";
    for (std::uint32_t v = wire::maxRequestBytes + 1, i = 0; i < 4; ++i, v >>= 8) header += static_cast<char>(v & 0xFF);
    ASSERT_TRUE(writeAll(fd.get(), header));
    EXPECT_EQ(readAll(fd.get()), "");
    // Refused on its header, not dropped at the deadline while waiting for 16 MiB.
    EXPECT_NE(daemon->logOnce("oversized request").find("it sent an invalid or oversized request"), std::string::npos)
        << daemon->log();
}

// What a sweep does with each item is HelperLinuxFiles'; here: the daemon sweeps before it serves,
// under its own rules (a Mac daemon would look for the stash elsewhere and find none).
TEST_F(HelperDaemon, UnderLinuxRulesWhatAStoppedRestoreLeftIsSweptBackBeforeServing) {
    const std::string linux = dir / "linux", stash = linux + "/var/lib/brimstell/restore";
    fs::create_directories(stash);
    fs::permissions(linux + "/var/lib/brimstell", fs::perms::owner_all);
    fs::permissions(stash, fs::perms::owner_all);
    std::ofstream(stash + "/x") << "cached";  // no moved-log line claims it

    const auto daemon = start({"--root", linux, "--rules", "linux"});
    EXPECT_NE(daemon->log().find("moved 1 item(s) left by an unfinished restore out of the stash"), std::string::npos)
        << daemon->log();
    EXPECT_NE(daemon->log().find("Linux rules"), std::string::npos) << daemon->log();
    EXPECT_EQ(readText(linux + "/var/lib/brimstell/unclaimed/x"), "cached");
    EXPECT_TRUE(fs::is_empty(stash));

    // Mac rules only for a sandbox: never on the machine's own root.
    for (const auto& [args, status] : std::vector<std::pair<std::vector<std::string>, int>>{
             {{"--rules", "mac"}, 2}, {{"--rules", "bsd", "--root", linux}, 2}, {{"--rules"}, 2}, {{"--help"}, 0}}) {
        const auto run = testing_support::runProgram(BRIMSTELL_HELPER_EXE, args, {});
        EXPECT_EQ(run.status, status) << args[0] << " " << (args.size() > 1 ? args[1] : "");
        if (status == 0) {
            EXPECT_NE(run.output.find("  --rules mac|linux     whose protected paths, Trash and moved log to use"),
                      std::string::npos) << run.output;
        }
    }
}

TEST_F(HelperDaemon, UnderLinuxRulesTheClientTrashesAndRestoresThroughTheDaemon) {
    // The caller's home is the user database's, laid out inside a machine that looks like Linux.
    const passwd* pw = ::getpwuid(::geteuid());
    const std::string home = pw && pw->pw_dir ? pw->pw_dir : "";
    if (home.size() < 2 || home[0] != '/') GTEST_SKIP() << "this user has no home in the user database";
    const std::string linux = dir / "linux";
    fs::create_directories(linux + home);
    fs::create_directories(linux + "/tmp");
    std::ofstream(linux + "/tmp/x") << "temp";
    const auto daemon = start({"--root", linux, "--rules", "linux"});
    auto h = brimstell::makeHost({{"BRIMSTELL_ROOT", linux}, {"BRIMSTELL_PLATFORM", "linux"}, {"HOME", linux + home},
                                  {"BRIMSTELL_HELPER_SOCKET", daemon->socket()}});
    h->systemLog = [](int, const std::string&) {};
    quorv::HostScope scope(h);

    EXPECT_EQ(Admin::trash({linux + "/tmp/x"}), std::set<std::string>{linux + "/tmp/x"}) << daemon->log();
    const std::string inTrash = home + "/.local/share/Trash/files/x";
    EXPECT_EQ(readText(linux + inTrash), "temp");
    EXPECT_NE(readText(linux + home + "/.local/share/Trash/info/x.trashinfo").find("\nPath=/tmp/x\n"), std::string::npos);
    auto& history = brimstell::History::shared();
    const auto entries = history.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].original, "/tmp/x");
    EXPECT_EQ(entries[0].trashed, inTrash);
    Admin::connectHistory();
    const auto restored = history.restore(entries[0]);
    EXPECT_TRUE(restored.ok()) << restored.message() << daemon->log();
    EXPECT_EQ(readText(linux + "/tmp/x"), "temp");
    EXPECT_FALSE(fs::exists(linux + home + "/.local/share/Trash/info/x.trashinfo"));
    EXPECT_EQ(testing_support::linesOf(linux + "/var/lib/brimstell/helper-moved.log"), std::vector<std::string>{});
}

// Trusted callers that stall (two never read the challenge, one reads it and sends half its
// request) each hold one connection; a real request is answered meanwhile, within a time shorter
// than their deadline, and each of them is dropped at its own.
TEST_F(HelperDaemon, StalledClientsDontHoldUpARealRequest) {
    auto daemon = start();
    const std::string item = mac->writeFile("/Library/Caches/com.example.x", "x");
    std::vector<quorv::UniqueFd> silent;
    for (int i = 0; i < 3; ++i) {
        silent.push_back(connectTo(daemon->socket()));
        ASSERT_TRUE(silent.back());
    }
    const auto request = answerChallenge(silent[2].get(), {false, "junk", "", {}});
    ASSERT_TRUE(writeAll(silent[2].get(), request.substr(0, request.size() / 2)));

    brimstell::SocketHelperTransport transport(daemon->socket());
    EXPECT_EQ(transport.call("version", "", {}, 4.0), std::optional<std::string>("4"));
    EXPECT_EQ(transport.call("trash", "", {"/Library/Caches/com.example.x"}, 4.0),
              "OK\t/Library/Caches/com.example.x\t" + me + "/.Trash/com.example.x\n");
    EXPECT_FALSE(fs::exists(item));

    // Each gets its challenge (the third has read it) and then the end of the connection.
    EXPECT_EQ(readAll(silent[0].get(), 8).size(), wire::challengeSize);
    EXPECT_EQ(readAll(silent[1].get(), 8).size(), wire::challengeSize);
    EXPECT_EQ(readAll(silent[2].get(), 8), "");
    EXPECT_NE(daemon->logOnce("did not send its request in time").find("did not send its request in time"), std::string::npos)
        << daemon->log();
}

// Many callers at once, each moving its own item: every move is answered and every one is in the
// moved log, since the file jobs still run one at a time.
TEST_F(HelperDaemon, RequestsAtOnceLoseNoLineOfTheMovedLog) {
    auto daemon = start();
    constexpr int callers = 12;  // more than the helper serves at once
    for (int i = 0; i < callers; ++i) mac->writeFile("/Library/Caches/item " + std::to_string(i), "x");
    std::vector<std::optional<std::string>> replies(callers);
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; ++i) {
        threads.emplace_back([&, i] {
            brimstell::SocketHelperTransport transport(daemon->socket());
            replies[i] = transport.call("trash", "", {"/Library/Caches/item " + std::to_string(i)}, 20.0);
        });
    }
    for (auto& t : threads) t.join();
    for (int i = 0; i < callers; ++i) {
        const std::string item = "item " + std::to_string(i);
        EXPECT_EQ(replies[i], "OK\t/Library/Caches/" + item + "\t" + me + "/.Trash/" + item + "\n");
    }
    const auto log = testing_support::linesOf(root + "/Library/Application Support/Brimstell/helper-moved.log");
    EXPECT_EQ(log.size(), static_cast<std::size_t>(callers));
}

TEST_F(HelperDaemon, TheCommandLineSaysWhetherTheHelperAnswers) {
    auto daemon = start();
    auto env = environmentFor(*daemon);
    const auto status = testing_support::runProgram(BRIMSTELL_CLI_EXE, {"helper", "status"}, env);
    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(status.output,
              "Helper registration: not registered\n"
              "                     Brimstell registers it the first time it needs it.\n"
              "Helper answers:      yes, protocol version 4\n");
    const auto install = testing_support::runProgram(BRIMSTELL_CLI_EXE, {"helper", "install"}, env);
    EXPECT_EQ(install.status, 0);
    EXPECT_EQ(install.output, "The root helper is installed. Registration: enabled.\n");

    env["BRIMSTELL_HELPER_SOCKET"] = dir / "no-helper.sock";
    EXPECT_EQ(testing_support::runProgram(BRIMSTELL_CLI_EXE, {"helper", "status"}, env).output,
              "Helper registration: enabled\nHelper answers:      no\n");
}

}  // namespace
