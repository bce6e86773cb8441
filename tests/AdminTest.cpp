// The helper client: what it sends, when it doesn't, how it reads the replies, the registration and
// handshake with a helper that answers the wrong version or never answers, and Once under a race.

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <filesystem>
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
namespace fs = std::filesystem;

struct Call {
    std::string op;
    std::string arg;
    std::vector<std::string> list;
};

// A helper that answers from a table and remembers what it was asked.
class RecordingTransport : public quorv::HelperTransport {
public:
    std::function<std::optional<std::string>(const Call&)> answer = [](const Call& c) -> std::optional<std::string> {
        return c.op == "version" ? std::optional<std::string>("4") : std::optional<std::string>("");
    };

    std::optional<std::string> call(const std::string& op, const std::string& arg, const std::vector<std::string>& list,
                                    std::optional<double>) override {
        Call c{op, arg, list};
        {
            std::lock_guard lock(mutex_);
            calls_.push_back(c);
        }
        return answer(c);
    }
    void invalidate() override {
        std::lock_guard lock(mutex_);
        calls_.push_back({"(invalidate)", "", {}});
    }
    std::vector<Call> calls() {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    std::vector<std::string> ops() {
        std::vector<std::string> out;
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
    bool registerService(std::string& error) override {
        error = "The service manager refused.";
        return false;
    }
    bool unregisterService(std::string& error) override { return registerService(error); }
};

// A sandbox Mac whose host reaches the helper through `transport` and records its registration.
struct AdminBench {
    explicit AdminBench(std::shared_ptr<quorv::HelperTransport> t = std::make_shared<RecordingTransport>())
        : mac(brimstell::SandboxMac::create(dir / "mac")), transport(std::move(t)) {
        host = brimstell::makeHost(mac.environment());
        host->helper = transport;
        registrar = std::make_shared<brimstell::RecordedAgentService>(dir / "helper-state", "The helper");
        host->helperService = registrar;
        host->systemLog = [this](int priority, const std::string& line) {
            std::lock_guard lock(logMutex);
            log.emplace_back(priority, line);
        };
    }
    std::vector<std::string> logLines() {
        std::lock_guard lock(logMutex);
        std::vector<std::string> out;
        for (const auto& [priority, line] : log) out.push_back(line);
        return out;
    }
    RecordingTransport& recorder() { return static_cast<RecordingTransport&>(*transport); }
    void writeState(int s) {
        std::FILE* f = std::fopen((dir / "helper-state").c_str(), "w");
        std::fprintf(f, "%d\n", s);
        std::fclose(f);
    }

    TempDir dir;
    brimstell::SandboxMac mac;
    std::shared_ptr<quorv::HelperTransport> transport;
    std::shared_ptr<quorv::Host> host;
    std::shared_ptr<brimstell::RecordedAgentService> registrar;
    std::mutex logMutex;
    std::vector<std::pair<int, std::string>> log;
};

// ---- Once

TEST(AdminOnce, ResumesExactlyOnceUnderARace) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> resumed{0};
        std::optional<std::string> got;
        Admin::Once once([&](std::optional<std::string> v) {
            ++resumed;
            got = std::move(v);
        });
        std::atomic<bool> go{false};
        std::atomic<int> winners{0};
        std::vector<std::thread> racers;
        for (int i = 0; i < 4; ++i) {
            racers.emplace_back([&, i] {
                while (!go.load()) {
                }
                // Reply, error, timeout and a late second reply.
                const std::optional<std::string> value = i == 0 ? std::optional<std::string>("reply") : std::nullopt;
                if (once.resume(value)) ++winners;
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

// ---- what is sent, and what never is

TEST(Admin, RootPathsAndWhatTheHelperWouldAccept) {
    EXPECT_EQ(Admin::rootPath("/tmp/x"), "/private/tmp/x");
    EXPECT_EQ(Admin::rootPath("/var/log/x"), "/private/var/log/x");
    EXPECT_EQ(Admin::rootPath("/etc/x"), "/private/etc/x");
    EXPECT_EQ(Admin::rootPath("/tmpx/y"), "/tmpx/y");
    EXPECT_EQ(Admin::rootPath("/tmp"), "/tmp");
    EXPECT_EQ(Admin::rootPath("/private/tmp/x"), "/private/tmp/x");
    EXPECT_EQ(Admin::rootPath("/Users/ann/tmp/x"), "/Users/ann/tmp/x");

    AdminBench bench;
    quorv::HostScope scope(bench.host);
    const std::string root = bench.mac.root();
    const struct {
        std::string location;
        bool accepted;
    } rows[] = {
        {root + "/Library/Caches/com.example.x", true},
        {root + "/Users/bob/Library/Caches/x", true},
        {root + "/tmp/x", true},  // as root sees it: /private/tmp/x, three components
        {root + "/tmp", false},
        {root + "/var/db/x/y", false},
        {root + "/var/folders/x/y", true},  // as root sees it: /private/var/folders/x/y
        {root + "/Applications/Tool.app", true},
        {root + "/Applications/Tools", false},
        {root + "/usr/local/bin/tool", true},
        {root + "/usr/bin/tool", false},
        {root + "/System/Library/x", false},
        {root + "/Users/ann/Library/CloudStorage/x", false},
        {root + "/Users/ann/Dropbox/.dropbox.cache", true},
        {root + "/Users/ann//x", false},
        {root + "/Users/ann/x/", false},
        {root + "/Users/ann/./x", false},
        {root + "/Users/ann/../bob/x", false},
        {"/elsewhere/Users/ann/x", false},  // outside the sandbox
        {"relative/path/x", false},
    };
    for (const auto& row : rows) EXPECT_EQ(Admin::canTrash(row.location), row.accepted) << row.location;
}

TEST(Admin, TrashOfOnlyProtectedPathsNeverStartsTheHelper) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    const std::string root = bench.mac.root();
    EXPECT_EQ(Admin::trash({root + "/usr/bin/tool", root + "/Users/ann", root + "/System/x/y", "/not/in/the/sandbox"}),
              std::set<std::string>{});
    EXPECT_TRUE(bench.recorder().calls().empty());
    EXPECT_EQ(bench.registrar->status(), ServiceStatus::notRegistered);  // not even registered
    EXPECT_TRUE(bench.logLines().empty());
}

TEST(Admin, TrashSendsPathsAsRootSeesThemAndKeepsOnlyWhatWasSent) {
    AdminBench bench;
    const std::string root = bench.mac.root();
    bench.recorder().answer = [](const Call& c) -> std::optional<std::string> {
        if (c.op == "version") return "4";
        // One entry moved, one refused, and a line for something never sent.
        return "OK\t/private/tmp/x\t/Users/ann/.Trash/x\n"
               "FAIL\t/Library/Caches/z\n"
               "OK\t/etc/passwd\t/Users/ann/.Trash/passwd\n";
    };
    quorv::HostScope scope(bench.host);
    const auto moved = Admin::trash({root + "/tmp/x", root + "/Library/Caches/z", root + "/tmp/x"});
    EXPECT_EQ(moved, std::set<std::string>{root + "/tmp/x"});
    const auto calls = bench.recorder().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].op, "version");
    EXPECT_EQ(calls[1].op, "trash");
    EXPECT_EQ(calls[1].arg, "");
    EXPECT_EQ(calls[1].list, (std::vector<std::string>{"/private/tmp/x", "/Library/Caches/z"}));
    EXPECT_EQ(bench.logLines(), (std::vector<std::string>{"helper status: 1"}));
    EXPECT_EQ(bench.registrar->status(), ServiceStatus::enabled);
}

TEST(Admin, SetDaemonChecksTheLabelBeforeAnyCall) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    for (const std::string& label : {"com.example.x;rm"s, ""s, "com.example x"s, "com.example.x\n"s, "a/b"s, "$(id)"s,
                                    "com.example.\xc3\xa9"s, "x\0y"s}) {
        EXPECT_FALSE(Admin::setDaemon(label, false)) << label;
    }
    EXPECT_TRUE(bench.recorder().calls().empty());

    bench.recorder().answer = [](const Call& c) -> std::optional<std::string> { return c.op == "version" ? "4" : "OK\n"; };
    EXPECT_TRUE(Admin::setDaemon("com.Example-1_x.y", false));
    EXPECT_TRUE(Admin::setDaemon("com.Example-1_x.y", true));
    const auto calls = bench.recorder().calls();
    ASSERT_EQ(calls.size(), 3u);  // one handshake, then two calls
    EXPECT_EQ(calls[1].op, "svc");
    EXPECT_EQ(calls[1].arg, "disable com.Example-1_x.y");
    EXPECT_EQ(calls[2].arg, "enable com.Example-1_x.y");
    EXPECT_TRUE(calls[2].list.empty());

    EXPECT_FALSE(Admin::maintenance("junk"));
    EXPECT_FALSE(Admin::maintenance("trash"));
    EXPECT_EQ(bench.recorder().calls().size(), 3u);
    EXPECT_TRUE(Admin::maintenance("flushdns"));
    bench.recorder().answer = [](const Call&) -> std::optional<std::string> { return ""; };  // a tool failed
    EXPECT_FALSE(Admin::maintenance("thin"));
    EXPECT_EQ(bench.recorder().ops(), (std::vector<std::string>{"version", "svc", "svc", "flushdns", "thin"}));
}

// ---- registration and handshake

TEST(Admin, RegistrationStatesDecideWhetherTheHelperIsAsked) {
    {
        SCOPED_TRACE("waiting for approval");
        AdminBench bench;
        bench.writeState(2);
        quorv::HostScope scope(bench.host);
        EXPECT_FALSE(Admin::start());
        EXPECT_TRUE(bench.recorder().calls().empty());
        EXPECT_EQ(bench.logLines(), std::vector<std::string>{"helper status: 2"});
        EXPECT_FALSE(Admin::refresh());
    }
    {
        SCOPED_TRACE("registration refused");
        AdminBench bench;
        bench.host->helperService = std::make_shared<RefusingRegistrar>();
        quorv::HostScope scope(bench.host);
        EXPECT_FALSE(Admin::start());
        EXPECT_TRUE(bench.recorder().calls().empty());
        EXPECT_EQ(bench.logLines(), (std::vector<std::string>{"helper register failed: The service manager refused.",
                                                              "helper status: 3"}));
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
        EXPECT_EQ(bench.recorder().ops(), std::vector<std::string>{"version"});
        EXPECT_TRUE(Admin::refresh());
        EXPECT_TRUE(Admin::uninstallHelper());
        EXPECT_FALSE(Admin::ready());
        EXPECT_EQ(bench.registrar->status(), ServiceStatus::notRegistered);
    }
}

TEST(Admin, AVersionMismatchIsToleratedButAskedAgain) {
    AdminBench bench;
    bench.recorder().answer = [](const Call& c) -> std::optional<std::string> { return c.op == "version" ? "3" : "OK\n"; };
    quorv::HostScope scope(bench.host);
    EXPECT_TRUE(Admin::start());
    EXPECT_FALSE(Admin::ready());
    EXPECT_TRUE(Admin::start());
    EXPECT_FALSE(Admin::ready());
    EXPECT_EQ(bench.recorder().ops(), (std::vector<std::string>{"version", "version"}));
    EXPECT_EQ(bench.logLines(), (std::vector<std::string>{"helper status: 1", "helper version 3, app expects 4",
                                                          "helper status: 1", "helper version 3, app expects 4"}));
}

TEST(Admin, ConcurrentStartsShareOneAttempt) {
    AdminBench bench;
    std::atomic<int> versions{0};
    bench.recorder().answer = [&](const Call&) -> std::optional<std::string> {
        ++versions;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return "4";
    };
    std::vector<std::thread> callers;
    std::atomic<int> started{0};
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

// A helper on a socket that speaks the wire protocol, answering the version with `version`, or
// one that takes connections and never says a word.
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
            return;
        }
        if (version_) thread_ = std::thread([this] { serve(); });
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
        for (;;) {
            quorv::UniqueFd c(::accept(listener_.get(), nullptr, nullptr));
            if (!c) return;
            const auto challenge = wire::encodeChallenge(wire::Nonce{});
            if (::write(c.get(), challenge.data(), challenge.size()) < 0) continue;
            std::string got;
            char buffer[4096];
            while (wire::decodeRequest(got).status == wire::Parse::incomplete) {
                const ssize_t n = ::read(c.get(), buffer, sizeof buffer);
                if (n <= 0) break;
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

TEST(Admin, AHelperAnsweringAnotherVersionOverTheSocket) {
    TempDir dir;
    FakeHelper helper(dir / "h.sock", "3");
    ASSERT_TRUE(helper.listening());
    AdminBench bench(std::make_shared<brimstell::SocketHelperTransport>(dir / "h.sock"));
    quorv::HostScope scope(bench.host);
    EXPECT_TRUE(Admin::start());
    EXPECT_FALSE(Admin::ready());
    EXPECT_TRUE(Admin::start());
    EXPECT_EQ(helper.served(), 2);
    EXPECT_EQ(bench.logLines()[1], "helper version 3, app expects 4");
}

TEST(Admin, AHelperThatNeverAnswersIsGivenUpAfterTwoHandshakes) {
    TempDir dir;
    FakeHelper helper(dir / "h.sock", std::nullopt);  // connections wait in its backlog forever
    ASSERT_TRUE(helper.listening());
    AdminBench bench(std::make_shared<brimstell::SocketHelperTransport>(dir / "h.sock"));
    quorv::HostScope scope(bench.host);
    const auto began = std::chrono::steady_clock::now();
    EXPECT_FALSE(Admin::start());
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    // 5 seconds, half a second, 5 seconds.
    EXPECT_GE(took, 10.4);
    EXPECT_LT(took, 12.0);
    EXPECT_FALSE(Admin::ready());
    EXPECT_EQ(bench.logLines(), std::vector<std::string>{"helper status: 1"});
}

TEST(Admin, ACallWithATimeoutReturnsWhenTheTransportHangs) {
    AdminBench bench;
    std::mutex m;
    std::condition_variable cv;
    bool release = false;
    bench.recorder().answer = [&](const Call&) -> std::optional<std::string> {
        std::unique_lock lock(m);
        cv.wait(lock, [&] { return release; });
        return "late";
    };
    quorv::HostScope scope(bench.host);
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(Admin::callHelper("version", "", {}, 0.3), std::nullopt);
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    EXPECT_GE(took, 0.29);
    EXPECT_LT(took, 2.0);
    {
        std::lock_guard lock(m);
        release = true;
    }
    cv.notify_all();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // let the late reply find Once spent
}

// ---- replies

TEST(Admin, JunkRepliesBecomeTheThreeCategories) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    const std::string root = bench.mac.root();
    const std::string reply =
        "cache\t12\t/Library/Caches/com.example.app\n"
        "log\t3\t/Library/Logs/DiagnosticReports/x.crash\n"
        "user\t5\t/Users/bob/Library/Caches/com.example\n"
        "user\t5\t/Users/bob/Library\n"                        // too short for an account's junk
        "cache\t9007199254740993\t/Library/Caches/huge\n"       // kilobytes × 1,024 overflows
        "cache\t9007199254740991\t/Library/Caches/big\n"       // just fits
        "cache\t-1\t/Library/Caches/negative\n"
        "cache\t1x\t/Library/Caches/junk\n"
        "cache\t1\n"                                           // two fields
        "log\t1\t/Library/Logs/a\tb\n"                         // four fields
        "other\t1\t/Library/x\n"                               // unknown kind
        "cache\t1\trelative\n"
        "\n";
    const auto categories = Admin::junkCategories(reply);
    ASSERT_EQ(categories.size(), 3u);
    EXPECT_EQ(categories[0].name, "System Caches");
    EXPECT_EQ(categories[0].icon, "gearshape");
    EXPECT_EQ(categories[0].detail, "/Library/Caches · Apple's excluded");
    EXPECT_EQ(categories[1].name, "System Logs");
    EXPECT_EQ(categories[1].icon, "doc.text.magnifyingglass");
    EXPECT_EQ(categories[1].detail, "Logs, crash reports, core dumps");
    EXPECT_EQ(categories[2].name, "Other Users");
    EXPECT_EQ(categories[2].icon, "person.2");
    EXPECT_EQ(categories[2].detail, "Caches and logs of other accounts");

    ASSERT_EQ(categories[0].items.size(), 2u);
    EXPECT_EQ(categories[0].items[0].location, root + "/Library/Caches/com.example.app");
    EXPECT_EQ(categories[0].items[0].label, "com.example.app");
    EXPECT_EQ(categories[0].items[0].size, 12 * 1024);
    EXPECT_EQ(categories[0].items[1].size, std::int64_t{9007199254740991} * 1024);
    EXPECT_NE(categories[0].items[0].id, categories[0].items[1].id);
    ASSERT_EQ(categories[1].items.size(), 1u);
    EXPECT_EQ(categories[1].items[0].label, "x.crash");
    ASSERT_EQ(categories[2].items.size(), 1u);
    EXPECT_EQ(categories[2].items[0].label, "bob · Caches");
    EXPECT_EQ(categories[2].items[0].location, root + "/Users/bob/Library/Caches/com.example");

    EXPECT_TRUE(Admin::junkCategories("").empty());
    EXPECT_TRUE(Admin::junkCategories("log\t0x10\t/Library/Logs/x\n").empty());
}

TEST(Admin, LargeFileRecordsEndInNul) {
    AdminBench bench;
    quorv::HostScope scope(bench.host);
    const std::string root = bench.mac.root();
    const std::string reply =
        "2048\t./Users/ann/Movies/film.mov\0"s
        "8\t./Users/ann/line\nbreak\t9\t./fake\0"s       // a name that holds a line feed and a tab
        "18014398509481984\t./Users/ann/overflow\0"s      // blocks × 512 overflows
        "10\t/Users/ann/not-relative\0"s
        "x\t./Users/ann/not-a-number\0"s
        "no tab here\0"s
        "4\t./\0"s
        "7\t./Users/ann/cut-off"s;                        // no NUL: not a record
    const auto items = Admin::largeFileItems(reply);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].location, root + "/Users/ann/Movies/film.mov");
    EXPECT_EQ(items[0].label, "film.mov");
    EXPECT_EQ(items[0].size, 2048 * 512);
    EXPECT_EQ(items[1].location, root + "/Users/ann/line\nbreak\t9\t./fake");
    EXPECT_EQ(items[1].size, 8 * 512);
}

// ---- the in-process helper on a sandbox

TEST(Admin, TrashRestoreAndEmptyThroughTheInProcessHelper) {
    AdminBench bench;
    bench.host->helper = std::make_shared<brimstell::InProcessHelperTransport>(bench.mac.root(), "/Users/ann");
    quorv::HostScope scope(bench.host);
    const std::string root = bench.mac.root();
    const std::string cache = bench.mac.writeFile("/Library/Caches/com.example.cache/data", "cached");
    const std::string folder = root + "/Library/Caches/com.example.cache";
    const std::string log = bench.mac.writeFile("/Library/Logs/old.log", "old");

    const auto moved = Admin::moveToTrash({folder, log, root + "/Library/Caches/missing"}, std::string("Junk"));
    ASSERT_TRUE(moved);
    EXPECT_EQ(*moved, (std::map<std::string, std::string>{{folder, root + "/Users/ann/.Trash/com.example.cache"},
                                                          {log, root + "/Users/ann/.Trash/old.log"}}));
    const auto entries = brimstell::History::shared().entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].source, "Junk");
    EXPECT_TRUE(entries[0].isRoot() && entries[1].isRoot());
    EXPECT_EQ(entries[1].original, "/Library/Logs/old.log");
    EXPECT_EQ(entries[1].trashed, "/Users/ann/.Trash/old.log");
    EXPECT_FALSE(fs::exists(folder));
    const std::string inTrash = root + "/Users/ann/.Trash/com.example.cache";
    EXPECT_EQ(testing_support::readText(inTrash + "/data"), "cached");

    EXPECT_EQ(Admin::restore({{inTrash, folder}, {root + "/Users/ann/.Trash/nothing", root + "/Library/x"}}),
              (std::vector<HelperOutcome>{HelperOutcome::done, HelperOutcome::refused}));
    EXPECT_EQ(testing_support::readText(cache), "cached");
    // Restored once: the moved log no longer knows it.
    EXPECT_EQ(Admin::restore({{inTrash, folder}}), std::vector<HelperOutcome>{HelperOutcome::refused});
    // A pair that can't be one entry is refused without being sent.
    EXPECT_EQ(Admin::restore({{inTrash + "\tx", folder}}), std::vector<HelperOutcome>{HelperOutcome::refused});

    EXPECT_EQ(Admin::emptyTrash({root + "/Users/ann/.Trash/old.log", root + "/Users/ann/Documents/x"}),
              (std::vector<HelperOutcome>{HelperOutcome::done, HelperOutcome::refused}));
    EXPECT_FALSE(fs::exists(root + "/Users/ann/.Trash/old.log"));
    EXPECT_EQ(Admin::callHelper("rm", "-rf", {"/"}), std::optional<std::string>(""));
}

TEST(Admin, WithoutAHelperEverythingSaysSo) {
    AdminBench bench;
    bench.host->helper = nullptr;
    quorv::HostScope scope(bench.host);
    const std::string root = bench.mac.root();
    // A root entry of the history can't be put back either.
    Admin::connectHistory();
    auto& history = brimstell::History::shared();
    history.recordRoot({brimstell::RootMove{"/Library/Caches/x", "/Users/ann/.Trash/x", 10}}, 1'790'000'000);
    ASSERT_EQ(history.entries().size(), 1u);
    EXPECT_EQ(history.restore(history.entries()[0]).message(),
              "Couldn't restore: putting back what it removed needs admin access");
    EXPECT_FALSE(Admin::start());
    EXPECT_EQ(Admin::trash({root + "/Library/Caches/x"}), std::set<std::string>{});
    EXPECT_EQ(Admin::restore({{root + "/Users/ann/.Trash/x", root + "/Library/Caches/x"}}),
              std::vector<HelperOutcome>{HelperOutcome::unavailable});
    EXPECT_EQ(Admin::scanJunk(), std::nullopt);
    EXPECT_EQ(Admin::largeFiles(1024), std::nullopt);
    EXPECT_FALSE(Admin::setDaemon("com.example.x", true));
}

}  // namespace
