#pragma once
// The freedesktop.org notification service (org.freedesktop.Notifications) on the user's
// session bus. Linux only.

#include <chrono>
#include <optional>
#include <string>

#include "support/notify/Notifier.hpp"

namespace quorv {

class DBusNotifier : public Notifier {
public:
    // timeout bounds the whole delivery: connecting, the bus handshake and the call.
    explicit DBusNotifier(std::chrono::milliseconds timeout = std::chrono::seconds(3));

    // Sends Notify as "Brimstell" with no icon, actions or hints and the server's default expiry.
    // True when the service answered with an id; false without a session bus, without a
    // notification service, on an error reply or when the timeout runs out.
    bool deliver(const std::string& id, const std::string& title, const std::string& body) override;

    // The current host's session bus: DBUS_SESSION_BUS_ADDRESS, else the socket "bus" in
    // XDG_RUNTIME_DIR when it exists; nullopt when the host has neither.
    static std::optional<std::string> sessionBusAddress();

private:
    std::chrono::milliseconds timeout_;
};

}  // namespace quorv
