#pragma once
// A platform's user-notification centre.

#include <string>

namespace quorv {

class Notifier {
public:
    virtual ~Notifier() = default;
    // Hands one notification to the centre; true when it was accepted. Must not block on the user.
    virtual bool deliver(const std::string& id, const std::string& title, const std::string& body) = 0;
};

}  // namespace quorv
