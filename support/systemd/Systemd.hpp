#pragma once
// What the agent's and the root helper's systemd registrations share: a client connection to a
// service manager's bus, its method calls, and the executable word of a unit file. Linux only.

#ifndef __APPLE__

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "support/host/ServiceRegistrar.hpp"
#include "support/systemd/SdBus.hpp"

namespace quorv::systemd {

inline constexpr const char* destination = "org.freedesktop.systemd1";
inline constexpr const char* objectPath = "/org/freedesktop/systemd1";
inline constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
// A bus that accepts but never answers must not hold the caller for long.
inline constexpr std::uint64_t callTimeoutMicroseconds = 10'000'000;

struct BusCloser {
    void operator()(sd_bus* bus) const { sdBus()->sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

struct MessageUnref {
    void operator()(sd_bus_message* m) const { sdBus()->sd_bus_message_unref(m); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

class BusError {
public:
    BusError() = default;
    ~BusError() {
        if (const SdBus* lib = sdBus()) lib->sd_bus_error_free(&error_);
    }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    sd_bus_error* get() { return &error_; }
    // The reason without a closing full stop; callers end their own sentence.
    std::string text(int r) const;

private:
    sd_bus_error error_{nullptr, nullptr, 0};  // SD_BUS_ERROR_NULL is a C compound literal
};

// D-Bus address values escape every byte outside a small set as %xx.
std::string addressValue(const std::string& s);
// The session bus of the host's user: DBUS_SESSION_BUS_ADDRESS when set and not empty, else the
// socket "bus" in an absolute XDG_RUNTIME_DIR (escaped for an address); none without either.
std::optional<std::string> sessionBusAddress();

// A client connection to the bus at address. manager names the manager in the error sentence:
// "The systemd <manager> can't be reached: <reason>." Without libsystemd there is none.
Bus connect(const std::string& address, std::string_view manager, std::string& error);

// A bus is not enough: a bus without systemd behind it has no manager to talk to.
bool managerAnswers(sd_bus* bus, std::string_view manager, std::string& error);

// Calls a manager method; on failure appends "<Method> failed: <reason>." to error.
template <class... Args>
bool call(sd_bus* bus, const char* method, std::string& error, Message* reply, const char* types, Args... args) {
    BusError e;
    sd_bus_message* raw = nullptr;
    const int r = sdBus()->sd_bus_call_method(bus, destination, objectPath, managerInterface, method, e.get(), &raw, types, args...);
    Message owned(raw);
    if (r < 0) {
        if (!error.empty()) error += " ";
        error += fmt::format("{} failed: {}.", method, e.text(r));
        return false;
    }
    if (reply) *reply = std::move(owned);
    return true;
}

// The unit file state the manager reports for unit ("enabled", "disabled", "masked"…); empty
// when the call fails.
std::string unitFileState(sd_bus* bus, const char* unit);

// How a manager's view of our units maps onto the four registration states (see the .cpp).
ServiceStatus registrationState(bool managerReachable, bool unitFilesPresent, const std::string& unitFileState);


// An executable path as the first word of ExecStart= (see the .cpp for the quoting rules).
std::string execWord(const std::string& path);

// systemd refuses an executable whose path holds a quote, a backslash or a control character.
bool runnableBySystemd(const std::string& path);

// Whether a unit file is there in any form, a final link not followed: a mask is a link to
// /dev/null in place of the file, and still counts.
bool unitFilePresent(const std::string& path);
// Removes a unit file; true when it is gone, or never was. A failure adds a sentence to error:
// rootHint when given and the cause is missing rights, else "Could not remove <path>: <reason>."
bool removeUnitFile(const std::string& path, std::string& error, const char* rootHint = nullptr);

}  // namespace quorv::systemd

#endif  // __APPLE__
