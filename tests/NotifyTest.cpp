#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/PrivateBus.hpp"
#include "support/TestSupport.hpp"
#include "support/host/Host.hpp"
#include "support/notify/DBusNotifier.hpp"
#include "support/notify/Notifier.hpp"
#include "support/notify/Notify.hpp"
#include "support/notify/OutboxNotifier.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"

namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
using testing_support::linesOf;
using testing_support::TempDir;

std::shared_ptr<quorv::Host> hostWith(std::shared_ptr<quorv::Notifier> notifier,
                                      const std::map<std::string, std::string>& environment = {}) {
    auto h = quorv::hostFromEnvironment(environment);
    h->notifier = std::move(notifier);
    return h;
}

std::shared_ptr<quorv::Notifier> outboxAt(const std::string& path) {
    return std::make_shared<quorv::OutboxNotifier>(path);
}

// ---- Outbox ----

TEST(OutboxNotifier, WritesExactlyOneJsonLinePerNotification) {
    const struct {
        const char* name;
        std::string title;
        std::string body;
        std::string line;
    } cases[] = {
        {"quotes, line feed, tab and arrows", "Say \"hi\"\n\tnow", "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 Leftovers to clear it.",
         R"({"id":"ID-1","title":"Say \"hi\"\n\tnow","body":"Open Brimstell → Applications → Leftovers to clear it."})" "\n"},
        {"invalid UTF-8", "bad \xFF\xFE name", "cut \xE2\x86 here\xC3",
         "{\"id\":\"ID-1\",\"title\":\"bad \xEF\xBF\xBD\xEF\xBF\xBD name\",\"body\":\"cut \xEF\xBF\xBD here\xEF\xBF\xBD\"}\n"},
        {"NUL, bell, carriage return, backslash", std::string("nul\0bell\x07", 9), "back\\slash/\r",
         R"({"id":"ID-1","title":"nul\u0000bell\u0007","body":"back\\slash/\r"})" "\n"},
        {"empty", "", "", "{\"id\":\"ID-1\",\"title\":\"\",\"body\":\"\"}\n"},
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

TEST(Notify, SendIsFalseWhenNothingCanBeDelivered) {
    TempDir dir;
    ASSERT_TRUE(quorv::files::writeAtomically(dir / "plain", "x"));
    ASSERT_TRUE(quorv::files::makeFolders(dir / "folder"));
    const struct {
        const char* name;
        std::shared_ptr<quorv::Notifier> notifier;
    } cases[] = {
        {"no notifier", nullptr},
        {"parent is a file", outboxAt(dir / "plain/outbox.jsonl")},
        {"a folder at the path", outboxAt(dir / "folder")},
        {"no path", outboxAt("")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        quorv::HostScope scope(hostWith(c.notifier));
        bool sent = true;
        EXPECT_NO_THROW(sent = quorv::Notify::send("Auto Clean freed 5 MB", "Everything it moved is in History, ready to restore."));
        EXPECT_FALSE(sent);
    }
    EXPECT_EQ(quorv::files::read(dir / "plain"), "x");
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
        children.push_back(::fork());
        ASSERT_GE(children.back(), 0);
        if (children.back() == 0) ::_exit(write(p) ? 0 : 1);
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
        EXPECT_EQ(record.at("body"), bodyOf(std::stoi(id), std::stoi(id.substr(id.find('-') + 1)))) << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), lines.size());
}

// Holds deliveries until opened, to show that post doesn't wait for them.
struct GatedNotifier : quorv::Notifier {
    explicit GatedNotifier(std::shared_ptr<quorv::Notifier> next) : inner(std::move(next)) {}
    bool deliver(const std::string& id, const std::string& title, const std::string& body) override {
        opened.wait_for(10s);
        return inner->deliver(id, title, body);
    }
    std::shared_ptr<quorv::Notifier> inner;
    std::promise<void> gate;
    std::shared_future<void> opened = gate.get_future().share();
};

// Posting returns at once and delivers later, on the host it was posted on. Each alert is a line
// with an identifier of its own: an upper-case UUID, as the platform writes them.
TEST(Notify, PostAndSendEachWriteALineWithItsOwnId) {
    TempDir dir;
    const std::string outbox = dir / "state/outbox.jsonl";  // the folder doesn't exist yet
    auto gated = std::make_shared<GatedNotifier>(outboxAt(outbox));
    {
        quorv::HostScope scope(hostWith(gated));
        // Were post to wait for delivery, the closed gate would hold it 10 s and the line below be written.
        quorv::Notify::post("Auto Clean freed 1.2 GB", "Everything it moved is in History, ready to restore.");
    }
    EXPECT_TRUE(linesOf(outbox).empty());
    gated->gate.set_value();
    for (const auto deadline = Steady::now() + 10s; linesOf(outbox).empty() && Steady::now() < deadline;) std::this_thread::sleep_for(10ms);
    quorv::HostScope scope(hostWith(gated));
    EXPECT_TRUE(quorv::Notify::send("Your disk is almost full",
                                    "Only 2.1 GB free on Macintosh HD. Open Brimstell to make room."));

    const auto lines = linesOf(outbox);
    ASSERT_EQ(lines.size(), 2u);
    const std::pair<std::string, std::string> expected[] = {
        {"Auto Clean freed 1.2 GB", "Everything it moved is in History, ready to restore."},
        {"Your disk is almost full", "Only 2.1 GB free on Macintosh HD. Open Brimstell to make room."},
    };
    const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
    std::set<std::string> ids;
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto record = nlohmann::json::parse(lines[i]);
        EXPECT_TRUE(std::regex_match(record.at("id").get<std::string>(), uuid)) << lines[i];
        EXPECT_EQ(record.at("title"), expected[i].first);
        EXPECT_EQ(record.at("body"), expected[i].second);
        ids.insert(record.at("id").get<std::string>());
    }
    EXPECT_EQ(ids.size(), 2u) << "two alerts must never share an identifier";
}

#ifndef __APPLE__

// ---- D-Bus ----

// A Unix socket that listens but never accepts: connecting works, the handshake never answers.
quorv::UniqueFd silentSocket(const std::string& path) {
    quorv::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    const bool ok = fd && ::bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && ::listen(fd.get(), 8) == 0;
    return ok ? std::move(fd) : quorv::UniqueFd();
}

// A stand-in notification service that writes down each call and answers with an id, or an error.
class FakeNotifications {
public:
    FakeNotifications(const std::string& address, bool refuse)
        : refuse_(refuse),
          service_(address, "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                   "org.freedesktop.Notifications", vtable, this) {}
    bool ok() const { return service_.ready(); }
    std::vector<std::string> calls() {
        std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    static int notify(sd_bus_message* m, void* self, sd_bus_error* error) {
        auto* fake = static_cast<FakeNotifications*>(self);
        {
            std::lock_guard lock(fake->mutex_);
            fake->calls_.push_back(testing_support::describeCall(m));
        }
        if (fake->refuse_) return sd_bus_error_set(error, "org.freedesktop.DBus.Error.Failed", "refused");
        return sd_bus_reply_method_return(m, "u", uint32_t{42});
    }
    static const sd_bus_vtable vtable[];

    const bool refuse_;
    std::mutex mutex_;
    std::vector<std::string> calls_;
    testing_support::BusService service_;  // last, so it stops before what it uses goes
};

const sd_bus_vtable FakeNotifications::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", FakeNotifications::notify, 0),
    SD_BUS_VTABLE_END,
};

class DBusNotifierOnPrivateBus : public testing_support::PrivateBusTest {};

// No bus, no service, or a service that refuses: false, and never a wait beyond the time allowed.
TEST_F(DBusNotifierOnPrivateBus, FalseAtOnceWhenNoServiceTakesIt) {
    ASSERT_TRUE(quorv::files::makeFolders(dir / "empty"));
    ASSERT_TRUE(quorv::files::writeAtomically(dir / "plainfile/bus", "not a socket"));
    ASSERT_TRUE(quorv::files::makeFolders(dir / "silent"));
    const auto silent = silentSocket(dir / "silent/bus");
    ASSERT_TRUE(silent);
    const struct {
        const char* name;
        std::map<std::string, std::string> environment;
        bool refusingService = false;
    } cases[] = {
        {"neither variable", {}},
        {"empty bus address and no runtime folder", {{"DBUS_SESSION_BUS_ADDRESS", ""}}},
        {"runtime folder without a bus", {{"XDG_RUNTIME_DIR", dir / "empty"}}},
        {"runtime folder whose bus is a plain file", {{"XDG_RUNTIME_DIR", dir / "plainfile"}}},
        {"relative runtime folder", {{"XDG_RUNTIME_DIR", "run/user"}}},
        {"address of a missing socket", {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + dir / "nothing/bus"}}},
        {"address that is no address", {{"DBUS_SESSION_BUS_ADDRESS", "no bus here"}}},
        {"bus that never answers", {{"XDG_RUNTIME_DIR", dir / "silent"}}},
        {"no notification service on the bus", busEnvironment()},
        {"the service answers with an error", busEnvironment(), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<FakeNotifications> refusing;
        if (c.refusingService) {
            ASSERT_TRUE(refusing.emplace(bus->address(), true).ok());
        }
        quorv::HostScope scope(hostWith(nullptr, c.environment));
        quorv::DBusNotifier notifier(400ms);
        const auto start = Steady::now();
        EXPECT_FALSE(notifier.deliver("ID-1", "Your disk is almost full", "Only 1 GB free."));
        EXPECT_LT(Steady::now() - start, 2s);
        if (refusing) {
            EXPECT_EQ(refusing->calls().size(), 1u) << "the refusal, not a lost call, must be what failed";
        }
    }
}

TEST_F(DBusNotifierOnPrivateBus, TheServiceGetsTheTextsExactly) {
    FakeNotifications service(bus->address(), false);
    ASSERT_TRUE(service.ok());
    const struct {
        const char* name;
        std::string title;
        std::string body;
        std::string summarySeen;
        std::string bodySeen;
    } cases[] = {
        {"arrows", "Removed apps left 1.2 GB behind", "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 Leftovers to clear it.",
         "Removed apps left 1.2 GB behind", "Open Brimstell \xE2\x86\x92 Applications \xE2\x86\x92 Leftovers to clear it."},
        {"quotes, line feed, tab, markup", "\"Mail\" now starts with your Mac", "line one\n\tline <b>two</b> & more",
         "\"Mail\" now starts with your Mac", "line one\n\tline <b>two</b> & more"},
        {"invalid UTF-8 and NUL", "bad \xFF\xFE name", std::string("cut \xE2\x86 here\0tail", 16),
         "bad \xEF\xBF\xBD\xEF\xBF\xBD name", "cut \xEF\xBF\xBD here\xEF\xBF\xBDtail"},
        {"overlong and surrogate", "over\xC0\xAFlong", "sur\xED\xA0\x80rogate",
         "over\xEF\xBF\xBD\xEF\xBF\xBDlong", "sur\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDrogate"},
        {"empty", "", "", "", ""},
    };
    quorv::HostScope scope(hostWith(nullptr, busEnvironment()));
    quorv::DBusNotifier notifier;
    for (const auto& c : cases) EXPECT_TRUE(notifier.deliver("ID-1", c.title, c.body)) << c.name;
    const auto calls = service.calls();
    ASSERT_EQ(calls.size(), std::size(cases));
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        // Application name, replaces no earlier one, no icon, summary, body, no actions, no hints,
        // the server's default time on screen.
        EXPECT_EQ(calls[i], "Notify \"Brimstell\" 0 \"\" \"" + cases[i].summarySeen + "\" \"" + cases[i].bodySeen + "\" [] [] -1");
    }
}

// The bus is the host's, never the process's: a run against a test host must not reach the
// session of whoever started it.
TEST_F(DBusNotifierOnPrivateBus, FindsTheBusThroughTheHostOnly) {
    FakeNotifications service(bus->address(), false);
    ASSERT_TRUE(service.ok());
    const char* before = ::getenv("DBUS_SESSION_BUS_ADDRESS");
    const std::string saved = before ? before : "";
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus->address().c_str(), 1);
    {
        quorv::HostScope scope(hostWith(std::make_shared<quorv::DBusNotifier>()));
        EXPECT_FALSE(quorv::Notify::send("Your disk is almost full", "Only 1 GB free."));
    }
    before ? ::setenv("DBUS_SESSION_BUS_ADDRESS", saved.c_str(), 1) : ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    EXPECT_TRUE(service.calls().empty());

    // The host's runtime folder holds the bus.
    quorv::HostScope scope(hostWith(std::make_shared<quorv::DBusNotifier>(), {{"XDG_RUNTIME_DIR", dir.path()}}));
    EXPECT_TRUE(quorv::Notify::send("Your battery is worn", "It holds 79% of what it did new."));
    EXPECT_EQ(service.calls(), std::vector<std::string>{
                                   R"(Notify "Brimstell" 0 "" "Your battery is worn" "It holds 79% of what it did new." [] [] -1)"});
}

// Without libsystemd there is no way onto the bus: false, as without a bus, and nothing is sent.
// The library comes back once it can be loaded again.
TEST_F(DBusNotifierOnPrivateBus, FalseWithoutTheLibrary) {
    FakeNotifications service(bus->address(), false);
    ASSERT_TRUE(service.ok());
    quorv::HostScope scope(hostWith(std::make_shared<quorv::DBusNotifier>(), busEnvironment()));
    {
        testing_support::SdBusLibraryNamed missing("libbrimstell-absent-sd-bus.so.0");
        EXPECT_FALSE(quorv::Notify::send("Your disk is almost full", "Only 1 GB free."));
    }
    EXPECT_TRUE(service.calls().empty());
    EXPECT_TRUE(quorv::Notify::send("Your disk is almost full", "Only 1 GB free."));
    EXPECT_EQ(service.calls(), std::vector<std::string>{
                                   R"(Notify "Brimstell" 0 "" "Your disk is almost full" "Only 1 GB free." [] [] -1)"});
}

#endif  // __APPLE__

}  // namespace
