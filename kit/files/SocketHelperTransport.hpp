#pragma once
// The channel to the root helper on Linux: a Unix-domain socket, one connection per request (the
// helper serves one request per connection). The frames are
// HelperWire's: the helper's challenge, our request with its nonce, the helper's reply.

#include <string>

#include "support/host/HelperTransport.hpp"

namespace brimstell {

class SocketHelperTransport final : public quorv::HelperTransport {
public:
    explicit SocketHelperTransport(std::string socketPath);

    // With a timeout, connecting, sending and reading the reply together take at most that long.
    // A helper that can't be reached, or closes the connection without a reply (it does so for a
    // caller it doesn't serve), reports the connection lost before answering nullopt.
    std::optional<std::string> call(const std::string& op, const std::string& arg,
                                    const std::vector<std::string>& list, std::optional<double> timeout) override;

    const std::string& socketPath() const { return socketPath_; }

private:
    std::string socketPath_;
};

}  // namespace brimstell
