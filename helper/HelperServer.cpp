#ifdef __linux__

#include "helper/HelperServer.hpp"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "helper/CallerCheck.hpp"
#include "shared/helper/HelperScript.hpp"
#include "shared/helper/HelperWire.hpp"

namespace brimstell::helperd {

namespace wire = HelperWire;
using Steady = std::chrono::steady_clock;

namespace {

Steady::time_point after(double seconds) {
    return Steady::now() + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(seconds));
}

// Waits for events on fd until the deadline; false when it passed or the connection broke.
bool await(int fd, short events, Steady::time_point deadline) {
    for (;;) {
        const auto now = Steady::now();
        if (now >= deadline) return false;
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
        pollfd p{fd, events, 0};
        const int r = ::poll(&p, 1, static_cast<int>(ms));
        if (r > 0) return (p.revents & (events | POLLHUP)) != 0;
        if (r == 0) return false;
        if (errno != EINTR) return false;
    }
}

bool sendAll(int fd, std::string_view bytes, Steady::time_point deadline) {
    while (!bytes.empty()) {
        const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && await(fd, POLLOUT, deadline)) continue;
        return false;
    }
    return true;
}

// Closes every descriptor a message carried: the helper takes none.
bool closeCarried(msghdr& msg) {
    bool carried = false;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
        carried = true;
        const std::size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof fd);
            if (fd >= 0) ::close(fd);
        }
    }
    return carried;
}

// Reads the request frame, never past its end, taking only bytes that the caller's own process
// wrote. nullopt on anything else.
std::optional<wire::NoncedRequest> receive(int fd, const Caller& caller, Steady::time_point deadline, std::string& why) {
    std::string buffer;
    for (;;) {
        auto decoded = wire::decodeRequest(buffer);
        if (decoded.status == wire::Parse::complete) return std::move(decoded.value);
        if (decoded.status == wire::Parse::invalid) {
            why = "it sent an invalid or oversized request";
            return std::nullopt;
        }
        const std::size_t goal = decoded.frameSize != 0 ? decoded.frameSize : wire::headerSize;
        std::size_t want = goal - buffer.size();
        if (want > 65536) want = 65536;

        char chunk[65536];
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(64 * sizeof(int))];
        iovec iov{chunk, want};
        msghdr msg{};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof control;
        const ssize_t n = ::recvmsg(fd, &msg, MSG_CMSG_CLOEXEC);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!await(fd, POLLIN, deadline)) {
                why = "it did not send its request in time";
                return std::nullopt;
            }
            continue;
        }
        if (n <= 0) {
            why = "it closed the connection";
            return std::nullopt;
        }
        const bool carried = closeCarried(msg);
        if (carried || (msg.msg_flags & MSG_CTRUNC) != 0) {
            why = "it sent descriptors";
            return std::nullopt;
        }
        bool fromCaller = false;
        for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
            if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_CREDENTIALS) continue;
            ucred writer{};
            std::memcpy(&writer, CMSG_DATA(c), sizeof writer);
            fromCaller = writer.pid == caller.pid && writer.uid == caller.uid;
        }
        if (!fromCaller) {
            why = "its request was written by another process";
            return std::nullopt;
        }
        buffer.append(chunk, static_cast<std::size_t>(n));
    }
}

}  // namespace

HelperServer::HelperServer(quorv::UniqueFd listener, HelperDispatch dispatch, HelperOptions options)
    : listener_(std::move(listener)), dispatch_(std::move(dispatch)), options_(std::move(options)) {}

void HelperServer::run(const std::atomic<bool>& stop) {
    // Accepted connections inherit it, so the kernel names the writer of every byte, even of those
    // sent before a worker gets to the connection.
    const int one = 1;
    ::setsockopt(listener_.get(), SOL_SOCKET, SO_PASSCRED, &one, sizeof one);
    // The workers start with the stop signals blocked, so the signals interrupt this thread's wait.
    sigset_t stopSignals;
    sigset_t previous;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
    std::vector<std::thread> workers;
    for (int i = 0; i < connectionLimit; ++i) workers.emplace_back([this] { work(); });
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);

    acceptUntil(stop);
    {
        const std::lock_guard lock(queueMutex_);
        stopping_ = true;
    }
    queueChanged_.notify_all();
    for (auto& worker : workers) worker.join();
}

void HelperServer::acceptUntil(const std::atomic<bool>& stop) {
    while (!stop.load()) {
        {
            // Only as many connections as there are free workers: the rest wait in the backlog.
            std::unique_lock lock(queueMutex_);
            const bool free = queueChanged_.wait_for(lock, std::chrono::milliseconds(200), [this] {
                return idle_ > static_cast<int>(accepted_.size());
            });
            if (!free) continue;  // all busy: look at stop again
        }
        // A stop signal handled while this thread waited above (or just before the poll) only sets
        // the flag: the poll wakes now and then so the loop sees it, never waiting for ever.
        pollfd p{listener_.get(), POLLIN, 0};
        const int r = ::poll(&p, 1, 200);
        if (r == 0) continue;
        if (r < 0) {
            if (errno == EINTR) continue;
            ::syslog(LOG_ERR, "waiting for callers failed: %s", std::strerror(errno));
            return;
        }
        quorv::UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client) continue;  // the caller gave up before we got to it, or a passing error
        {
            const std::lock_guard lock(queueMutex_);
            accepted_.push_back(std::move(client));
        }
        queueChanged_.notify_all();
    }
}

void HelperServer::work() {
    for (;;) {
        quorv::UniqueFd client;
        {
            std::unique_lock lock(queueMutex_);
            ++idle_;
            queueChanged_.notify_all();  // the acceptor may be waiting for a free worker
            queueChanged_.wait(lock, [this] { return stopping_ || !accepted_.empty(); });
            --idle_;
            if (accepted_.empty()) return;  // stopping, and nothing left to serve
            client = std::move(accepted_.front());
            accepted_.pop_front();
        }
        serve(client.get());
    }
}

void HelperServer::serve(int fd) {
    const auto receiveBy = after(receiveLimit);
    const int one = 1;
    // From here on the kernel tells, for every byte, which process wrote it.
    if (::setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &one, sizeof one) != 0) return;

    std::string why;
    const auto caller = identify(fd, options_, dispatch_.files().rootPath(), why);
    if (!caller) {
        ::syslog(LOG_NOTICE, "refused a caller: %s", why.c_str());
        return;
    }
    wire::Nonce nonce{};
    if (::getrandom(nonce.data(), nonce.size(), 0) != static_cast<ssize_t>(nonce.size())) return;
    if (!sendAll(fd, wire::encodeChallenge(nonce), receiveBy)) return;

    const auto request = receive(fd, *caller, receiveBy, why);
    if (!request) {
        ::syslog(LOG_NOTICE, "dropped %s (pid %d): %s", caller->name.c_str(), static_cast<int>(caller->pid), why.c_str());
        return;
    }
    if (request->nonce != nonce) {
        ::syslog(LOG_NOTICE, "dropped %s (pid %d): its request answers another challenge", caller->name.c_str(),
                 static_cast<int>(caller->pid));
        return;
    }
    if (!stillTrusted(*caller, options_, why)) {
        ::syslog(LOG_NOTICE, "dropped %s (pid %d): %s", caller->name.c_str(), static_cast<int>(caller->pid), why.c_str());
        return;
    }

    const auto& r = request->request;
    std::string reply;
    if (r.version) {
        reply = HelperDispatch::version();
    } else {
        // Only an operation of the table is named in the log; anything else is the caller's bytes.
        const bool known = HelperScript::isOperation(r.op);
        ::syslog(LOG_INFO, "%s for %s (%zu entries)", known ? r.op.c_str() : "refused operation", caller->name.c_str(),
                 r.list.size());
        const std::lock_guard job(jobMutex_);
        reply = dispatch_.run(r.op, r.arg, r.list, caller->home);
    }
    const auto frame = wire::encodeReply(reply);
    if (!frame || !sendAll(fd, *frame, after(sendLimit))) {
        ::syslog(LOG_NOTICE, "could not hand %s its reply", caller->name.c_str());
    }
}

}  // namespace brimstell::helperd

#endif  // __linux__
