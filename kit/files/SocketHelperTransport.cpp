#include "kit/files/SocketHelperTransport.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "shared/helper/HelperWire.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell {

namespace wire = HelperWire;
using Steady = std::chrono::steady_clock;

namespace {

#ifdef MSG_NOSIGNAL
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0;  // macOS: SO_NOSIGPIPE on the socket instead
#endif

struct Deadline {
    bool limited = false;
    Steady::time_point at{};

    // Milliseconds poll may wait: -1 without a limit, 0 once it has passed.
    int pollMs() const {
        if (!limited) return -1;
        const auto now = Steady::now();
        if (at <= now) return 0;
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(at - now).count();
        return ms > 1'000'000 ? 1'000'000 : static_cast<int>(ms);
    }
    bool passed() const { return limited && Steady::now() >= at; }
};

// Waits until fd is ready for events; false on the deadline or an error.
bool await(int fd, short events, const Deadline& deadline) {
    for (;;) {
        pollfd p{fd, events, 0};
        const int r = ::poll(&p, 1, deadline.pollMs());
        if (r > 0) return true;
        if (r == 0) return false;
        if (errno != EINTR) return false;
    }
}

enum class Outcome { done, lost, late };

Outcome sendAll(int fd, std::string_view bytes, const Deadline& deadline) {
    while (!bytes.empty()) {
        const ssize_t n = ::send(fd, bytes.data(), bytes.size(), sendFlags);
        if (n > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!await(fd, POLLOUT, deadline)) return deadline.passed() ? Outcome::late : Outcome::lost;
            continue;
        }
        return Outcome::lost;
    }
    return Outcome::done;
}

// Reads one frame, never past its end.
template <class T, class Decode>
Outcome readFrame(int fd, const Deadline& deadline, Decode decode, T& value) {
    std::string buffer;
    for (;;) {
        auto decoded = decode(std::string_view(buffer));
        if (decoded.status == wire::Parse::complete) {
            value = std::move(decoded.value);
            return Outcome::done;
        }
        if (decoded.status == wire::Parse::invalid) return Outcome::lost;
        const std::size_t goal = decoded.frameSize != 0 ? decoded.frameSize : wire::headerSize;
        std::size_t want = goal > buffer.size() ? goal - buffer.size() : 1;
        if (want > 65536) want = 65536;
        char chunk[65536];
        const ssize_t n = ::recv(fd, chunk, want, 0);
        if (n > 0) {
            buffer.append(chunk, static_cast<std::size_t>(n));
            continue;
        }
        if (n == 0) return Outcome::lost;  // closed without (the rest of) a frame
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!await(fd, POLLIN, deadline)) return deadline.passed() ? Outcome::late : Outcome::lost;
            continue;
        }
        return Outcome::lost;
    }
}

quorv::UniqueFd connectTo(const std::string& path, const Deadline& deadline) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return {};
    std::memcpy(address.sun_path, path.data(), path.size());
#ifdef SOCK_CLOEXEC
    quorv::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) return {};
#else
    quorv::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!fd || ::fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK) != 0) {
        return {};
    }
#endif
#ifdef SO_NOSIGPIPE
    const int one = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one);
#endif
    for (;;) {
        if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) break;
        if (errno == EINTR) continue;
        // A full backlog: the helper is busy with someone else; try again shortly.
        if (errno == EAGAIN && !deadline.passed()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        if (errno == EINPROGRESS) {
            if (!await(fd.get(), POLLOUT, deadline)) return {};
            int error = 0;
            socklen_t length = sizeof error;
            if (::getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) return {};
            break;
        }
        return {};
    }
    return fd;
}

}  // namespace

SocketHelperTransport::SocketHelperTransport(std::string socketPath) : socketPath_(std::move(socketPath)) {}

std::optional<std::string> SocketHelperTransport::call(const std::string& op, const std::string& arg,
                                                       const std::vector<std::string>& list,
                                                       std::optional<double> timeout) {
    Deadline deadline;
    if (timeout && std::isfinite(*timeout)) {
        deadline.limited = true;
        const double seconds = *timeout < 0 ? 0 : (*timeout > 1e6 ? 1e6 : *timeout);
        deadline.at = Steady::now() + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(seconds));
    }
    wire::Request request;
    if (op == "version") {
        request.version = true;
    } else {
        request.op = op;
        request.arg = arg;
        request.list = list;
    }

    quorv::UniqueFd fd = connectTo(socketPath_, deadline);
    if (!fd) {
        invalidated();  // nobody listens there
        return std::nullopt;
    }
    wire::Nonce nonce{};
    Outcome outcome = readFrame(fd.get(), deadline, wire::decodeChallenge, nonce);
    if (outcome == Outcome::done) {
        const auto frame = wire::encodeRequest(nonce, request);
        if (!frame) return std::nullopt;  // beyond the wire's limits: never sent
        outcome = sendAll(fd.get(), *frame, deadline);
    }
    std::string reply;
    if (outcome == Outcome::done) outcome = readFrame(fd.get(), deadline, wire::decodeReply, reply);
    if (outcome == Outcome::done) return reply;
    if (outcome == Outcome::lost) invalidated();
    return std::nullopt;
}

}  // namespace brimstell
