#pragma once
// The helper's main loop: accept, identify the caller, take one request, dispatch, reply, close.
//
// Up to connectionLimit connections are served at once, each by a worker thread of its own, so a
// caller that connects and says nothing holds one worker, not the helper; a connection is accepted
// only when a worker is free to serve it. The file jobs themselves run one at a time (jobMutex_),
// so two requests never rewrite the moved log at once.
//
// No connection can hold a worker for long: the caller has receiveLimit seconds from being
// accepted to deliver its whole request, and the reply must be taken within sendLimit seconds.
// A frame that breaks the wire's limits is refused on its header, before it is read. A caller the
// helper doesn't serve, or that sends anything but a valid request, is disconnected without a word.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

#include "helper/HelperOptions.hpp"
#include "shared/helper/HelperDispatch.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell::helperd {

class HelperServer {
public:
    static constexpr double receiveLimit = 5;
    static constexpr double sendLimit = 30;
    static constexpr int connectionLimit = 8;

    HelperServer(quorv::UniqueFd listener, HelperDispatch dispatch, HelperOptions options);

    // Serves until stop is set (checked whenever a signal interrupts the wait), then lets the
    // connections under way finish. SIGTERM and SIGINT reach the calling thread only.
    void run(const std::atomic<bool>& stop);

private:
    void acceptUntil(const std::atomic<bool>& stop);
    void work();
    void serve(int fd);

    quorv::UniqueFd listener_;
    HelperDispatch dispatch_;
    HelperOptions options_;

    std::mutex queueMutex_;
    std::condition_variable queueChanged_;
    std::deque<quorv::UniqueFd> accepted_;  // handed to the workers
    int idle_ = 0;                          // workers waiting for a connection
    bool stopping_ = false;
    std::mutex jobMutex_;  // held while a request's file job runs
};

}  // namespace brimstell::helperd
