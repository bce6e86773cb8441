// The helper client: what it sends, when it doesn't, how it reads the replies, the registration and
// handshake with a helper that answers the wrong version or never answers, and Once under a race.

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "kit/agent/ProcessHost.hpp"
#include "kit/agent/RecordedAgentService.hpp"
#include "kit/files/Admin.hpp"
#include "kit/files/History.hpp"
#include "kit/files/InProcessHelperTransport.hpp"
#include "kit/files/SocketHelperTransport.hpp"
#include "shared/helper/HelperWire.hpp"
#include "support/TestSupport.hpp"
#include "support/host/HelperTransport.hpp"
#include "support/posix/UniqueFd.hpp"

namespace {

using namespace std::string_literals;
using brimstell::Admin;
using brimstell::HelperOutcome;
using quorv::ServiceStatus;
using testing_support::TempDir;
using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

struct Call {
    std::string op, arg;
    Strings list;
};

double secondsSince(Clock::time_point began) { return std::chrono::duration<double>(Clock::now() - began).count(); }

// A helper that answers from a table and remembers what it was asked.
class RecordingTransport : public quorv::HelperTransport {
    template <class F> auto locked(F f) {
        std::lock_guard lock(mutex_);
        return f();
    }

public:
    std::function<std::optional<std::string>(const Call&)> answer;
    // Answers the version with `version` and everything else with `rest`.
    void answers(const char* version, const char* rest) {
        answer = [=](const Call& c) -> std::optional<std::string> { return c.op == "version" ? version : rest; };
    }
    RecordingTransport() { answers("4", ""); }

    std::optional<std::string> call(const std::string& op, const std::string& arg, const Strings& list,
                                    std::optional<double>) override {
        Call c{op, arg, list};
        locked([&] { calls_.push_back(c); });
        return answer(c);
    }
    void invalidate() override { locked([&] { calls_.push_back({"(invalidate)", "", {}}); }); }
    std::vector<Call> calls() { return locked([&] { return calls_; }); }
    Strings ops() {
        Strings out;
        for (const auto& c : calls()) out.push_back(c.op);
        return out;
    }

private:
    std::mutex mutex_;
    std::vector<Call> calls_;
};

// A service manager that can't find the helper and refuses to register it.
class RefusingRegistrar : public quorv::ServiceRegistrar {
public:
    ServiceStatus status() override { return ServiceStatus::notFound; }
    bool registerService(std::string& error) override { return error = "The service manager refused.", false; }
    bool unregisterService(std::string& error) override { return registerService(error); }
};

// A sandbox Mac whose host reaches the helper through `transport` and records its registration.
struct AdminBench {
    explicit AdminBench(std::shared_ptr<quorv::HelperTransport> t = std::make_shared<RecordingTransport>())
        : mac(brimstell::SandboxMac::create(dir / "mac")), root(mac.root()), transport(std::move(t)) {
        host = brimstell::makeHost(mac.environment());
        host->helper = transport;
        registrar = std::make_shared<brimstell::RecordedAgentService>(dir / "helper-state", "The helper");
        host->helperService = registrar;
        host->systemLog = [this](int priority, const std::string& line) {
            std::lock_guard lock(logMutex);
            log.emplace_back(priority, line);
        };
    }
    Strings logLines() {
        std::lock_guard lock(logMutex);
        Strings out;
        for (const auto& [priority, line] : log) out.push_back(line);
        return out;
    }
    RecordingTransport& recorder() { return static_cast<RecordingTransport&>(*transport); }

    TempDir dir;
    brimstell::SandboxMac mac;
    std::string root;
    std::shared_ptr<quorv::HelperTransport> transport;
    std::shared_ptr<quorv::Host> host;
    std::shared_ptr<brimstell::RecordedAgentService> registrar;
    std::mutex logMutex;
    std::vector<std::pair<int, std::string>> log;
};

TEST(AdminOnce, ResumesExactlyOnceUnderARace) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> resumed{0}, winners{0};
        std::atomic<bool> go{false};
        Admin::Once once([&](std::optional<std::string>) { ++resumed; });
        std::vector<std::thread> racers;
        for (int i = 0; i < 4; ++i) {
            racers.emplace_back([&, i] {  // a reply, an error, a timeout and a late second reply
                while (!go.load()) {
                }
                if (once.resume(i == 0 ? std::optional<std::string>("reply") : std::nullopt)) ++winners;
            });
        }
        go = true;
        for (auto& t : racers) t.join();
        ASSERT_EQ(resumed.load(), 1) << round;
        ASSERT_EQ(winners.load(), 1) << round;
        EXPECT_FALSE(once.resume("late"));
        EXPECT_EQ(resumed.load(), 1);
    }
}

TEST(Admin, RootPathsAndWhatTheHelperWouldAccept) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    for (const auto& [in, out] : std::vector<std::pair<std::string, std::string>>{
             {"/tmp/x", "/private/tmp/x"}, {"/var/log/x", "/private/var/log/x"}, {"/etc/x", "/private/etc/x"},
             {"/tmpx/y", "/tmpx/y"}, {"/tmp", "/tmp"}, {"/private/tmp/x", "/private/tmp/x"},
             {"/Users/ann/tmp/x", "/Users/ann/tmp/x"}}) {
        EXPECT_EQ(Admin::rootPath(in), out) << in;
    }
    const std::string& r = bench.root;
    // Only what the mapping to root's paths and the check of each name decide; the protected
    // places themselves are HelperFiles' table.
    const std::pair<std::string, bool> rows[] = {
        {r + "/Library/Caches/com.example.x", true}, {r + "/usr/bin/tool", false},
        {r + "/tmp/x", true},  // as root sees it: /private/tmp/x, three components
        {r + "/tmp", false}, {r + "/var/db/x/y", false},
        {r + "/var/folders/x/y", true},  // as root sees it: /private/var/folders/x/y
        {r + "/Users/ann//x", false}, {r + "/Users/ann/x/", false}, {r + "/Users/ann/./x", false},
        {r + "/Users/ann/../bob/x", false}, {"/elsewhere/Users/ann/x", false}, {"relative/path/x", false},
        {r + "/Users/ann", false},
    };
    Strings refused;
    for (const auto& [location, accepted] : rows) {
        EXPECT_EQ(Admin::canTrash(location), accepted) << location;
        if (!accepted) refused.push_back(location);
    }
    // A trash of only these never starts the helper.
    EXPECT_EQ(Admin::trash(refused), std::set<std::string>{});
    EXPECT_TRUE(bench.recorder().calls().empty());
    EXPECT_EQ(bench.registrar->status(), ServiceStatus::notRegistered);
    EXPECT_TRUE(bench.logLines().empty());
}

TEST(Admin, TrashSendsPathsAsRootSeesThemAndKeepsOnlyWhatWasSent) {
    AdminBench bench;
    // One entry moved, one refused, and a line for something never sent.
    bench.recorder().answers("4", "OK\t/private/tmp/x\t/Users/ann/.Trash/x\nFAIL\t/Library/Caches/z\n"
                                  "OK\t/etc/passwd\t/Users/ann/.Trash/passwd\n");
    quorv::HostScope scope(bench.host);
    const std::string& r = bench.root;
    EXPECT_EQ(Admin::trash({r + "/tmp/x", r + "/Library/Caches/z", r + "/tmp/x"}), std::set<std::string>{r + "/tmp/x"});
    const auto calls = bench.recorder().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].op, "version");
    EXPECT_EQ(calls[1].op, "trash");
    EXPECT_EQ(calls[1].arg, "");
    EXPECT_EQ(calls[1].list, (Strings{"/private/tmp/x", "/Library/Caches/z"}));
    EXPECT_EQ(bench.logLines(), Strings{"helper status: 1"});
    EXPECT_EQ(bench.registrar->status(), ServiceStatus::enabled);
}

TEST(Admin, OnLinuxPathsGoAsTheyAreAndTheLinuxRulesDecide) {
    AdminBench bench;
    bench.recorder().answers("4", "OK\t/tmp/x\t/home/ann/.local/share/Trash/files/x\n");
    auto linuxHost = std::make_shared<quorv::Host>(*bench.host);
    linuxHost->platform = quorv::Platform::linux;
    quorv::HostScope scope(linuxHost);
    for (const char* path : {"/tmp/x", "/var/log/x.gz", "/etc/x", "/private/tmp/x"}) EXPECT_EQ(Admin::rootPath(path), path);
    const std::string& r = bench.root;
    const std::string& home = linuxHost->home;
    // The Linux table is HelperLinuxRules'; these show it is the one used, with the caller's home.
    const std::pair<std::string, bool> rows[] = {
        {r + "/tmp/x", true}, {home + "/Downloads/x", true}, {r + "/etc/x", false}, {r + "/Library/Caches/x", false},
        {home, false}, {r + "/tmp/../etc/x", false},
    };
    for (const auto& [location, accepted] : rows) EXPECT_EQ(Admin::canTrash(location), accepted) << location;
    EXPECT_EQ(Admin::trash({r + "/tmp/x", r + "/etc/x"}), std::set<std::string>{r + "/tmp/x"});
    const auto calls = bench.recorder().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].list, Strings{"/tmp/x"});
}

TEST(Admin, SetDaemonChecksTheLabelAndMaintenanceItsTaskBeforeAnyCall) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    for (const std::string& label : {"com.example.x;rm"s, ""s, "com.example x"s, "com.example.x\n"s, "a/b"s, "$(id)"s,
                                     "com.example.\xc3\xa9"s, "x\0y"s, "-x"s, "--now"s, ".."s}) {
        EXPECT_FALSE(Admin::setDaemon(label, false)) << label;
    }
    EXPECT_TRUE(bench.recorder().calls().empty());

    bench.recorder().answers("4", "OK\n");
    EXPECT_TRUE(Admin::setDaemon("com.Example-1_x.y", false));
    EXPECT_TRUE(Admin::setDaemon("com.Example-1_x.y", true));
    EXPECT_TRUE(Admin::setDaemon("getty@tty1.service", false));
    const auto calls = bench.recorder().calls();
    ASSERT_EQ(calls.size(), 4u);  // one handshake, then three calls
    EXPECT_EQ(calls[1].op, "svc");
    EXPECT_EQ(calls[1].arg, "disable com.Example-1_x.y");
    EXPECT_EQ(calls[2].arg, "enable com.Example-1_x.y");
    EXPECT_TRUE(calls[2].list.empty());
    EXPECT_EQ(calls[3].arg, "disable getty@tty1.service");

    EXPECT_FALSE(Admin::maintenance("junk"));
    EXPECT_FALSE(Admin::maintenance("trash"));
    EXPECT_EQ(bench.recorder().calls().size(), 4u);
    EXPECT_TRUE(Admin::maintenance("flushdns"));
    bench.recorder().answers("", "");  // a tool failed
    EXPECT_FALSE(Admin::maintenance("thin"));
    EXPECT_EQ(bench.recorder().ops(), (Strings{"version", "svc", "svc", "svc", "flushdns", "thin"}));
}

TEST(Admin, RegistrationStatesDecideWhetherTheHelperIsAsked) {
    {
        SCOPED_TRACE("waiting for approval");
        AdminBench bench;
        std::ofstream(bench.dir / "helper-state") << "2\n";
        quorv::HostScope scope(bench.host);
        EXPECT_FALSE(Admin::start());
        EXPECT_TRUE(bench.recorder().calls().empty());
        EXPECT_EQ(bench.logLines(), Strings{"helper status: 2"});
        EXPECT_FALSE(Admin::refresh());
    }
    {
        SCOPED_TRACE("registration refused");
        AdminBench bench;
        bench.host->helperService = std::make_shared<RefusingRegistrar>();
        quorv::HostScope scope(bench.host);
        EXPECT_FALSE(Admin::start());
        EXPECT_TRUE(bench.recorder().calls().empty());
        EXPECT_EQ(bench.logLines(), (Strings{"helper register failed: The service manager refused.", "helper status: 3"}));
        EXPECT_EQ(bench.log[0].first, LOG_ERR);
        EXPECT_FALSE(Admin::uninstallHelper());
    }
    {
        SCOPED_TRACE("registered and matching");
        AdminBench bench;
        quorv::HostScope scope(bench.host);
        EXPECT_FALSE(Admin::ready());
        EXPECT_TRUE(Admin::start());
        EXPECT_TRUE(Admin::ready());
        EXPECT_TRUE(Admin::start());  // ready: no second handshake
        EXPECT_EQ(bench.recorder().ops(), Strings{"version"});
        EXPECT_TRUE(Admin::refresh());
        EXPECT_TRUE(Admin::uninstallHelper());
        EXPECT_FALSE(Admin::ready());
        EXPECT_EQ(bench.registrar->status(), ServiceStatus::notRegistered);
    }
}

TEST(Admin, ConcurrentStartsShareOneAttempt) {
    AdminBench bench;
    std::atomic<int> versions{0}, started{0};
    bench.recorder().answer = [&](const Call&) -> std::optional<std::string> {
        ++versions;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return "4";
    };
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            quorv::HostScope scope(bench.host);
            if (Admin::start()) ++started;
        });
    }
    for (auto& t : callers) t.join();
    EXPECT_EQ(started.load(), 4);
    EXPECT_EQ(versions.load(), 1);
}

// A helper on a socket that speaks the wire protocol and answers every request with `version`, or
// (without one) takes connections into its backlog and never says a word.
class FakeHelper {
public:
    FakeHelper(const std::string& path, std::optional<std::string> version) : version_(std::move(version)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size());
        listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener_.get(), 8) != 0) {
            listener_.reset();
        } else if (version_) {
            thread_ = std::thread([this] { serve(); });
        }
    }
    ~FakeHelper() {
        ::shutdown(listener_.get(), SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
    }
    bool listening() const { return listener_.valid(); }
    int served() const { return served_.load(); }

private:
    void serve() {
        namespace wire = brimstell::HelperWire;
        for (quorv::UniqueFd c; c.reset(::accept(listener_.get(), nullptr, nullptr)), c;) {
            const auto challenge = wire::encodeChallenge(wire::Nonce{});
            if (::write(c.get(), challenge.data(), challenge.size()) < 0) continue;
            std::string got;
            char buffer[4096];
            for (ssize_t n; wire::decodeRequest(got).status == wire::Parse::incomplete &&
                            (n = ::read(c.get(), buffer, sizeof buffer)) > 0;) {
                got.append(buffer, static_cast<std::size_t>(n));
            }
            if (wire::decodeRequest(got).status != wire::Parse::complete) continue;
            ++served_;
            const auto reply = *wire::encodeReply(*version_);
            (void)!::write(c.get(), reply.data(), reply.size());
        }
    }

    std::optional<std::string> version_;
    quorv::UniqueFd listener_;
    std::thread thread_;
    std::atomic<int> served_{0};
};

TEST(Admin, AVersionMismatchOverTheSocketIsToleratedButAskedAgain) {
    TempDir dir;
    FakeHelper helper(dir / "h.sock", "3");
    ASSERT_TRUE(helper.listening());
    AdminBench bench(std::make_shared<brimstell::SocketHelperTransport>(dir / "h.sock"));
    quorv::HostScope scope(bench.host);
    EXPECT_TRUE(Admin::start());
    EXPECT_FALSE(Admin::ready());
    EXPECT_TRUE(Admin::start());
    EXPECT_FALSE(Admin::ready());
    EXPECT_EQ(helper.served(), 2);
    EXPECT_EQ(bench.logLines(), (Strings{"helper status: 1", "helper version 3, app expects 4", "helper status: 1",
                                         "helper version 3, app expects 4"}));
}

// A helper that takes the connection and never answers: the start gives up after two handshakes
// (a wait, the pause, the second wait), and a call returns at its own timeout.
TEST(Admin, AHelperThatNeverAnswersIsGivenUpInTime) {
    TempDir dir;
    FakeHelper helper(dir / "h.sock", std::nullopt);
    ASSERT_TRUE(helper.listening());
    AdminBench bench(std::make_shared<brimstell::SocketHelperTransport>(dir / "h.sock"));
    quorv::HostScope scope(bench.host);
    Admin::setTiming({0.3, 0.2});
    auto began = Clock::now();
    EXPECT_FALSE(Admin::start());
    double took = secondsSince(began);
    Admin::setTiming({});
    EXPECT_GE(took, 0.8);
    EXPECT_LT(took, 5.0);
    EXPECT_FALSE(Admin::ready());
    EXPECT_EQ(bench.logLines(), Strings{"helper status: 1"});

    began = Clock::now();
    EXPECT_EQ(Admin::callHelper("version", "", {}, 0.3), std::nullopt);
    took = secondsSince(began);
    EXPECT_GE(took, 0.29);
    EXPECT_LT(took, 5.0);
}

TEST(Admin, JunkRepliesBecomeTheThreeCategories) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    const auto categories = Admin::junkCategories(
        "cache\t12\t/Library/Caches/com.example.app\n"
        "log\t3\t/Library/Logs/DiagnosticReports/x.crash\n"
        "user\t5\t/Users/bob/Library/Caches/com.example\n"
        "user\t5\t/Users/bob/Library\n"                   // too short for an account's junk
        "cache\t9007199254740993\t/Library/Caches/huge\n"  // kilobytes × 1,024 overflows
        "cache\t9007199254740991\t/Library/Caches/big\n"   // just fits
        "cache\t-1\t/Library/Caches/negative\n"
        "cache\t1x\t/Library/Caches/junk\n"
        "cache\t1\n"                    // two fields
        "log\t1\t/Library/Logs/a\tb\n"  // four fields
        "other\t1\t/Library/x\n"        // unknown kind
        "cache\t1\trelative\n"
        "\n");
    const Strings expected[] = {{"System Caches", "gearshape", "/Library/Caches · Apple's excluded"},
                                {"System Logs", "doc.text.magnifyingglass", "Logs, crash reports, core dumps"},
                                {"Other Users", "person.2", "Caches and logs of other accounts"}};
    ASSERT_EQ(categories.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ((Strings{categories[i].name, categories[i].icon, categories[i].detail}), expected[i]);

    const auto& caches = categories[0].items;
    ASSERT_EQ(caches.size(), 2u);
    EXPECT_EQ(caches[0].location, bench.root + "/Library/Caches/com.example.app");
    EXPECT_EQ(caches[0].label, "com.example.app");
    EXPECT_EQ(caches[0].size, 12 * 1024);
    EXPECT_EQ(caches[1].size, std::int64_t{9007199254740991} * 1024);
    EXPECT_NE(caches[0].id, caches[1].id);
    ASSERT_EQ(categories[1].items.size(), 1u);
    EXPECT_EQ(categories[1].items[0].label, "x.crash");
    ASSERT_EQ(categories[2].items.size(), 1u);
    EXPECT_EQ(categories[2].items[0].label, "bob · Caches");
    EXPECT_EQ(categories[2].items[0].location, bench.root + "/Users/bob/Library/Caches/com.example");

    EXPECT_TRUE(Admin::junkCategories("").empty());
    EXPECT_TRUE(Admin::junkCategories("log\t0x10\t/Library/Logs/x\n").empty());
}

TEST(Admin, LargeFileRecordsEndInNul) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    const auto items = Admin::largeFileItems(
        "2048\t./Users/ann/Movies/film.mov\0"s
        "8\t./Users/ann/line\nbreak\t9\t./fake\0"s   // a name that holds a line feed and a tab
        "18014398509481984\t./Users/ann/overflow\0"s  // blocks × 512 overflows
        "10\t/Users/ann/not-relative\0"s
        "x\t./Users/ann/not-a-number\0"s
        "no tab here\0"s
        "4\t./\0"s
        "7\t./Users/ann/cut-off"s);  // no NUL: not a record
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].location, bench.root + "/Users/ann/Movies/film.mov");
    EXPECT_EQ(items[0].label, "film.mov");
    EXPECT_EQ(items[0].size, 2048 * 512);
    EXPECT_EQ(items[1].location, bench.root + "/Users/ann/line\nbreak\t9\t./fake");
    EXPECT_EQ(items[1].size, 8 * 512);
}

TEST(Admin, TrashRestoreAndEmptyThroughTheInProcessHelper) {
    AdminBench bench;
    bench.host->helper = std::make_shared<brimstell::InProcessHelperTransport>(bench.root, "/Users/ann");
    quorv::HostScope scope(bench.host);
    const std::string& r = bench.root;
    const std::string cache = bench.mac.writeFile("/Library/Caches/com.example.cache/data", "cached");
    const std::string folder = r + "/Library/Caches/com.example.cache", inTrash = r + "/Users/ann/.Trash/com.example.cache";
    const std::string log = bench.mac.writeFile("/Library/Logs/old.log", "old");

    const auto moved = Admin::moveToTrash({folder, log, r + "/Library/Caches/missing"}, std::string("Junk"));
    ASSERT_TRUE(moved);
    EXPECT_EQ(*moved, (std::map<std::string, std::string>{{folder, inTrash}, {log, r + "/Users/ann/.Trash/old.log"}}));
    const auto entries = brimstell::History::shared().entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].source, "Junk");
    EXPECT_TRUE(entries[0].isRoot() && entries[1].isRoot());
    EXPECT_EQ(entries[1].original, "/Library/Logs/old.log");
    EXPECT_EQ(entries[1].trashed, "/Users/ann/.Trash/old.log");
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_EQ(testing_support::readText(inTrash + "/data"), "cached");

    EXPECT_EQ(Admin::restore({{inTrash, folder}, {r + "/Users/ann/.Trash/nothing", r + "/Library/x"}}),
              (std::vector<HelperOutcome>{HelperOutcome::done, HelperOutcome::refused}));
    EXPECT_EQ(testing_support::readText(cache), "cached");
    // Restored once: the helper no longer knows it. A pair that can't be one entry is never sent.
    EXPECT_EQ(Admin::restore({{inTrash, folder}}), std::vector<HelperOutcome>{HelperOutcome::refused});
    EXPECT_EQ(Admin::restore({{inTrash + "\tx", folder}}), std::vector<HelperOutcome>{HelperOutcome::refused});

    EXPECT_EQ(Admin::emptyTrash({r + "/Users/ann/.Trash/old.log", r + "/Users/ann/Documents/x"}),
              (std::vector<HelperOutcome>{HelperOutcome::done, HelperOutcome::refused}));
    EXPECT_FALSE(std::filesystem::exists(r + "/Users/ann/.Trash/old.log"));
    EXPECT_EQ(Admin::callHelper("rm", "-rf", {"/"}), std::optional<std::string>(""));  // no such operation
}

TEST(Admin, WithoutAHelperEverythingSaysSo) {
    AdminBench bench;
    bench.host->helper = nullptr;
    quorv::HostScope scope(bench.host);
    Admin::connectHistory();
    auto& history = brimstell::History::shared();
    history.recordRoot({brimstell::RootMove{"/Library/Caches/x", "/Users/ann/.Trash/x", 10}}, 1'790'000'000);
    ASSERT_EQ(history.entries().size(), 1u);
    EXPECT_EQ(history.restore(history.entries()[0]).message(),
              "Couldn't restore: putting back what it removed needs admin access");
    EXPECT_FALSE(Admin::start());
    EXPECT_EQ(Admin::trash({bench.root + "/Library/Caches/x"}), std::set<std::string>{});
    EXPECT_EQ(Admin::restore({{bench.root + "/Users/ann/.Trash/x", bench.root + "/Library/Caches/x"}}),
              std::vector<HelperOutcome>{HelperOutcome::unavailable});
    EXPECT_EQ(Admin::scanJunk(), std::nullopt);
    EXPECT_EQ(Admin::largeFiles(1024), std::nullopt);
    EXPECT_FALSE(Admin::setDaemon("com.example.x", true));
}

}  // namespace
