#include "support/notify/Notify.hpp"

#include "support/background/Background.hpp"
#include "support/host/Host.hpp"
#include "support/notify/Notifier.hpp"
#include "support/text/Uuid.hpp"

namespace quorv {

bool Notify::send(const std::string& title, const std::string& body) {
    const auto& notifier = host().notifier;
    if (!notifier) return false;
    return notifier->deliver(newUuid(), title, body);
}

void Notify::post(const std::string& title, const std::string& body) {
    Background::post([title, body] { send(title, body); });
}

}  // namespace quorv
