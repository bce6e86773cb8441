#pragma once
// libsystemd's D-Bus client, loaded the first time something talks to a bus. The agent's ordinary
// run never does, so the library (and what it pulls in) stays out of its start-up. Linux only.

#ifndef __APPLE__

#include <string>
#include <string_view>

#include <systemd/sd-bus.h>

namespace quorv::systemd {

// Every sd-bus function Brimstell calls, each looked up by its own name.
#define QUORV_SD_BUS_FUNCTIONS(X)                                                                 \
    X(sd_bus_new) X(sd_bus_set_address) X(sd_bus_set_bus_client) X(sd_bus_set_method_call_timeout) \
    X(sd_bus_start) X(sd_bus_is_ready) X(sd_bus_process) X(sd_bus_wait) X(sd_bus_call)             \
    X(sd_bus_call_method) X(sd_bus_get_property_string) X(sd_bus_message_new_method_call)          \
    X(sd_bus_message_append) X(sd_bus_message_read) X(sd_bus_message_unref) X(sd_bus_error_free)   \
    X(sd_bus_close_unref) X(sd_bus_flush_close_unref)

struct SdBus {
#define QUORV_SD_BUS_MEMBER(name) decltype(&::name) name = nullptr;
    QUORV_SD_BUS_FUNCTIONS(QUORV_SD_BUS_MEMBER)
#undef QUORV_SD_BUS_MEMBER
};

inline constexpr const char* defaultLibrary = "libsystemd.so.0";

// The loaded library; nullptr when it can't be loaded or lacks one of the functions. Loaded once
// and kept for the life of the process; safe to call from any thread.
const SdBus* sdBus();

// The library sdBus() loads: defaultLibrary unless changed here. A change drops what was loaded
// before, so the next sdBus() loads afresh. An empty name never loads.
void setLibraryName(const std::string& name);
std::string libraryName();

// "The systemd <manager> can't be reached: <library> can't be loaded."
std::string libraryMissing(std::string_view manager);

}  // namespace quorv::systemd

#endif  // __APPLE__
