#include "kit/files/AdminLog.hpp"

#include <syslog.h>

#include <fmt/format.h>

#include "support/host/Host.hpp"

#ifdef __APPLE__
#include <os/log.h>
#else
#include <mutex>
#endif

namespace brimstell::adminlog {
namespace {

#ifdef __APPLE__
os_log_t helperLog() {
    static os_log_t log = os_log_create("com.quorv.brimstell", "helper");
    return log;
}
#else
void openSystemLog() {
    static std::once_flag once;
    std::call_once(once, [] { ::openlog("com.quorv.brimstell", LOG_PID, LOG_USER); });
}
#endif

// True when the host takes the line itself (tests, embedders).
bool toHost(int priority, const std::string& line) {
    const auto& sink = quorv::host().systemLog;
    if (!sink) return false;
    sink(priority, line);
    return true;
}

}  // namespace

void registerFailed(const std::string& error) {
    if (toHost(LOG_ERR, fmt::format("helper register failed: {}", error))) return;
#ifdef __APPLE__
    os_log_error(helperLog(), "helper register failed: %{public}s", error.c_str());
#else
    openSystemLog();
    ::syslog(LOG_ERR, "helper register failed: %s", error.c_str());
#endif
}

void versionMismatch(const std::string& reply, const std::string& expected) {
    if (toHost(LOG_NOTICE, fmt::format("helper version {}, app expects {}", reply, expected))) return;
#ifdef __APPLE__
    os_log(helperLog(), "helper version %{public}s, app expects %{public}s", reply.c_str(), expected.c_str());
#else
    openSystemLog();
    ::syslog(LOG_NOTICE, "helper version %s, app expects %s", reply.c_str(), expected.c_str());
#endif
}

void status(long value) {
    if (toHost(LOG_INFO, fmt::format("helper status: {}", value))) return;
#ifdef __APPLE__
    os_log(helperLog(), "helper status: %{public}ld", value);
#else
    openSystemLog();
    ::syslog(LOG_INFO, "helper status: %ld", value);
#endif
}

}  // namespace brimstell::adminlog
