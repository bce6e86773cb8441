#pragma once
// The helper's main loop: accept, identify the caller, take one request, dispatch, reply, close;
// one connection at a time, so two requests never rewrite the moved log at once.
//
// No connection can hold the loop for long: the caller has receiveLimit seconds from being
// accepted to deliver its whole request, and the reply must be taken within sendLimit seconds.
// A frame that breaks the wire's limits is refused on its header, before it is read. A caller the
// helper doesn't serve, or that sends anything but a valid request, is disconnected without a word.

#include <atomic>
#include <string>

#include "helper/HelperOptions.hpp"
#include "shared/helper/HelperDispatch.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell::helperd {

class HelperServer {
public:
    static constexpr double receiveLimit = 5;
    static constexpr double sendLimit = 30;

    HelperServer(quorv::UniqueFd listener, HelperDispatch dispatch, HelperOptions options);

    // Serves until stop is set (checked whenever a signal interrupts the wait).
    void run(const std::atomic<bool>& stop);

private:
    void serve(int fd);

    quorv::UniqueFd listener_;
    HelperDispatch dispatch_;
    HelperOptions options_;
};

}  // namespace brimstell::helperd
