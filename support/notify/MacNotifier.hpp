#pragma once
// The macOS notification centre (UserNotifications). Built only on macOS.

#include <memory>

#include "support/notify/Notifier.hpp"

namespace quorv {

// Delivers nothing, and answers false, unless the process runs from inside an app bundle.
std::shared_ptr<Notifier> makeMacNotifier();

}  // namespace quorv
