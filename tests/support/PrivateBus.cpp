#ifndef __APPLE__

#include "support/PrivateBus.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"

extern char** environ;

namespace testing_support {

PrivateBus::PrivateBus(const std::string& folder) {
    const std::string config = folder + "/bus.conf";
    quorv::files::writeAtomically(config,
                                  "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                                  " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                                  "<busconfig><type>session</type><listen>unix:path=" + folder + "/bus</listen>"
                                  "<auth>EXTERNAL</auth><policy context=\"default\">"
                                  "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                                  "<allow own=\"*\"/></policy></busconfig>\n");
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        problem_ = "no pipe";
        return;
    }
    quorv::UniqueFd readEnd(ends[0]), writeEnd(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), STDOUT_FILENO);
    // Its complaints (it can't raise its descriptor limit, say) are no concern of the tests.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::string configArg = "--config-file=" + config;
    std::vector<char*> argv = {const_cast<char*>("dbus-daemon"), configArg.data(), const_cast<char*>("--nofork"),
                               const_cast<char*>("--print-address"), nullptr};
    const int spawned = ::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    writeEnd.reset();
    if (spawned != 0) {
        pid_ = -1;
        problem_ = std::string("dbus-daemon could not be run: ") + std::strerror(spawned);
        return;
    }
    // It prints its address once it listens.
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (line.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd p{readEnd.get(), POLLIN, 0};
        if (left.count() <= 0 || ::poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
        char buf[512];
        const ssize_t n = ::read(readEnd.get(), buf, sizeof buf);
        if (n <= 0) break;
        line.append(buf, static_cast<size_t>(n));
    }
    if (line.find('\n') == std::string::npos) {
        problem_ = "dbus-daemon printed no address";
        return;
    }
    address_ = line.substr(0, line.find('\n'));
}

PrivateBus::~PrivateBus() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
}

void PrivateBusTest::SetUp() {
    bus = std::make_unique<PrivateBus>(dir.path());
    if (!bus->running()) {
        GTEST_SKIP() << "no private session bus (" << bus->problem()
                     << "); install the Debian package dbus-daemon to run the D-Bus tests";
    }
}

namespace {

void describeArguments(sd_bus_message* m, std::string& out) {
    char type = 0;
    const char* contents = nullptr;
    while (sd_bus_message_peek_type(m, &type, &contents) > 0) {
        if (!out.empty() && out.back() != '[') out += ' ';
        if (type == SD_BUS_TYPE_ARRAY || type == SD_BUS_TYPE_STRUCT || type == SD_BUS_TYPE_DICT_ENTRY ||
            type == SD_BUS_TYPE_VARIANT) {
            const std::string inner = contents ? contents : "";
            sd_bus_message_enter_container(m, type, inner.c_str());
            out += '[';
            describeArguments(m, out);
            out += ']';
            sd_bus_message_exit_container(m);
            continue;
        }
        union {
            const char* text;
            int boolean;
            int32_t i32;
            uint32_t u32;
            uint64_t room;  // for the wider types, written out as "?"
        } v{};
        if (sd_bus_message_read_basic(m, type, &v) < 0) return;
        switch (type) {
            case SD_BUS_TYPE_STRING:
            case SD_BUS_TYPE_OBJECT_PATH:
            case SD_BUS_TYPE_SIGNATURE: out += '"' + std::string(v.text) + '"'; break;
            case SD_BUS_TYPE_BOOLEAN: out += v.boolean ? "true" : "false"; break;
            case SD_BUS_TYPE_INT32: out += std::to_string(v.i32); break;
            case SD_BUS_TYPE_UINT32: out += std::to_string(v.u32); break;
            default: out += '?'; break;
        }
    }
}

}  // namespace

std::string describeCall(sd_bus_message* call) {
    std::string out = sd_bus_message_get_member(call) ? sd_bus_message_get_member(call) : "?";
    describeArguments(call, out);
    return out;
}

BusService::BusService(const std::string& address, const char* name, const char* path, const char* interface,
                       const sd_bus_vtable* vtable, void* userdata) {
    ready_ = sd_bus_new(&bus_) >= 0 && sd_bus_set_address(bus_, address.c_str()) >= 0 &&
             sd_bus_set_bus_client(bus_, 1) >= 0 && sd_bus_start(bus_) >= 0 &&
             sd_bus_add_object_vtable(bus_, nullptr, path, interface, vtable, userdata) >= 0 &&
             sd_bus_request_name(bus_, name, 0) >= 0;
    if (!ready_) return;
    thread_ = std::thread([this] {
        while (!stop_) {
            const int r = sd_bus_process(bus_, nullptr);
            if (r < 0) break;
            if (r == 0) sd_bus_wait(bus_, 20'000);
        }
    });
}

BusService::~BusService() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    sd_bus_flush_close_unref(bus_);
}

}  // namespace testing_support

#endif  // __APPLE__
