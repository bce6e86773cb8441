#pragma once
// Delivers one user notification (title and body) through the host's notification centre.

#include <string>

namespace quorv {

struct Notify {
    // True when the centre accepted the request. Each request gets a fresh UUID as its identifier,
    // so two alerts never replace each other.
    static bool send(const std::string& title, const std::string& body);
    // Starts the send and returns at once, for callers that can't wait.
    static void post(const std::string& title, const std::string& body);
};

}  // namespace quorv
