#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cctype>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/host/Host.hpp"
#include "support/notify/DBusNotifier.hpp"
#include "support/notify/Notifier.hpp"
#include "support/notify/Notify.hpp"
#include "support/notify/OutboxNotifier.hpp"
#include "support/posix/Files.hpp"

#ifndef __APPLE__
#include <systemd/sd-bus.h>
#endif

namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

class TempDir {
public:
    TempDir() {
        std::string pattern = "/tmp/brimstell-notify-XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::shared_ptr<quorv::Host> hostWith(std::shared_ptr<quorv::Notifier> notifier,
                                      const std::map<std::string, std::string>& environment = {}) {
    auto h = quorv::hostFromEnvironment(environment);
    h->notifier = std::move(notifier);
    return h;
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    const auto text = quorv::files::read(path);
    if (!text) return lines;
    std::istringstream in(*text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// ---- Outbox ----

TEST(OutboxNotifier, TwoAlertsInOneRunGiveTwoLinesWithTheirOwnIds) {
    TempDir dir;
    const std::string outbox = dir / "state/outbox.jsonl";  // the folder doesn't exist yet
    quorv::HostScope scope(hostWith(std::make_shared<quorv::OutboxNotifier>(outbox)));

    EXPECT_TRUE(quorv::Notify::send("Your disk is almost full",
                                    "Only 2.1 GB free on Macintosh HD. Open Brimstell to make room."));
    EXPECT_TRUE(quorv::Notify::send("Your disk is almost full",
                                    "Only 2.1 GB free on Macintosh HD. Open Brimstell to make room."));

    const auto lines = linesOf(outbox);
    ASSERT_EQ(lines.size(), 2u);
    // Upper-case 8-4-4-4-12, as the platform writes UUIDs.
    const auto isUuid = [](const std::string& s) {
        if (s.size() != 36) return false;
        for (size_t i = 0; i < s.size(); ++i) {
            const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
            const auto c = static_cast<unsigned char>(s[i]);
            if (dash ? c != '-' : !std::isxdigit(c) || std::islower(c)) return false;
        }
        return true;
    };
    std::set<std::string> ids;
    for (const auto& line : lines) {
        const auto record = nlohmann::json::parse(line);
        const std::string id = record.at("id");
        EXPECT_TRUE(isUuid(id)) << id;
        EXPECT_EQ(record.at("title"), "Your disk is almost full");
        EXPECT_EQ(record.at("body"), "Only 2.1 GB free on Macintosh HD. Open Brimstell to make room.");
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 2u) << "two alerts must never share an identifier";
}

TEST(OutboxNotifier, WritesExactlyOneJsonLinePerNotification) {
    const struct {
        const char* name;
        std::string title;
        std::string body;
        std::string line;
    } cases[] = {
        {"quotes, line feed, tab and arrows", "Say \"hi\"\n\tnow",
         "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 Leftovers to clear it.",
         R"({"id":"ID-1","title":"Say \"hi\"\n\tnow","body":"Open Brimstell → Applications → Leftovers to clear it."})"
         "\n"},
        {"invalid UTF-8", "bad \xFF\xFE name", "cut \xE2\x86 here\xC3",
         "{\"id\":\"ID-1\",\"title\":\"bad \xEF\xBF\xBD\xEF\xBF\xBD name\",\"body\":\"cut \xEF\xBF\xBD here\xEF\xBF\xBD\"}\n"},
        {"NUL, bell, carriage return, backslash", std::string("nul\0bell\x07", 9), "back\\slash/\r",
         R"({"id":"ID-1","title":"nul\u0000bell\u0007","body":"back\\slash/\r"})"
         "\n"},
        {"empty", "", "", R"({"id":"ID-1","title":"","body":""})"
                          "\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        quorv::OutboxNotifier notifier(dir / "outbox.jsonl");
        bool delivered = false;
        EXPECT_NO_THROW(delivered = notifier.deliver("ID-1", c.title, c.body));
        EXPECT_TRUE(delivered);
        EXPECT_EQ(quorv::files::read(dir / "outbox.jsonl").value_or("<missing>"), c.line);
    }
}

TEST(OutboxNotifier, FalseWhenTheFileCannotBeWritten) {
    TempDir dir;
    ASSERT_TRUE(quorv::files::writeAtomically(dir / "plain", "x"));
    ASSERT_TRUE(quorv::files::makeFolders(dir / "folder"));
    const struct {
        const char* name;
        std::string path;
    } cases[] = {
        {"parent is a file", dir / "plain/outbox.jsonl"},
        {"grandparent is a file", dir / "plain/deeper/outbox.jsonl"},
        {"a folder at the path", dir / "folder"},
        {"no path", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        quorv::HostScope scope(hostWith(std::make_shared<quorv::OutboxNotifier>(c.path)));
        bool sent = true;
        EXPECT_NO_THROW(sent = quorv::Notify::send("Auto Clean freed 5 MB",
                                                   "Everything it moved is in History, ready to restore."));
        EXPECT_FALSE(sent);
    }
    EXPECT_EQ(quorv::files::read(dir / "plain"), "x");
}

TEST(Notify, SendIsFalseWithoutANotifier) {
    quorv::HostScope scope(hostWith(nullptr));
    EXPECT_FALSE(quorv::Notify::send("3 app updates available",
                                     "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 App Updates to see them."));
}

// Large records from several threads and processes at once: every line must come out whole.
TEST(OutboxNotifier, ConcurrentWritersNeverInterleave) {
    TempDir dir;
    const std::string outbox = dir / "outbox.jsonl";
    constexpr int processes = 3, threads = 4, perWriter = 40;
    const auto bodyOf = [](int writer, int seq) {
        std::string body;
        const std::string tag = "w" + std::to_string(writer) + "s" + std::to_string(seq) + "k";
        for (int k = 0; body.size() < 6000; ++k) body += tag + std::to_string(k) + " \xE2\x86\x92\t";
        return body;
    };
    const auto write = [&](int writer) {
        quorv::OutboxNotifier notifier(outbox);
        bool ok = true;
        for (int seq = 0; seq < perWriter; ++seq) {
            const std::string id = std::to_string(writer) + "-" + std::to_string(seq);
            ok = notifier.deliver(id, "Writer " + std::to_string(writer), bodyOf(writer, seq)) && ok;
        }
        return ok;
    };

    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) ::_exit(write(p) ? 0 : 1);
        children.push_back(pid);
    }
    std::vector<std::future<bool>> writers;
    for (int t = 0; t < threads; ++t) writers.push_back(std::async(std::launch::async, write, processes + t));
    for (auto& w : writers) EXPECT_TRUE(w.get());
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    const auto lines = linesOf(outbox);
    ASSERT_EQ(lines.size(), static_cast<size_t>((processes + threads) * perWriter));
    std::set<std::string> seen;
    for (const auto& line : lines) {
        nlohmann::json record;
        ASSERT_NO_THROW(record = nlohmann::json::parse(line)) << line.substr(0, 200);
        const std::string id = record.at("id");
        const int writer = std::stoi(id.substr(0, id.find('-')));
        const int seq = std::stoi(id.substr(id.find('-') + 1));
        EXPECT_EQ(record.at("body"), bodyOf(writer, seq)) << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), lines.size());
}

// Holds deliveries until opened, to show that post doesn't wait for them.
class GatedNotifier : public quorv::Notifier {
public:
    explicit GatedNotifier(std::shared_ptr<quorv::Notifier> inner) : inner_(std::move(inner)) {}
    bool deliver(const std::string& id, const std::string& title, const std::string& body) override {
        {
            std::unique_lock lock(mutex_);
            cv_.wait_for(lock, 10s, [this] { return open_; });
        }
        return inner_->deliver(id, title, body);
    }
    void open() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        cv_.notify_all();
    }

private:
    std::shared_ptr<quorv::Notifier> inner_;
    std::mutex mutex_;
    std::condition_variable cv_;
    bool open_ = false;
};

TEST(Notify, PostReturnsAtOnceAndTheNotificationArrives) {
    TempDir dir;
    const std::string outbox = dir / "outbox.jsonl";
    auto gate = std::make_shared<GatedNotifier>(std::make_shared<quorv::OutboxNotifier>(outbox));
    {
        quorv::HostScope scope(hostWith(gate));
        const auto start = Steady::now();
        quorv::Notify::post("Auto Clean freed 1.2 GB", "Everything it moved is in History, ready to restore.");
        EXPECT_LT(Steady::now() - start, 2s);
    }
    EXPECT_TRUE(linesOf(outbox).empty());
    gate->open();

    std::vector<std::string> lines;
    for (const auto deadline = Steady::now() + 10s; lines.empty() && Steady::now() < deadline;) {
        std::this_thread::sleep_for(10ms);
        lines = linesOf(outbox);
    }
    ASSERT_EQ(lines.size(), 1u);
    const auto record = nlohmann::json::parse(lines[0]);
    EXPECT_EQ(record.at("title"), "Auto Clean freed 1.2 GB");
    EXPECT_EQ(record.at("body"), "Everything it moved is in History, ready to restore.");
}

#ifndef __APPLE__

// ---- D-Bus ----

// A Unix socket that listens but never accepts: connecting works, the handshake never answers.
class SilentSocket {
public:
    explicit SilentSocket(const std::string& path) {
        fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        ok_ = fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && ::listen(fd_, 8) == 0;
    }
    ~SilentSocket() {
        if (fd_ >= 0) ::close(fd_);
    }
    SilentSocket(const SilentSocket&) = delete;
    SilentSocket& operator=(const SilentSocket&) = delete;
    bool ok() const { return ok_; }

private:
    int fd_ = -1;
    bool ok_ = false;
};

TEST(DBusNotifier, FalseAtOnceWithoutASessionBus) {
    TempDir dir;
    ASSERT_TRUE(quorv::files::makeFolders(dir / "empty"));
    ASSERT_TRUE(quorv::files::makeFolders(dir / "plainfile"));
    ASSERT_TRUE(quorv::files::writeAtomically(dir / "plainfile/bus", "not a socket"));
    ASSERT_TRUE(quorv::files::makeFolders(dir / "silent"));
    SilentSocket silent(dir / "silent/bus");
    ASSERT_TRUE(silent.ok());

    const struct {
        const char* name;
        std::map<std::string, std::string> environment;
    } cases[] = {
        {"neither variable", {}},
        {"empty bus address and no runtime folder", {{"DBUS_SESSION_BUS_ADDRESS", ""}}},
        {"runtime folder without a bus", {{"XDG_RUNTIME_DIR", dir / "empty"}}},
        {"runtime folder whose bus is a plain file", {{"XDG_RUNTIME_DIR", dir / "plainfile"}}},
        {"relative runtime folder", {{"XDG_RUNTIME_DIR", "run/user"}}},
        {"address of a missing socket", {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + dir / "nothing/bus"}}},
        {"address that is no address", {{"DBUS_SESSION_BUS_ADDRESS", "no bus here"}}},
        {"bus that never answers", {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + dir / "silent/bus"}}},
        {"runtime bus that never answers", {{"XDG_RUNTIME_DIR", dir / "silent"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        quorv::HostScope scope(hostWith(nullptr, c.environment));
        quorv::DBusNotifier notifier(400ms);
        const auto start = Steady::now();
        EXPECT_FALSE(notifier.deliver("ID-1", "Your disk is almost full", "Only 1 GB free."));
        EXPECT_LT(Steady::now() - start, 2s);
    }
}

// A private session bus: dbus-daemon on a socket named "bus" in a temporary folder, so the folder
// can also stand in as XDG_RUNTIME_DIR.
class PrivateBus {
public:
    explicit PrivateBus(const TempDir& dir) {
        const std::string config = dir / "session.conf";
        std::ofstream(config) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                                 " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                                 "<busconfig>\n"
                                 "  <type>session</type>\n"
                                 "  <listen>unix:path=" << dir / "bus" << "</listen>\n"
                                 "  <auth>EXTERNAL</auth>\n"
                                 "  <policy context=\"default\">\n"
                                 "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                                 "    <allow eavesdrop=\"true\"/>\n"
                                 "    <allow own=\"*\"/>\n"
                                 "  </policy>\n"
                                 "</busconfig>\n";
        int out[2];
        if (::pipe2(out, O_CLOEXEC) != 0) {
            problem_ = "no pipe";
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        // Its complaints (it can't raise its descriptor limit, say) are no concern of the tests.
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::string configArg = "--config-file=" + config;
        std::vector<char*> argv = {const_cast<char*>("dbus-daemon"), configArg.data(), const_cast<char*>("--nofork"),
                                   const_cast<char*>("--print-address"), nullptr};
        const int spawned = ::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        if (spawned != 0) {
            ::close(out[0]);
            pid_ = -1;
            problem_ = std::string("dbus-daemon could not be run: ") + std::strerror(spawned);
            return;
        }
        std::string line;
        for (const auto deadline = Steady::now() + 5s; line.find('\n') == std::string::npos;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Steady::now()).count();
            pollfd p{out[0], POLLIN, 0};
            if (left <= 0 || ::poll(&p, 1, static_cast<int>(left)) <= 0) break;
            char buf[512];
            const ssize_t n = ::read(out[0], buf, sizeof buf);
            if (n <= 0) break;
            line.append(buf, static_cast<size_t>(n));
        }
        ::close(out[0]);
        if (line.find('\n') == std::string::npos) {
            problem_ = "dbus-daemon printed no address";
            return;
        }
        address_ = line.substr(0, line.find('\n'));
    }
    ~PrivateBus() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            int status = 0;
            ::waitpid(pid_, &status, 0);
        }
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    bool running() const { return !address_.empty(); }
    const std::string& address() const { return address_; }
    const std::string& problem() const { return problem_; }

private:
    pid_t pid_ = -1;
    std::string address_;
    std::string problem_;
};

struct NotifyCall {
    std::string appName;
    uint32_t replacesId = 99;
    std::string appIcon = "<unset>";
    std::string summary;
    std::string body;
    size_t actions = 99;
    size_t hints = 99;
    int32_t expireTimeout = 99;
};

// A stand-in notification service on the private bus, served from its own thread.
class FakeNotifications {
public:
    FakeNotifications(const std::string& address, bool refuse) : refuse_(refuse) {
        std::promise<bool> ready;
        auto started = ready.get_future();
        thread_ = std::thread([this, address, &ready] { serve(address, ready); });
        ok_ = started.wait_for(5s) == std::future_status::ready && started.get();
    }
    ~FakeNotifications() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
    }
    FakeNotifications(const FakeNotifications&) = delete;
    FakeNotifications& operator=(const FakeNotifications&) = delete;

    bool ok() const { return ok_; }
    std::vector<NotifyCall> calls() {
        std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    void serve(const std::string& address, std::promise<bool>& ready) {
        sd_bus* bus = nullptr;
        bool up = sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, address.c_str()) >= 0 &&
                  sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0 &&
                  sd_bus_add_filter(bus, nullptr, &FakeNotifications::onMessage, this) >= 0 &&
                  sd_bus_request_name(bus, "org.freedesktop.Notifications", 0) >= 0;
        ready.set_value(up);
        while (up && !stop_) {
            const int r = sd_bus_process(bus, nullptr);
            if (r < 0) break;
            if (r == 0) sd_bus_wait(bus, 20'000);
        }
        sd_bus_close_unref(bus);
    }

    static int onMessage(sd_bus_message* m, void* self, sd_bus_error* error) {
        if (!sd_bus_message_is_method_call(m, "org.freedesktop.Notifications", "Notify")) return 0;
        return static_cast<FakeNotifications*>(self)->notify(m, error);
    }

    int notify(sd_bus_message* m, sd_bus_error* error) {
        NotifyCall call;
        const char *appName = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
        if (std::string(sd_bus_message_get_signature(m, 1)) != "susssasa{sv}i") {
            return sd_bus_error_set(error, "org.freedesktop.DBus.Error.InvalidArgs", "wrong signature");
        }
        sd_bus_message_read(m, "susss", &appName, &call.replacesId, &icon, &summary, &body);
        call.appName = appName;
        call.appIcon = icon;
        call.summary = summary;
        call.body = body;
        call.actions = 0;
        sd_bus_message_enter_container(m, 'a', "s");
        while (sd_bus_message_skip(m, "s") > 0) ++call.actions;
        sd_bus_message_exit_container(m);
        call.hints = 0;
        sd_bus_message_enter_container(m, 'a', "{sv}");
        while (sd_bus_message_skip(m, "{sv}") > 0) ++call.hints;
        sd_bus_message_exit_container(m);
        sd_bus_message_read(m, "i", &call.expireTimeout);
        {
            std::lock_guard lock(mutex_);
            calls_.push_back(call);
        }
        if (refuse_) return sd_bus_error_set(error, "org.freedesktop.DBus.Error.Failed", "refused");
        sd_bus_reply_method_return(m, "u", uint32_t{42});
        return 1;
    }

    bool refuse_;
    bool ok_ = false;
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::vector<NotifyCall> calls_;
    std::thread thread_;
};

class DBusNotifierOnPrivateBus : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(dir_.path().empty());
        bus_ = std::make_unique<PrivateBus>(dir_);
        if (!bus_->running()) {
            GTEST_SKIP() << "no private session bus (" << bus_->problem()
                         << "); install the Debian package dbus-daemon to run the D-Bus tests";
        }
    }
    std::map<std::string, std::string> addressEnvironment() const {
        return {{"DBUS_SESSION_BUS_ADDRESS", bus_->address()}};
    }

    TempDir dir_;
    std::unique_ptr<PrivateBus> bus_;
};

TEST_F(DBusNotifierOnPrivateBus, TheServiceGetsTheTextsExactly) {
    FakeNotifications service(bus_->address(), false);
    ASSERT_TRUE(service.ok());
    const struct {
        const char* name;
        std::string title;
        std::string body;
        std::string summarySeen;
        std::string bodySeen;
    } cases[] = {
        {"arrows", "Removed apps left 1.2 GB behind",
         "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 Leftovers to clear it.",
         "Removed apps left 1.2 GB behind",
         "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 Leftovers to clear it."},
        {"quotes, line feed, tab, markup", "\"Mail\" now starts with your Mac", "line one\n\tline <b>two</b> & more",
         "\"Mail\" now starts with your Mac", "line one\n\tline <b>two</b> & more"},
        {"invalid UTF-8 and NUL", "bad \xFF\xFE name", std::string("cut \xE2\x86 here\0tail", 16),
         "bad \xEF\xBF\xBD\xEF\xBF\xBD name", "cut \xEF\xBF\xBD here\xEF\xBF\xBDtail"},
        {"overlong and surrogate", "over\xC0\xAFlong", "sur\xED\xA0\x80rogate",
         "over\xEF\xBF\xBD\xEF\xBF\xBDlong", "sur\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDrogate"},
        {"empty", "", "", "", ""},
    };
    quorv::HostScope scope(hostWith(nullptr, addressEnvironment()));
    quorv::DBusNotifier notifier;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(notifier.deliver("ID-1", c.title, c.body));
    }
    const auto calls = service.calls();
    ASSERT_EQ(calls.size(), std::size(cases));
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        EXPECT_EQ(calls[i].appName, "Brimstell");
        EXPECT_EQ(calls[i].replacesId, 0u);
        EXPECT_EQ(calls[i].appIcon, "");
        EXPECT_EQ(calls[i].summary, cases[i].summarySeen);
        EXPECT_EQ(calls[i].body, cases[i].bodySeen);
        EXPECT_EQ(calls[i].actions, 0u);
        EXPECT_EQ(calls[i].hints, 0u);
        EXPECT_EQ(calls[i].expireTimeout, -1);
    }
}

TEST_F(DBusNotifierOnPrivateBus, FindsTheBusInTheRuntimeFolder) {
    FakeNotifications service(bus_->address(), false);
    ASSERT_TRUE(service.ok());
    quorv::HostScope scope(hostWith(std::make_shared<quorv::DBusNotifier>(), {{"XDG_RUNTIME_DIR", dir_.path()}}));
    EXPECT_TRUE(quorv::Notify::send("Your battery is worn", "It holds 79% of what it did new."));
    ASSERT_EQ(service.calls().size(), 1u);
    EXPECT_EQ(service.calls()[0].summary, "Your battery is worn");
}

TEST_F(DBusNotifierOnPrivateBus, FalseWhenNoServiceAnswersOrItRefuses) {
    quorv::HostScope scope(hostWith(nullptr, addressEnvironment()));
    quorv::DBusNotifier notifier;
    {
        SCOPED_TRACE("no notification service on the bus");
        const auto start = Steady::now();
        EXPECT_FALSE(notifier.deliver("ID-1", "Your disk reports a problem", "Its self-check says Failing."));
        EXPECT_LT(Steady::now() - start, 2s);
    }
    {
        SCOPED_TRACE("the service answers with an error");
        FakeNotifications refusing(bus_->address(), true);
        ASSERT_TRUE(refusing.ok());
        EXPECT_FALSE(notifier.deliver("ID-1", "Your disk reports a problem", "Its self-check says Failing."));
        EXPECT_EQ(refusing.calls().size(), 1u);
    }
}

// The bus is the host's, never the process's: a run against a test host must not reach the
// session of whoever started it.
TEST_F(DBusNotifierOnPrivateBus, IgnoresTheProcessEnvironment) {
    FakeNotifications service(bus_->address(), false);
    ASSERT_TRUE(service.ok());
    const char* before = ::getenv("DBUS_SESSION_BUS_ADDRESS");
    const std::string saved = before ? before : "";
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus_->address().c_str(), 1);
    {
        quorv::HostScope scope(hostWith(nullptr));
        EXPECT_FALSE(quorv::DBusNotifier().deliver("ID-1", "Your disk is almost full", "Only 1 GB free."));
    }
    if (before) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", saved.c_str(), 1);
    } else {
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    EXPECT_TRUE(service.calls().empty());
}

#endif  // __APPLE__

}  // namespace
