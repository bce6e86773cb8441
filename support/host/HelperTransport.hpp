#pragma once
// The channel to the root helper: an XPC connection on a Mac, a Unix-domain socket on Linux, the
// helper's dispatcher called in-process for a sandbox. One request, one reply string.

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorv {

class HelperTransport {
public:
    virtual ~HelperTransport() = default;

    // Sends one request and waits for its reply. op "version" sends the version message (arg and
    // list are then ignored); anything else is a run request. nullopt when no reply came: the
    // helper isn't there, refused the caller, dropped the connection, or timeout seconds passed.
    // timeout nullopt waits as long as the helper takes; a transport keeps to timeout itself
    // (nobody races it on another thread). Safe to call from several threads.
    virtual std::optional<std::string> call(const std::string& op, const std::string& arg,
                                            const std::vector<std::string>& list, std::optional<double> timeout) = 0;

    // Drops a cached connection, if the transport keeps one; the next call makes a new one.
    virtual void invalidate() {}

    // Called, on any thread, when the transport learns that its connection is gone (the helper
    // went away or refused us): the client's handshake no longer holds.
    void setInvalidationHandler(std::function<void()> handler) {
        std::lock_guard lock(handlerMutex_);
        handler_ = std::move(handler);
    }

protected:
    void invalidated() {
        std::function<void()> handler;
        {
            std::lock_guard lock(handlerMutex_);
            handler = handler_;
        }
        if (handler) handler();
    }

private:
    std::mutex handlerMutex_;
    std::function<void()> handler_;
};

}  // namespace quorv
