#include "support/notify/DBusNotifier.hpp"

#include "support/systemd/SdBus.hpp"
#include "support/systemd/Systemd.hpp"

#ifndef __APPLE__

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string_view>

#include "support/host/Host.hpp"

namespace quorv {
namespace {

struct BusCloser {
    void operator()(sd_bus* bus) const { systemd::sdBus()->sd_bus_close_unref(bus); }
};
struct MessageUnref {
    void operator()(sd_bus_message* m) const { systemd::sdBus()->sd_bus_message_unref(m); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

// D-Bus strings must be valid UTF-8 without NUL; anything else would make the message invalid.
// Each ill-formed part (a NUL, a stray byte, or the longest start of a sequence that breaks off)
// becomes one U+FFFD, so the rest still shows.
std::string dbusText(std::string_view in) {
    static constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string out;
    out.reserve(in.size());
    std::size_t i = 0;
    while (i < in.size()) {
        const auto c = static_cast<unsigned char>(in[i]);
        std::size_t length = 0;
        unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
        if (c != 0 && c < 0x80) {
            length = 1;
        } else if (c >= 0xC2 && c <= 0xDF) {
            length = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3;
            if (c == 0xE0) lo = 0xA0;  // no overlong forms
            if (c == 0xED) hi = 0x9F;  // no surrogates
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4;
            if (c == 0xF0) lo = 0x90;
            if (c == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
        }
        std::size_t good = length > 0 ? 1 : 0;
        while (good > 0 && good < length && i + good < in.size()) {
            const auto next = static_cast<unsigned char>(in[i + good]);
            if (good == 1 ? (next < lo || next > hi) : (next < 0x80 || next > 0xBF)) break;
            ++good;
        }
        if (length > 0 && good == length) {
            out.append(in.substr(i, length));
        } else {
            out.append(replacement);
        }
        i += good > 0 ? good : 1;
    }
    return out;
}

uint64_t monotonicUsec() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1'000'000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

}  // namespace

DBusNotifier::DBusNotifier(std::chrono::milliseconds timeout) : timeout_(timeout) {}

std::optional<std::string> DBusNotifier::sessionBusAddress() {
    const Host& h = host();
    auto address = systemd::sessionBusAddress();
    if (!address) return std::nullopt;
    // A bus found through the runtime folder must be there, so that no bus fails at once.
    if (auto given = h.env("DBUS_SESSION_BUS_ADDRESS"); !given || given->empty()) {
        struct stat st{};
        const std::string socketPath = *h.env("XDG_RUNTIME_DIR") + "/bus";
        if (::stat(socketPath.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) return std::nullopt;
    }
    return address;
}

namespace {

// sd_bus_call would wait for the handshake with its own, much longer limit; a bus that accepts
// the connection and then says nothing must not hold the run up.
bool handshake(const systemd::SdBus& lib, sd_bus* bus, uint64_t deadline) {
    for (;;) {
        const int ready = lib.sd_bus_is_ready(bus);
        if (ready < 0) return false;
        if (ready > 0) return true;
        const uint64_t now = monotonicUsec();
        if (now >= deadline) return false;
        const int processed = lib.sd_bus_process(bus, nullptr);
        if (processed < 0) return false;
        if (processed > 0) continue;
        const int waited = lib.sd_bus_wait(bus, deadline - now);
        if (waited < 0 && waited != -EINTR) return false;
    }
}

Bus connectSession(const systemd::SdBus& lib, const std::string& address, uint64_t deadline) {
    sd_bus* raw = nullptr;
    if (lib.sd_bus_new(&raw) < 0) return nullptr;
    Bus bus(raw);
    if (lib.sd_bus_set_address(bus.get(), address.c_str()) < 0 || lib.sd_bus_set_bus_client(bus.get(), 1) < 0 ||
        lib.sd_bus_start(bus.get()) < 0 || !handshake(lib, bus.get(), deadline)) {
        return nullptr;
    }
    return bus;
}

}  // namespace

bool DBusNotifier::deliver(const std::string& /*id*/, const std::string& title, const std::string& body) {
    // The service hands out its own ids; ours only keeps requests apart, which a fresh Notify
    // with replaces_id 0 already does.
    const auto address = sessionBusAddress();
    if (!address) return false;
    // Without libsystemd there is no way onto the bus, the same as having no bus.
    const systemd::SdBus* lib = systemd::sdBus();
    if (!lib) return false;

    const uint64_t budget = static_cast<uint64_t>(timeout_.count() > 0 ? timeout_.count() : 1) * 1000u;
    const uint64_t deadline = monotonicUsec() + budget;
    Bus bus = connectSession(*lib, *address, deadline);
    if (!bus) return false;

    sd_bus_message* rawCall = nullptr;
    if (lib->sd_bus_message_new_method_call(bus.get(), &rawCall, "org.freedesktop.Notifications",
                                            "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                            "Notify") < 0) {
        return false;
    }
    Message call(rawCall);
    const std::string summary = dbusText(title);
    const std::string text = dbusText(body);
    if (lib->sd_bus_message_append(call.get(), "susssasa{sv}i", "Brimstell", uint32_t{0}, "", summary.c_str(),
                                   text.c_str(), 0u, 0u, int32_t{-1}) < 0) {
        return false;
    }

    const uint64_t now = monotonicUsec();
    if (now >= deadline) return false;
    sd_bus_error error{};  // SD_BUS_ERROR_NULL, without its C99 compound literal
    sd_bus_message* rawReply = nullptr;
    const int called = lib->sd_bus_call(bus.get(), call.get(), deadline - now, &error, &rawReply);
    lib->sd_bus_error_free(&error);
    if (called < 0) return false;
    Message reply(rawReply);
    uint32_t notificationId = 0;
    return lib->sd_bus_message_read(reply.get(), "u", &notificationId) > 0;
}

}  // namespace quorv

#endif  // __APPLE__
