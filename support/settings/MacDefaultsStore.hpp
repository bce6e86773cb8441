#pragma once

#include <memory>

#include "support/settings/SettingsStore.hpp"

namespace quorv {

// The app's user-defaults domain through CFPreferences (macOS only).
std::shared_ptr<SettingsStore> makeMacDefaultsStore(const char* domain);

}  // namespace quorv
