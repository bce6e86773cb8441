#pragma once
// A private D-Bus session bus for the tests, and stand-in services that answer on it. Linux only.

#ifndef __APPLE__

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/TestSupport.hpp"
#include "support/systemd/SdBus.hpp"

namespace testing_support {

// dbus-daemon listening on the socket "bus" in the given folder, so that the folder can also stand
// in as XDG_RUNTIME_DIR. Stopped when this goes.
class PrivateBus {
public:
    explicit PrivateBus(const std::string& folder);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    bool running() const { return !address_.empty(); }
    const std::string& address() const { return address_; }  // as the daemon printed it
    const std::string& problem() const { return problem_; }   // why it isn't running

private:
    pid_t pid_ = -1;
    std::string address_;
    std::string problem_;
};

// A temporary folder with a private bus in it; the test is skipped where no bus can be started.
class PrivateBusTest : public ::testing::Test {
protected:
    void SetUp() override;
    std::map<std::string, std::string> busEnvironment() const { return {{"DBUS_SESSION_BUS_ADDRESS", bus->address()}}; }

    TempDir dir;
    std::unique_ptr<PrivateBus> bus;
};

// A connection to the bus that owns `name` and serves `vtable` at `path` from a thread of its own
// until it is destroyed. Declare it after whatever its handlers use, so it stops first.
class BusService {
public:
    BusService(const std::string& address, const char* name, const char* path, const char* interface,
               const sd_bus_vtable* vtable, void* userdata);
    ~BusService();
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    bool ready() const { return ready_; }

private:
    sd_bus* bus_ = nullptr;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// Makes the code under test load the sd-bus library from `name` (a missing one, say) until this
// goes; the usual library after that.
class SdBusLibraryNamed {
public:
    explicit SdBusLibraryNamed(const std::string& name) { quorv::systemd::setLibraryName(name); }
    ~SdBusLibraryNamed() { quorv::systemd::setLibraryName(quorv::systemd::defaultLibrary); }
    SdBusLibraryNamed(const SdBusLibraryNamed&) = delete;
    SdBusLibraryNamed& operator=(const SdBusLibraryNamed&) = delete;
};

// A method call written out: the method's name, then each argument, strings in double quotes
// (as they are, unescaped), numbers in decimal, Booleans as true/false, arrays and dictionaries
// in brackets. "StartUnit \"brimstell-agent.timer\" \"replace\"", "Notify ... [] [] -1".
std::string describeCall(sd_bus_message* call);

}  // namespace testing_support

#endif  // __APPLE__
