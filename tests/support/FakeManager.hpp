#pragma once
// A stand-in for the systemd manager on a private bus, for the registration tests. Linux only.

#ifndef __APPLE__

#include <systemd/sd-bus.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/PrivateBus.hpp"

namespace testing_support {

// The names in a folder, sorted; none when it can't be read.
std::vector<std::string> entriesOf(const std::string& folder);

// Answers the systemd manager's calls that a registration makes, with the real signatures, and
// records them.
class FakeManager {
public:
    explicit FakeManager(const std::string& address)
        : service_(address, "org.freedesktop.systemd1", "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
                   vtable, this) {}

    bool ready() const { return service_.ready(); }
    std::vector<std::string> takeCalls() {
        std::lock_guard lock(mutex_);
        return std::exchange(calls_, {});
    }
    void setState(std::string state) {
        std::lock_guard lock(mutex_);
        state_ = std::move(state);
    }
    void failing(std::string method) {
        std::lock_guard lock(mutex_);
        failing_ = std::move(method);
    }

private:
    static int handle(sd_bus_message* m, void* userdata, sd_bus_error* error) {
        auto* self = static_cast<FakeManager*>(userdata);
        const std::string method = sd_bus_message_get_member(m);
        std::string state;
        {
            std::lock_guard lock(self->mutex_);
            self->calls_.push_back(testing_support::describeCall(m));
            if (method == self->failing_) {
                return sd_bus_error_set(error, "org.freedesktop.systemd1.UnitMasked", "Unit file is masked.");
            }
            state = self->state_;
        }
        if (method == "EnableUnitFiles") return sd_bus_reply_method_return(m, "ba(sss)", 1, 0);
        if (method == "DisableUnitFiles") return sd_bus_reply_method_return(m, "a(sss)", 0);
        if (method == "GetUnitFileState") return sd_bus_reply_method_return(m, "s", state.c_str());
        if (method == "Reload") return sd_bus_reply_method_return(m, "");
        return sd_bus_reply_method_return(m, "o", "/org/freedesktop/systemd1/job/1");
    }
    static int version(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
                       sd_bus_error*) {
        return sd_bus_message_append(reply, "s", "252");
    }
    static const sd_bus_vtable vtable[];

    std::mutex mutex_;
    std::vector<std::string> calls_;
    std::string state_ = "disabled";
    std::string failing_;
    testing_support::BusService service_;  // last, so it stops before what it uses goes
};

}  // namespace testing_support

#endif  // __APPLE__
